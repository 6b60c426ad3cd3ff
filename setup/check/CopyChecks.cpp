// SPDX-License-Identifier: MIT
#include <setup/check/Checks.h>
#include <setup/check/PlanSteps.h>
#include <setup/files/PathText.h>

#include <algorithm>
#include <functional>
#include <set>

namespace KSETUP::Checks {

namespace {

using Kind = KPlannedAction::Kind;

bool IsCopy(const KScriptRule& rule) {
    return rule.Is(KINS::KRuleType::File, KINS::KRuleOperation::Copy);
}

/// Calls `look` with every copy of an install and a removal. What a command ran before one may have
/// made, no plan can know: such copies from elsewhere than the kit are left out.
void ForEachCopy(
    const KCheckContext& context, const std::function<void(const KPlannedRule&)>& look
) {
    bool commandRan = false;
    for (const KPlan* plan : {&context.GetInstall(), &context.GetRemove()}) {
        for (const KPlannedRule& planned : plan->GetRules()) {
            const KScriptRule& rule = planned.rule;
            commandRan = commandRan || std::any_of(
                                           planned.actions.begin(),
                                           planned.actions.end(),
                                           [](const KPlannedAction& action) {
                                               return action.kind == Kind::StartCommand;
                                           }
                                       );
            if (IsCopy(rule) &&
                (!commandRan ||
                 IsAtOrBelow(KPlannedTree::Normal(rule.fields[2]), context.GetKitDirectory()))) {
                look(planned);
            }
        }
    }
}

/// The directories that rules take something from, sorted.
std::set<std::string> CopiedDirectories(const KCheckContext& context) {
    std::set<std::string> all;
    for (const KScriptRule& rule : context.GetLines()) {
        if (IsCopy(rule)) {
            all.insert(KPlannedTree::Normal(rule.fields[2]));
        }
    }
    return all;
}

/// Whether one of the directories is the directory, or below it.
bool HasAtOrBelow(const std::set<std::string>& all, const std::string& directory) {
    const auto below = all.lower_bound(directory == "/" ? directory : directory + "/");
    return all.contains(directory) || (below != all.end() && IsAtOrBelow(*below, directory));
}

/// Whether a directory of the kit holds a file anywhere, and not only links and directories.
bool HasFiles(const KPlannedTree& tree, const std::string& directory) {
    const std::vector<std::string> names = tree.List(directory, "*");
    const std::vector<std::string> below = tree.ListDirectories(directory, "*");
    return std::any_of(
               names.begin(),
               names.end(),
               [&](const std::string& name) {
                   return tree.Find(JoinPath(directory, name)).kind == KEntryKind::File;
               }
           ) ||
           std::any_of(below.begin(), below.end(), [&](const std::string& name) {
               return HasFiles(tree, JoinPath(directory, name));
           });
}

/// Whether there is nothing to copy out of a subdirectory, and its counterpart is made by itself.
bool IsMadeByItself(
    const KPlannedTree& tree,
    const KScriptRule& rule,
    const std::string& from,
    const std::string& name
) {
    return rule.fields.size() > 3 &&
           tree.Find(JoinPath(rule.fields[3], name)).kind == KEntryKind::Directory &&
           !HasFiles(tree, JoinPath(from, name));
}

} // namespace

Findings MissingSources(const KCheckContext& context) {
    Findings found;
    ForEachCopy(context, [&](const KPlannedRule& planned) {
        const KScriptRule& rule = planned.rule;
        if (IsPattern(rule.fields[1]) || planned.actions.empty() ||
            !planned.actions.front().lacks) {
            return;
        }
        const std::string& source = planned.actions.front().source;
        const KEntryKind kind = context.GetAfterInstall().Find(source).kind;
        const std::string name = "\"" + InKit(source, context) + "\"";
        found.push_back(context.AtField(
            rule.line,
            1,
            kind == KEntryKind::Directory ? name + " is a directory, and only files are copied"
            : kind == KEntryKind::Nothing ? name + " is not in the kit"
                                          : name + " is no file of the kit",
            kind == KEntryKind::Directory ? "copy its files, with \"*\" for the name"
                                          : "add the file to the kit, or fix its name"
        ));
    });
    return found;
}

Findings EmptyWildcards(const KCheckContext& context) {
    Findings found;
    ForEachCopy(context, [&](const KPlannedRule& planned) {
        const KScriptRule& rule = planned.rule;
        if (IsPattern(rule.fields[1]) && planned.actions.empty()) {
            found.push_back(context.AtField(
                rule.line,
                1,
                "no file matches \"" + InKit(JoinPath(rule.fields[2], rule.fields[1]), context) +
                    "\"",
                "add the files to the kit, or take the line out"
            ));
        }
    });
    return found;
}

Findings SkippedDirectories(const KCheckContext& context) {
    const std::set<std::string> copied = CopiedDirectories(context);
    const KPlannedTree& tree = context.GetAfterInstall();
    Findings found;
    ForEachCopy(context, [&](const KPlannedRule& planned) {
        const KScriptRule& rule = planned.rule;
        const std::string from = KPlannedTree::Normal(rule.fields[2]);
        if (!IsPattern(rule.fields[1]) || !IsAtOrBelow(from, context.GetKitDirectory())) {
            return;
        }
        for (const std::string& name : tree.ListDirectories(from, rule.fields[1])) {
            const std::string directory = KPlannedTree::Normal(JoinPath(from, name));
            if (HasAtOrBelow(copied, directory) || IsMadeByItself(tree, rule, from, name)) {
                continue;
            }
            found.push_back(context.AtField(
                rule.line,
                1,
                "\"" + InKit(directory, context) + "\" matches, but a directory is not copied",
                HasFiles(tree, directory) ? "add a \"create\" and a \"copy\" of its own for it"
                                          : "add a \"create\" of its own for it"
            ));
        }
    });
    return found;
}

Findings CopiesOntoThemselves(const KCheckContext& context) {
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        const std::vector<std::string>& fields = rule.fields;
        if (!IsCopy(rule) || fields.size() < 4) {
            continue;
        }
        const bool isRenamed = fields.size() == 5 && !IsPattern(fields[1]);
        const std::string& newName = isRenamed ? fields[4] : fields[1];
        const std::string source = KPlannedTree::Normal(JoinPath(fields[2], fields[1]));
        if (source == KPlannedTree::Normal(JoinPath(fields[3], newName))) {
            found.push_back(context.AtValue(
                rule.line,
                "\"" + InKit(source, context) + "\" is copied onto itself",
                "fix the directory that it comes from, or the one that it goes to"
            ));
        }
    }
    return found;
}

Findings OverwrittenConfigurations(const KCheckContext& context) {
    const std::string profile = KPlannedTree::Normal(context.GetRecordProfile());
    Findings found;
    ForEachCopy(context, [&](const KPlannedRule& planned) {
        for (const KPlannedAction& action : planned.actions) {
            if (KPlannedTree::Normal(action.path) == profile) {
                found.push_back(context.AtField(
                    planned.rule.line,
                    1,
                    "an upgrade with this copy overwrites the configuration \"" + profile +
                        "\", which may have been edited",
                    "give the copy another name, and make the configuration with profile=put"
                ));
            }
        }
    });
    for (const KPlanStep& step : StepsOf(context.GetInstall())) {
        if (step.action->kind == Kind::CreateProfile && step.path == profile) {
            found.push_back(context.AtField(
                step.rule->rule.line,
                0,
                "an upgrade with this \"create\" empties the configuration \"" + profile +
                    "\", which may have been edited",
                "take it out: a \"put\" makes the file where it is missing"
            ));
        }
    }
    return found;
}

} // namespace KSETUP::Checks
