// SPDX-License-Identifier: MIT
#include <ins/KProcessRuleBase.h>
#include <sup++/KErrorSource.h>

#include <cerrno>

using KSUP::KString;

namespace KINS {

namespace {

constexpr KSUP::KErrorSource errorSource{"ins/KProcessRuleBase"};

} // namespace

KProcessRuleBase::KProcessRuleBase(KInstallRuleManagerBase* owner, const KString& line)
    : KInstallRule(owner, line) {}

KProcessRuleBase::~KProcessRuleBase() = default;

void KProcessRuleBase::Execute() {
    if (action == "start" || action == "stop") {
        // Loud, since a product whose commands were left out is not installed.
        errorSource.Raise(
            KSUP::TraceLevel::setup, ENOSYS, "this version does not run process rules: " + ruleLine
        );
    }
    // Any other action does nothing, and is meant to, unlike the service rule's.
}

KString KProcessRuleBase::Description() const {
    return "Execute command " + ruleLine;
}

void KProcessRuleBase::ParseRule(const std::vector<KString>& fields) {
    if (fields.size() != 2) {
        errorSource.Raise(KSUP::TraceLevel::rule, KSUP::ErrorCode::malformedRule, ruleLine);
    }
    action = fields[0];
    command = ExpandMacros(fields[1]);
}

} // namespace KINS
