// SPDX-License-Identifier: MIT
#include <setup/check/Checks.h>
#include <setup/check/PlanSteps.h>
#include <setup/files/PathText.h>
#include <setup/plan/SystemPlaces.h>
#include <setup/script/KSetupRuleLine.h>

#include <algorithm>
#include <string_view>
#include <unordered_map>

namespace KSETUP::Checks {

namespace {

using Kind = KPlannedAction::Kind;

/// The steps of an install that make something in a directory that is not there by then, the first
/// of each rule.
std::vector<KPlanStep> StepsWithoutDirectory(const KCheckContext& context) {
    std::vector<KPlanStep> all;
    for (const KPlanStep& step : context.GetInstallSteps()) {
        if (step.action->lacksDirectory && !step.action->lacks && !step.commandRan) {
            all.push_back(step);
        }
    }
    const auto sameRule = [](const KPlanStep& left, const KPlanStep& right) {
        return left.rule == right.rule;
    };
    all.erase(std::unique(all.begin(), all.end(), sameRule), all.end());
    return all;
}

bool IsThereInTheEnd(const KCheckContext& context, const std::string& directory) {
    return context.GetAfterInstall().FindTarget(directory).kind == KEntryKind::Directory;
}

/// Whether nobody but the product makes the directory.
bool IsOwn(const KCheckContext& context, const std::string& directory) {
    return IsAtOrBelow(directory, NormalPath(context.GetProductPath())) ||
           IsAtOrBelow(directory, ParentPath(NormalPath(context.GetRecordLink())));
}

/// The field that has the directory in which something is made.
std::size_t TargetField(const KScriptRule& rule) {
    if (rule.own != nullptr) {
        const std::size_t to = rule.own->IndexOf(KSetupField::ToDirectory);
        return to != 0 ? to : rule.own->IndexOf(KSetupField::Path);
    }
    return rule.type == KINS::KRuleType::File ? 3 : 1;
}

/// Uses what was made before, for all that is known.
bool IsUse(Kind kind) {
    return kind == Kind::StartCommand || kind == Kind::RunCommand || kind == Kind::InstallService ||
           kind == Kind::StartService;
}

/// A later line for one file is an exception from a wildcard before it.
bool IsException(const KPlanStep& former, const KPlanStep& step) {
    return IsPattern(former.rule->rule.fields[1]) && !IsPattern(step.rule->rule.fields[1]);
}

KText AtLine(const KPlanStep& step) {
    return Text("line %s", step.rule->rule.line.number);
}

} // namespace

Findings LateDirectories(const KCheckContext& context) {
    Findings found;
    for (const KPlanStep& step : StepsWithoutDirectory(context)) {
        const std::string directory = ParentPath(step.path);
        // One of the system is there before, although the empty machine of a check does not have it.
        const bool isSystems = IsSystemDirectory(directory, context.Expand("$serviceName$"));
        if (!isSystems && IsThereInTheEnd(context, directory)) {
            found.push_back(context.AtField(
                step.rule->rule.line,
                TargetField(step.rule->rule),
                Text("the directory \"%s\" is made only by a later line, so this fails", directory),
                Text("move its directory=create in front of this line")
            ));
        }
    }
    return found;
}

Findings MissingDirectories(const KCheckContext& context) {
    Findings found;
    for (const KPlanStep& step : StepsWithoutDirectory(context)) {
        const std::string directory = ParentPath(step.path);
        if (IsOwn(context, directory) && !IsThereInTheEnd(context, directory)) {
            found.push_back(context.AtField(
                step.rule->rule.line,
                TargetField(step.rule->rule),
                Text("no rule makes the directory \"%s\", and without it this fails", directory),
                Text(
                    "write directory=create,%s in front of it, with the macros that it is made of",
                    directory
                )
            ));
        }
    }
    return found;
}

Findings DoubleCopies(const KCheckContext& context) {
    std::unordered_map<std::string_view, KPlanStep> copies; // that nothing has used yet
    Findings found;
    for (const KPlanStep& step : context.GetInstallSteps()) {
        if (IsUse(step.action->kind)) {
            copies.clear();
        } else if (step.action->kind == Kind::DeleteFile) {
            copies.erase(step.path);
        }
        if (step.action->kind != Kind::CopyFile || step.action->lacks) {
            continue;
        }
        const auto [former, isFirst] = copies.try_emplace(step.path, step);
        if (!isFirst &&
            NormalPath(*former->second.action->source) != NormalPath(*step.action->source) &&
            !IsException(former->second, step)) {
            found.push_back(context.AtValue(
                step.rule->rule.line,
                Text(
                    "\"%s\" is copied by %s already, from \"%s\", which is lost",
                    step.path,
                    AtLine(former->second),
                    InKit(*former->second.action->source, context)
                ),
                Text("give one of the two another name or directory, or take one out")
            ));
        }
        former->second = step;
    }
    return found;
}

Findings DeletionsOfNewFiles(const KCheckContext& context) {
    std::unordered_map<std::string_view, KPlanStep> made; // that nothing has used yet
    const KPlannedRule* told = nullptr;
    Findings found;
    for (const KPlanStep& step : context.GetInstallSteps()) {
        if (IsUse(step.action->kind)) {
            made.clear();
        } else if (MakesFile(*step.action)) {
            made.insert_or_assign(step.path, step);
        }
        const auto former = made.find(step.path);
        if (step.action->kind != Kind::DeleteFile || former == made.end() || step.rule == told) {
            continue;
        }
        told = step.rule;
        found.push_back(context.AtValue(
            step.rule->rule.line,
            Text("this deletes \"%s\", which %s has just made", step.path, AtLine(former->second)),
            Text("move the deletion in front of that line, or to section [remove]")
        ));
    }
    return found;
}

} // namespace KSETUP::Checks
