// SPDX-License-Identifier: MIT
#include <ins/KInstallRuleManagerBase.h>
#include <ins/KSectionRule.h>
#include <sup++/KError.h>

using KSUP::KString;

namespace KINS {

KSectionRule::KSectionRule(KInstallRuleManagerBase* owner, const KString& line)
    : KInstallRule(owner, owner->ExpandMacros(line)) {}

KSectionRule::~KSectionRule() = default;

void KSectionRule::Execute() {}

void KSectionRule::Initialize() {
    if (initialized) {
        return;
    }
    initialized = true;
    try {
        manager->LoadSection(ruleLine);
        KInstallRuleBase::Initialize();
    } catch (const KSUP::KError&) {
        initialized = false; // the section may be tried again
        throw;
    }
}

KString KSectionRule::Description() const {
    return "Include section " + ruleLine;
}

bool KSectionRule::ShouldCount() const {
    return false;
}

} // namespace KINS
