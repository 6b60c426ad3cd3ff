// SPDX-License-Identifier: MIT
#include <setup/check/Checks.h>
#include <setup/check/PlanSteps.h>
#include <setup/files/AccountNames.h>
#include <setup/files/PathText.h>
#include <setup/script/KSetupRuleLine.h>

#include <set>
#include <string>

namespace KSETUP::Checks {

namespace {

using Kind = KPlannedAction::Kind;

/// The users that the install makes, each with a group of the same name.
std::set<std::string> UsersMade(const KCheckContext& context) {
    std::set<std::string> users;
    for (const KPlanStep& step : context.GetInstallSteps()) {
        if (step.action->kind == Kind::CreateUser) {
            users.insert(*step.action->source);
        }
    }
    return users;
}

} // namespace

Findings InvalidRules(const KCheckContext& context) {
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        if (rule.own != nullptr && !rule.own->GetProblem().empty()) {
            found.push_back(
                context.AtValue(rule.line, rule.own->GetProblem(), rule.own->GetAdvice())
            );
        }
    }
    return found;
}

Findings ModesOfNothing(const KCheckContext& context) {
    Findings found;
    for (const KPlanStep& step : context.GetInstallSteps()) {
        const bool isOwn = IsAtOrBelow(step.path, NormalPath(context.GetProductPath()));
        if (step.action->kind == Kind::SetMode && step.action->lacks && isOwn && !step.commandRan) {
            found.push_back(context.AtField(
                step.rule->rule.line,
                1,
                Text("no rule has made \"%s\" by then, so this fails", step.path),
                Text("move the line behind the rule that makes it, or fix the path")
            ));
        }
    }
    return found;
}

Findings UnknownOwners(const KCheckContext& context) {
    const std::set<std::string> made = UsersMade(context);
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        if (SetupOperationOf(rule) != KSetupOperation::SetMode) {
            continue;
        }
        for (const KSetupField field : {KSetupField::Owner, KSetupField::Group}) {
            const std::string& name = rule.own->Get(field);
            const bool isUser = field == KSetupField::Owner;
            const bool isKnown = name.empty() || IsAccountNumber(name) || made.contains(name) ||
                                 (isUser ? IsSystemUser(name) : IsSystemGroup(name));
            if (!isKnown) {
                found.push_back(context.AtField(
                    rule.line,
                    rule.own->IndexOf(field),
                    Text(
                        "%s \"%s\" is made by no rule, and is on no machine from the beginning",
                        isUser ? Text("the user") : Text("the group"),
                        name
                    ),
                    Text("write user=create,NAME in front of it, which makes a group of that name "
                         "too")
                ));
            }
        }
    }
    return found;
}

Findings SetIdsWithoutOwner(const KCheckContext& context) {
    constexpr unsigned setUser = 04000;
    constexpr unsigned setGroup = 02000;
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        if (SetupOperationOf(rule) != KSetupOperation::SetMode) {
            continue;
        }
        const unsigned mode = rule.own->GetMode();
        const bool isUser = (mode & setUser) != 0 && !rule.own->Has(KSetupField::Owner);
        const bool isGroup = (mode & setGroup) != 0 && !rule.own->Has(KSetupField::Group);
        const std::string path = NormalPath(rule.own->Get(KSetupField::Path));
        // Of a directory the bits say whose the files in it become, not with whose rights they run.
        if ((isUser || isGroup) &&
            context.GetAfterInstall().FindTarget(path).kind != KEntryKind::Directory) {
            found.push_back(context.AtField(
                rule.line,
                rule.own->IndexOf(KSetupField::Mode),
                Text(
                    "whoever runs this gets the rights of its %s, which is root's unless the line "
                    "says whose",
                    (isUser ? "owner" : "group")
                ),
                Text(
                    "write the owner and the group behind the mode, root,root where these are meant"
                )
            ));
        }
    }
    return found;
}

Findings LinksOutOfTheProduct(const KCheckContext& context) {
    const std::string product = NormalPath(context.GetProductPath());
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        if (SetupOperationOf(rule) != KSetupOperation::CreateLink) {
            continue;
        }
        const std::string& target = rule.own->Get(KSetupField::LinkTarget);
        const std::string directory = ParentPath(NormalPath(rule.own->Get(KSetupField::Path)));
        if (target.starts_with('/') || !IsAtOrBelow(directory, product)) {
            continue;
        }
        const std::string led = NormalPath(JoinPath(directory, target));
        if (!IsAtOrBelow(led, product)) {
            found.push_back(context.AtField(
                rule.line,
                1,
                Text(
                    "the link leads out of the product, to \"%s\" here and elsewhere for another "
                    "product path",
                    led
                ),
                Text("write an absolute path, or one that stays below the product path")
            ));
        }
    }
    return found;
}

} // namespace KSETUP::Checks
