// SPDX-License-Identifier: MIT
#include <ins/KInstallRuleBase.h>
#include <ins/KInstallRuleManagerBase.h>

using KSUP::KString;

namespace KINS {

KInstallRuleBase::KInstallRuleBase(KInstallRuleManagerBase* owner, const KString& line)
    : KBase("KInstallRule", true),
      manager(owner),
      ruleLine(line),
      log(owner->GetInstallLog()),
      initialized(false) {}

KInstallRuleBase::~KInstallRuleBase() = default;

void KInstallRuleBase::Initialize() {
    initialized = true;
    ParseRule(ruleLine.SectionVector(',', true));
}

bool KInstallRuleBase::ShouldCount() const {
    return true;
}

void KInstallRuleBase::ParseRule(const std::vector<KString>& /*fields*/) {}

KString KInstallRuleBase::ExpandMacros(const KString& text) const {
    return manager->ExpandMacros(text);
}

KRuleLine KInstallRuleBase::ReadFields(KRuleType type, const std::vector<KString>& fields) const {
    return KRuleLine::ReadFields(type, fields, [this](const KString& text) {
        return ExpandMacros(text);
    });
}

KSUP::KLogBase& operator<<(KSUP::KLogBase& log, const KInstallRuleBase* rule) {
    return log.IsOpen() ? log << rule->Description() : log;
}

} // namespace KINS
