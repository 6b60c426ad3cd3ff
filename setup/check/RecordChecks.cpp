// SPDX-License-Identifier: MIT
#include <setup/check/Checks.h>
#include <setup/check/PlanSteps.h>
#include <setup/files/PathText.h>

#include <algorithm>
#include <filesystem>

namespace KSETUP::Checks {

namespace {

constexpr int levelsBelowProduct = 3; // at which the engine looks for the link's target

/// Why a link does not lead back to the product path; empty when it does.
KText WhyNotARecord(const std::string& target, const std::string& productPath) {
    if (!target.starts_with('/')) {
        return Text("\"%s\" is not absolute", target);
    }
    std::filesystem::path path(KPlannedTree::Normal(target));
    for (int level = 0; level < levelsBelowProduct; ++level) {
        path = path.parent_path();
    }
    return path == KPlannedTree::Normal(productPath)
               ? ""
               : Text(
                     "\"%s\" is not three levels below the product path, as in \"%s\"",
                     target,
                     JoinPath(productPath, "lin/x86_64/program")
                 );
}

/// The rule that laid a link last.
const KScriptLine* FindLinkLine(const KPlan& plan, const std::string& path) {
    const KScriptLine* found = nullptr;
    for (const KPlannedRule& planned : plan.GetRules()) {
        for (const KPlannedAction& action : planned.actions) {
            if (action.kind == KPlannedAction::Kind::MakeLink &&
                KPlannedTree::Normal(*action.path) == path) {
                found = &planned.rule.line;
            }
        }
    }
    return found;
}

/// The rule that lays a link which leads to a path.
const KScriptLine* FindLinkTo(const KPlan& plan, const std::string& path) {
    for (const KPlannedRule& planned : plan.GetRules()) {
        for (const KPlannedAction& action : planned.actions) {
            if (action.kind == KPlannedAction::Kind::MakeLink &&
                KPlannedTree::Normal(*action.source) == path) {
                return &planned.rule.line;
            }
        }
    }
    return nullptr;
}

} // namespace

Findings MissingRecordLinks(const KCheckContext& context) {
    const std::string path = KPlannedTree::Normal(context.GetRecordLink());
    const KPlannedEntry entry = context.GetAfterInstall().Find(path);
    const KText advice =
        Text("write file=symlink,PROGRAM,$pathTargetBin$,/etc/$serviceName$,$serviceName$");
    if (entry.kind != KEntryKind::Link) {
        if (const KScriptLine* reversed = FindLinkTo(context.GetInstall(), path)) {
            return {context.AtValue(
                *reversed,
                Text(
                    "this link leads to \"%s\", by which the product counts as installed and where "
                    "a link has to stand: its fields are reversed",
                    path
                ),
                advice
            )};
        }
        return {context.AtSection(
            "install",
            Text("no rule makes the link \"%s\", by which the product counts as installed", path),
            advice
        )};
    }
    const KText why = WhyNotARecord(entry.GetTarget(), context.GetProductPath());
    const KScriptLine* line = FindLinkLine(context.GetInstall(), path);
    if (why.empty() || line == nullptr) {
        return {};
    }
    return {context.AtField(
        *line, 2, Text("the link \"%s\" does not lead to the product: %s", path, why), advice
    )};
}

Findings DanglingRecordLinks(const KCheckContext& context) {
    const std::string path = KPlannedTree::Normal(context.GetRecordLink());
    const KPlannedEntry entry = context.GetAfterInstall().Find(path);
    const KScriptLine* line = FindLinkLine(context.GetInstall(), path);
    const std::vector<KPlanStep>& steps = context.GetInstallSteps();
    const bool commandRuns = std::any_of(steps.begin(), steps.end(), [](const KPlanStep& step) {
        return step.action->kind == KPlannedAction::Kind::StartCommand;
    });
    if (entry.kind != KEntryKind::Link || line == nullptr || commandRuns ||
        !WhyNotARecord(entry.GetTarget(), context.GetProductPath()).empty() ||
        context.GetAfterInstall().FindTarget(entry.GetTarget()).kind != KEntryKind::Nothing) {
        return {};
    }
    return {context.AtField(
        *line,
        1,
        Text("the link \"%s\" leads to \"%s\", which no rule makes", path, entry.GetTarget()),
        Text("name the program as it is copied, or copy it")
    )};
}

Findings MissingRecordProfiles(const KCheckContext& context) {
    const std::string path = KPlannedTree::Normal(context.GetRecordProfile());
    if (context.GetAfterInstall().Exists(path)) {
        return {};
    }
    return {context.AtSection(
        "install",
        Text(
            "no rule makes the configuration file \"%s\", in which the record of the product is "
            "kept",
            path
        ),
        Text("write directory=create,$pathTargetConfig$ and "
             "profile=put,$pathTargetConfig$$iniFile$,SECTION,KEY,VALUE")
    )};
}

Findings LeftRecordLinks(const KCheckContext& context) {
    const std::string path = KPlannedTree::Normal(context.GetRecordLink());
    if (!context.GetAfterRemove().Exists(path)) {
        return {};
    }
    return {context.AtSection(
        "remove",
        Text("the removal leaves the link \"%s\", so the product still counts as installed", path),
        Text(
            "%swrite file=delete,$serviceName$,/etc/$serviceName$ as its last deletion",
            context.GetScript().HasSection("remove") ? "" : Text("add a section [remove] and ")
        )
    )};
}

} // namespace KSETUP::Checks
