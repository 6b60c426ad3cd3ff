// SPDX-License-Identifier: MIT
#include <setup/check/Checks.h>
#include <setup/check/PlanSteps.h>
#include <setup/files/PathText.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <set>

#include <sys/files/DirectoryEntry.h>

namespace KSETUP::Checks {

namespace {

using Kind = KPlannedAction::Kind;

/// Calls `look` with every copy of an install and a removal. What a command ran before one may have
/// made, no plan can know: such copies from elsewhere than the kit are left out.
void ForEachCopy(
    const KCheckContext& context,
    const std::function<void(const KPlannedRule&, const KCopyLine&)>& look
) {
    bool commandRan = false;
    for (const KPlan* plan : {&context.GetInstall(), &context.GetRemove()}) {
        for (const KPlannedRule& planned : plan->GetRules()) {
            commandRan = commandRan || std::any_of(
                                           planned.actions.begin(),
                                           planned.actions.end(),
                                           [](const KPlannedAction& action) {
                                               return action.kind == Kind::StartCommand ||
                                                      action.kind == Kind::RunCommand;
                                           }
                                       );
            const std::optional<KCopyLine> copy = CopyLineOf(planned.rule);
            if (copy &&
                (!commandRan ||
                 IsAtOrBelow(KPlannedTree::Normal(copy->from), context.GetKitDirectory()))) {
                look(planned, *copy);
            }
        }
    }
}

/// The directories that rules take something from, sorted.
std::set<std::string> CopiedDirectories(const KCheckContext& context) {
    std::set<std::string> all;
    for (const KScriptRule& rule : context.GetLines()) {
        if (const std::optional<KCopyLine> copy = CopyLineOf(rule)) {
            all.insert(KPlannedTree::Normal(copy->from));
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
    const std::vector<std::string_view> names = tree.List(directory, "*");
    const std::vector<std::string_view> below = tree.ListDirectories(directory, "*");
    return std::any_of(
               names.begin(),
               names.end(),
               [&](std::string_view name) {
                   return tree.Find(JoinPath(directory, name)).kind == KEntryKind::File;
               }
           ) ||
           std::any_of(below.begin(), below.end(), [&](std::string_view name) {
               return HasFiles(tree, JoinPath(directory, name));
           });
}

/// Whether there is nothing to copy out of a subdirectory, and its counterpart is made by itself.
bool IsMadeByItself(
    const KPlannedTree& tree, const KCopyLine& copy, const std::string& from, std::string_view name
) {
    return !copy.to.empty() && tree.Find(JoinPath(copy.to, name)).kind == KEntryKind::Directory &&
           !HasFiles(tree, JoinPath(from, name));
}

} // namespace

Findings MissingSources(const KCheckContext& context) {
    Findings found;
    ForEachCopy(context, [&](const KPlannedRule& planned, const KCopyLine& copy) {
        const KScriptRule& rule = planned.rule;
        if (copy.isPattern || planned.actions.empty() || !planned.actions.front().lacks) {
            return;
        }
        const std::string& source = *planned.actions.front().source;
        const KEntryKind kind = context.GetAfterInstall().Find(source).kind;
        const std::string name = "\"" + InKit(source, context) + "\"";
        found.push_back(context.AtField(
            rule.line,
            copy.nameField,
            kind == KEntryKind::Directory
                ? Text("%s is a directory, and only files are copied", name)
            : kind == KEntryKind::Nothing ? Text("%s is not in the kit", name)
                                          : Text("%s is no file of the kit", name),
            kind == KEntryKind::Directory ? Text("copy its files, with \"*\" for the name")
                                          : Text("add the file to the kit, or fix its name")
        ));
    });
    return found;
}

Findings EmptyWildcards(const KCheckContext& context) {
    Findings found;
    ForEachCopy(context, [&](const KPlannedRule& planned, const KCopyLine& copy) {
        const KScriptRule& rule = planned.rule;
        if (copy.isPattern && planned.actions.empty()) {
            found.push_back(context.AtField(
                rule.line,
                copy.nameField,
                Text("no file matches \"%s\"", InKit(JoinPath(copy.from, copy.name), context)),
                Text("add the files to the kit, or take the line out")
            ));
        }
    });
    return found;
}

Findings SkippedDirectories(const KCheckContext& context) {
    const std::set<std::string> copied = CopiedDirectories(context);
    const KPlannedTree& tree = context.GetAfterInstall();
    Findings found;
    ForEachCopy(context, [&](const KPlannedRule& planned, const KCopyLine& copy) {
        const KScriptRule& rule = planned.rule;
        const std::string from = KPlannedTree::Normal(copy.from);
        if (!copy.isPattern || !IsAtOrBelow(from, context.GetKitDirectory())) {
            return;
        }
        for (const std::string_view name : tree.ListDirectories(from, copy.name)) {
            const std::string directory = KPlannedTree::Normal(JoinPath(from, name));
            if (HasAtOrBelow(copied, directory) || IsMadeByItself(tree, copy, from, name)) {
                continue;
            }
            found.push_back(context.AtField(
                rule.line,
                1,
                Text("\"%s\" matches, but a directory is not copied", InKit(directory, context)),
                HasFiles(tree, directory)
                    ? Text("add a \"create\" and a \"copy\" of its own for it")
                    : Text("add a \"create\" of its own for it")
            ));
        }
    });
    return found;
}

Findings CopiesOntoThemselves(const KCheckContext& context) {
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        const std::optional<KCopyLine> copy = CopyLineOf(rule);
        if (!copy || copy->to.empty()) {
            continue;
        }
        const std::string source = KPlannedTree::Normal(JoinPath(copy->from, copy->name));
        if (source == KPlannedTree::Normal(JoinPath(copy->to, copy->newName))) {
            found.push_back(context.AtValue(
                rule.line,
                Text("\"%s\" is copied onto itself", InKit(source, context)),
                Text("fix the directory that it comes from, or the one that it goes to")
            ));
        }
    }
    return found;
}

Findings CopiedSetIds(const KCheckContext& context) {
    Findings found;
    for (const KPlanStep& step : context.GetInstallSteps()) {
        struct stat status {};
        const bool isSetId =
            step.action->kind == Kind::CopyFile && (step.action->mode & (S_ISUID | S_ISGID)) != 0 &&
            KSYS::ReadStatus(*step.action->source, KSYS::LastLink::Follow, status) == 0;
        if (isSetId && (((status.st_mode & S_ISUID) != 0 && status.st_uid != 0) ||
                        ((status.st_mode & S_ISGID) != 0 && status.st_gid != 0))) {
            found.push_back(context.AtField(
                step.rule->rule.line,
                1,
                Text(
                    "\"%s\" has a set-id bit of somebody else's, and a copy is root's: the program "
                    "would run as root",
                    *step.action->source
                ),
                Text("take the bit away in the kit (chmod ug-s), and write "
                     "mode=set,PATH,MODE,OWNER,GROUP behind the copy")
            ));
        }
    }
    return found;
}

Findings OverwrittenConfigurations(const KCheckContext& context) {
    const std::string profile = KPlannedTree::Normal(context.GetRecordProfile());
    Findings found;
    ForEachCopy(context, [&](const KPlannedRule& planned, const KCopyLine& copy) {
        for (const KPlannedAction& action : planned.actions) {
            if (KPlannedTree::Normal(*action.path) == profile) {
                found.push_back(context.AtField(
                    planned.rule.line,
                    copy.nameField,
                    Text(
                        "an upgrade with this copy overwrites the configuration \"%s\", which may "
                        "have been edited",
                        profile
                    ),
                    Text("give the copy another name, and make the configuration with profile=put")
                ));
            }
        }
    });
    for (const KPlanStep& step : context.GetInstallSteps()) {
        if (step.action->kind == Kind::CreateProfile && step.path == profile) {
            found.push_back(context.AtField(
                step.rule->rule.line,
                0,
                Text(
                    "an upgrade with this \"create\" empties the configuration \"%s\", which may "
                    "have been edited",
                    profile
                ),
                Text("take it out: a \"put\" makes the file where it is missing")
            ));
        }
    }
    return found;
}

} // namespace KSETUP::Checks
