// SPDX-License-Identifier: MIT
#include <setup/run/RuleWords.h>
#include <setup/script/SecretNames.h>

#include <vector>

namespace KSETUP {

namespace {

using Kind = KPlannedAction::Kind;
using KINS::KRuleOperation;
using KINS::KRuleType;

// Fields of a line; the operation is the first one.
constexpr std::size_t fileName = 1;
constexpr std::size_t deletedFrom = 2;
constexpr std::size_t copiedTo = 3;
constexpr std::size_t profilePath = 1;
constexpr std::size_t profileSection = 2;
constexpr std::size_t profileKey = 3;

std::string Field(const KScriptRule& rule, std::size_t number) {
    return number < rule.fields.size() ? rule.fields[number] : "";
}

std::string LinkPath(const KPlannedRule& rule) {
    for (const KPlannedAction& action : rule.actions) {
        if (action.kind == Kind::MakeLink) {
            return *action.path;
        }
    }
    return Field(rule.rule, copiedTo);
}

bool KeepsAll(const KPlannedRule& rule) {
    for (const KPlannedAction& action : rule.actions) {
        if (action.kind != Kind::KeepFile) {
            return false;
        }
    }
    return !rule.actions.empty();
}

} // namespace

KText DescribeRule(const KPlannedRule& planned) {
    const KScriptRule& rule = planned.rule;
    if (rule.Is(KRuleType::File, KRuleOperation::Symlink)) {
        return Text("Making link %s", LinkPath(planned));
    }
    if (rule.Is(KRuleType::Profile, KRuleOperation::Put)) {
        return Text(
            "Setting [%s] %s in %s",
            Field(rule, profileSection),
            Field(rule, profileKey),
            Field(rule, profilePath)
        );
    }
    if (rule.Is(KRuleType::Profile, KRuleOperation::RemoveFile)) {
        return Text(
            "Deleting what [%s] of %s lists", Field(rule, profileSection), Field(rule, profilePath)
        );
    }
    if (KeepsAll(planned)) {
        return Text(
            "Keeping %s%s",
            *planned.actions.front().path,
            (planned.actions.size() > 1 ? Text(" and others") : "")
        );
    }
    if (rule.Is(KRuleType::File, KRuleOperation::Copy)) {
        return Text("Copying %s to %s", Field(rule, fileName), Field(rule, copiedTo));
    }
    if (rule.Is(KRuleType::File, KRuleOperation::Delete)) {
        return Text("Deleting %s in %s", Field(rule, fileName), Field(rule, deletedFrom));
    }
    return Text("Doing nothing for %s", MaskedLine(rule.line.type, rule.line.value));
}

} // namespace KSETUP
