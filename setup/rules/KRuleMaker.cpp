// SPDX-License-Identifier: MIT
#include <ins/KRuleLine.h>
#include <setup/rules/KOwnedDirectoryRule.h>
#include <setup/rules/KOwnedFileRule.h>
#include <setup/rules/KOwnedServiceRule.h>
#include <setup/rules/KRuleMaker.h>

namespace KSETUP {

std::unique_ptr<KINS::KInstallRule> KRuleMaker::Make(
    KINS::KInstallRuleManagerBase& manager, const KSUP::KString& type, const KSUP::KString& line
) const {
    const KINS::KRuleTypeInfo* known = KINS::KRuleLine::FindType(type);
    switch (known != nullptr ? known->type : KINS::KRuleType::None) {
    case KINS::KRuleType::File:
        return std::make_unique<KOwnedFileRule>(manager, line, policy, changes);
    case KINS::KRuleType::Directory:
        return std::make_unique<KOwnedDirectoryRule>(manager, line, policy, changes);
    case KINS::KRuleType::Service:
        return std::make_unique<KOwnedServiceRule>(manager, line, services, changes);
    default:
        return nullptr;
    }
}

} // namespace KSETUP
