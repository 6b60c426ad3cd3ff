// SPDX-License-Identifier: MIT
#include <ins/KRuleLine.h>
#include <setup/rules/KCommandRule.h>
#include <setup/rules/KCopyRule.h>
#include <setup/rules/KEntryRule.h>
#include <setup/rules/KLinkRule.h>
#include <setup/rules/KModeRule.h>
#include <setup/rules/KOwnedDirectoryRule.h>
#include <setup/rules/KOwnedFileRule.h>
#include <setup/rules/KOwnedProfileRule.h>
#include <setup/rules/KOwnedServiceRule.h>
#include <setup/rules/KRuleMaker.h>
#include <setup/rules/KUserRule.h>
#include <setup/script/UsersFile.h>

#include <string>

namespace KSETUP {

std::unique_ptr<KINS::KInstallRule> KRuleMaker::Make(
    KINS::KInstallRuleManagerBase& manager, const KSUP::KString& type, const KSUP::KString& line
) {
    const KINS::KRuleTypeInfo* known = KINS::KRuleLine::FindType(type);
    switch (known != nullptr ? known->type : KINS::KRuleType::None) {
    case KINS::KRuleType::File:
        return std::make_unique<KOwnedFileRule>(manager, line, policy, changes);
    case KINS::KRuleType::Directory:
        return std::make_unique<KOwnedDirectoryRule>(manager, line, policy, changes);
    case KINS::KRuleType::Profile:
        return std::make_unique<KOwnedProfileRule>(manager, line, policy, changes);
    case KINS::KRuleType::Service:
        return std::make_unique<KOwnedServiceRule>(manager, line, services, changes);
    default:
        return MakeOwn(manager, type, line);
    }
}

std::unique_ptr<KINS::KInstallRule> KRuleMaker::MakeOwn(
    KINS::KInstallRuleManagerBase& manager, const KSUP::KString& type, const KSUP::KString& line
) {
    const std::string keyword = type.c_str();
    if (keyword == "config" || (keyword == "entry" && line.Find("copy,", 0, true) == 0)) {
        return std::make_unique<KCopyRule>(manager, type, line, policy, changes);
    }
    if (keyword == "entry") {
        return std::make_unique<KEntryRule>(manager, type, line, policy, changes);
    }
    if (keyword == "link") {
        return std::make_unique<KLinkRule>(manager, type, line, policy);
    }
    if (keyword == "mode") {
        return std::make_unique<KModeRule>(manager, type, line, changes);
    }
    if (keyword == "command") {
        return std::make_unique<KCommandRule>(manager, type, line);
    }
    return keyword == "user" ? MakeUser(manager, type, line) : nullptr;
}

std::unique_ptr<KINS::KInstallRule> KRuleMaker::MakeUser(
    KINS::KInstallRuleManagerBase& manager, const KSUP::KString& type, const KSUP::KString& line
) {
    if (users == nullptr) {
        users = std::make_shared<KUsersFile>(manager.ExpandMacros(usersFileMacro).c_str());
    }
    return std::make_unique<KUserRule>(manager, type, line, users);
}

} // namespace KSETUP
