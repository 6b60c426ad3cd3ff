// SPDX-License-Identifier: MIT
#include <setup/rules/KOwnRule.h>
#include <sup++/KErrorSource.h>

namespace KSETUP {

namespace {

constexpr KSUP::KErrorSource ownRule{"setup/KOwnRule"};

} // namespace

KSetupRuleLine ReadOwnLine(
    const KINS::KInstallRuleManagerBase& manager,
    const std::string& keyword,
    const std::string& value
) {
    KSetupRuleLine line = KSetupRuleLine::Read(keyword, value, [&](const KSUP::KString& text) {
        return manager.ExpandMacros(text);
    });
    if (!line.GetProblem().empty()) {
        ownRule.RaiseAs(
            {KSUP::KErrorKind::Rule, KSUP::KOperation::None, {}, line.GetProblemText().English()},
            KSUP::TraceLevel::rule,
            KSUP::ErrorCode::malformedRule,
            KSUP::KString(keyword + "=" + value)
        );
    }
    return line;
}

KOwnRule::KOwnRule(
    KINS::KInstallRuleManagerBase& owner, const KSUP::KString& type, const KSUP::KString& value
)
    : KInstallRule(&owner, value),
      keyword(type) {}

void KOwnRule::ParseRule(const std::vector<KSUP::KString>& /*fields*/) {
    line = ReadOwnLine(*manager, keyword.c_str(), ruleLine.c_str());
}

KSUP::KString KOwnRule::Description() const {
    return keyword + "=" + ruleLine;
}

KSUP::KString KOwnRule::Get(KSetupField field) const {
    return line.Get(field);
}

void KOwnRule::Tell(const KSUP::KString& path, const KSUP::KString& status) {
    manager->SetCurrentTarget(KSUP::KOperation::Write, path);
    manager->SetCurrentRuleStatus(status);
}

} // namespace KSETUP
