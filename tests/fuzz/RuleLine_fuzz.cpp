// SPDX-License-Identifier: MIT
// One line of a script, of the engine's types and of ins-setup's own: read, or told what is wrong.
#include "Fuzz.h"

#include <setup/script/KSetupRuleLine.h>

#include <algorithm>

namespace {

using KTEST::Require;

KSUP::KString Expand(const KSUP::KString& text) {
    KSUP::KString expanded(text);
    static_cast<void>(expanded.Replace("$two$", "1,2", 0, 0, true));
    static_cast<void>(expanded.Replace("$none$", "", 0, 0, true));
    static_cast<void>(expanded.Replace("$path$", "/opt/p", 0, 0, true));
    return expanded;
}

void RequireOwn(const KSETUP::KSetupRuleLine& own) {
    using KSETUP::KSetupOperation;
    const bool isGood = own.GetProblem().empty();
    Require(isGood == own.GetProblemText().empty(), "a problem has words");
    if (!isGood || own.GetOperation() == KSetupOperation::RunCommand) {
        return;
    }
    for (const std::string& field : own.GetFields()) {
        Require(field.find('\0') == std::string::npos, "no field has a NUL");
    }
    static_cast<void>(own.GetSource());
    static_cast<void>(own.GetTarget());
    Require((own.GetMode() & ~07777U) == 0, "a mode is one");
}

} // namespace

/// A line, as "type=value".
FUZZ_TARGET(RuleLine) {
    const std::string line = KTEST::UpToNul(std::string(input));
    const std::size_t equals = std::min(line.find('='), line.size());
    KSETUP::KScriptLine written;
    written.type = line.substr(0, equals);
    written.value = line.substr(std::min(equals + 1, line.size()));
    const KSETUP::KScriptRule rule = KSETUP::RuleOf(written, Expand);
    if (rule.operation != KINS::KRuleOperation::None) {
        Require(rule.problem.empty(), "what would be loaded has no problem");
        Require(rule.fields.size() >= 2, "a rule with an operation has what it works on");
    }
    if (rule.own != nullptr) {
        RequireOwn(*rule.own);
    }
}
