// SPDX-License-Identifier: MIT
#include <setup/files/PathText.h>
#include <setup/plan/KPlan.h>
#include <setup/script/ScriptText.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <utility>

namespace KSETUP {

namespace {

using Kind = KPlannedAction::Kind;
using Actions = std::vector<KPlannedAction>;
using Fields = std::vector<std::string>;

KPlannedAction Action(Kind kind, const std::string& path, const std::string& source = {}) {
    KPlannedAction action;
    action.kind = kind;
    action.path = path;
    action.source = source;
    return action;
}

/// Finds out what single rules do, on the tree that the ones before left.
class Planner {
  public:
    explicit Planner(KPlannedTree& plannedTree) : tree(plannedTree) {}

    Actions Plan(const KScriptRule& rule);

  private:
    void PlanFile(const Fields& fields);
    void Copy(const std::string& source, const std::string& target);
    void Delete(const std::string& path);
    void Link(const std::string& target, const std::string& path);
    void PlanDirectory(const Fields& fields);
    void PlanProfile(const Fields& fields);
    void Put(const std::string& profile, const KPlannedTree::Option& option);
    void RemoveListed(const Fields& fields);
    void PlanProcess(const Fields& fields);
    void PlanService(const Fields& fields);
    /// Why nothing can be made at the path: its directory. Empty when it can.
    std::string WhyNoPlace(const std::string& path) const;

    KPlannedTree& tree;
    Actions actions;
};

Actions Planner::Plan(const KScriptRule& rule) {
    actions.clear();
    const std::string& type = rule.line.type;
    if (type == "file") {
        PlanFile(rule.fields);
    } else if (type == "directory") {
        PlanDirectory(rule.fields);
    } else if (type == "profile") {
        PlanProfile(rule.fields);
    } else if (type == "process") {
        PlanProcess(rule.fields);
    } else if (type == "service") {
        PlanService(rule.fields);
    }
    return std::move(actions);
}

std::string Planner::WhyNoPlace(const std::string& path) const {
    const std::string directory = ParentPath(NormalPath(path));
    const KEntryKind kind = tree.Find(directory).kind;
    if (kind == KEntryKind::Nothing) {
        return "there is no directory " + directory;
    }
    // Where a link leads is left to the run.
    const bool fits = kind == KEntryKind::Directory || kind == KEntryKind::Link;
    return fits ? "" : directory + " is no directory";
}

void Planner::PlanFile(const Fields& fields) {
    if (fields.size() < 3 || fields.size() > 5) {
        return;
    }
    const std::string& operation = fields[0];
    const std::string& name = fields[1];
    const std::string& directory = fields[2];
    const std::string target = fields.size() > 3 ? fields[3] : "";
    const std::string& targetName = fields.size() == 5 ? fields[4] : name;
    if (operation == "copy" && IsPattern(name)) {
        for (const std::string& one : tree.List(directory, name)) {
            Copy(JoinPath(directory, one), JoinPath(target, one));
        }
    } else if (operation == "copy") {
        Copy(JoinPath(directory, name), JoinPath(target, targetName));
    } else if (operation == "delete" && IsPattern(name)) {
        for (const std::string& one : tree.List(directory, name)) {
            Delete(JoinPath(directory, one));
        }
    } else if (operation == "delete") {
        Delete(JoinPath(directory, name));
    } else if (operation == "symlink") {
        Link(JoinPath(directory, name), JoinPath(target, targetName));
    }
}

void Planner::Copy(const std::string& source, const std::string& target) {
    KPlannedAction action = Action(Kind::CopyFile, target, source);
    std::string from = source;
    KPlannedEntry found = tree.Find(source);
    for (int links = 0; found.kind == KEntryKind::Link && links < 40; ++links) {
        // Relative to where that very link stands.
        from = found.target.starts_with('/') ? found.target : ParentPath(from) + "/" + found.target;
        found = tree.Find(from);
    }
    action.bytes = found.bytes;
    action.mode = found.mode;
    action.lacks = found.kind != KEntryKind::File;
    const KEntryKind former = tree.Find(target).kind;
    action.replaces = former != KEntryKind::Nothing;
    if (action.lacks) {
        action.obstacle = found.kind == KEntryKind::Nothing ? source + " is missing"
                                                            : source + " is no regular file";
    } else if (former == KEntryKind::Directory) {
        action.obstacle = target + " is a directory";
    } else {
        action.obstacle = WhyNoPlace(target);
    }
    // Also where its directory is missing: that is told once, not for all that follows.
    if (!action.lacks && former != KEntryKind::Directory) {
        tree.Put(target, found);
    }
    actions.push_back(std::move(action));
}

void Planner::Delete(const std::string& path) {
    KPlannedAction action = Action(Kind::DeleteFile, path);
    const KPlannedEntry found = tree.Find(path);
    action.bytes = found.bytes;
    action.lacks = found.kind == KEntryKind::Nothing || found.kind == KEntryKind::Directory;
    if (found.kind == KEntryKind::Directory) {
        action.obstacle = path + " is a directory";
    }
    if (!action.lacks) {
        tree.Remove(path);
    }
    actions.push_back(std::move(action));
}

void Planner::Link(const std::string& target, const std::string& path) {
    KPlannedAction action = Action(Kind::MakeLink, path, target);
    const KEntryKind former = tree.Find(path).kind;
    action.replaces = former != KEntryKind::Nothing;
    if (action.replaces && former != KEntryKind::Link) {
        action.obstacle = path + " is no link, and a link replaces nothing else";
    } else {
        action.obstacle = WhyNoPlace(path);
    }
    KPlannedEntry entry;
    entry.kind = KEntryKind::Link;
    entry.target = target;
    tree.Put(path, std::move(entry));
    actions.push_back(std::move(action));
}

void Planner::PlanDirectory(const Fields& fields) {
    if (fields.size() != 2) {
        return;
    }
    const std::string operation = Lowered(fields[0]);
    const std::string& path = fields[1];
    if (operation == "create") {
        for (const std::string& made : tree.MakeDirectory(path)) {
            actions.push_back(Action(Kind::CreateDirectory, made));
        }
    } else if (operation == "delete") {
        for (const std::string& name : tree.List(path, "*")) {
            Delete(JoinPath(path, name));
        }
        KPlannedAction action = Action(Kind::DeleteDirectory, path);
        action.lacks = tree.Find(path).kind != KEntryKind::Directory || !tree.IsEmpty(path);
        if (!action.lacks) {
            tree.Remove(path);
        }
        actions.push_back(std::move(action));
    }
}

void Planner::PlanProfile(const Fields& fields) {
    const std::size_t count = fields.size();
    if (count != 2 && count != 4 && count != 5) {
        return;
    }
    const std::string operation = Lowered(fields[0]);
    const std::string& path = fields[1];
    if (operation == "create") {
        KPlannedAction action = Action(Kind::CreateProfile, path);
        action.replaces = tree.Exists(path);
        action.obstacle = WhyNoPlace(path);
        KPlannedEntry entry;
        entry.kind = KEntryKind::File;
        entry.mode = 0644;
        tree.Put(path, std::move(entry));
        actions.push_back(std::move(action));
    } else if (operation == "put") {
        Put(path,
            count == 5 ? KPlannedTree::Option{fields[2], fields[3], fields[4]}
                       : KPlannedTree::Option{});
    } else if (operation == "remove_file" && count == 4) {
        RemoveListed(fields);
    }
}

void Planner::Put(const std::string& profile, const KPlannedTree::Option& option) {
    KPlannedAction action = Action(
        Kind::PutOption, profile, "[" + option.section + "] " + option.key + "=" + option.value
    );
    action.replaces = tree.Exists(profile);
    action.obstacle = WhyNoPlace(profile);
    if (!action.replaces) {
        KPlannedEntry entry;
        entry.kind = KEntryKind::File;
        entry.mode = 0644;
        tree.Put(profile, std::move(entry));
    }
    tree.PutOption(profile, option);
    actions.push_back(std::move(action));
}

void Planner::RemoveListed(const Fields& fields) {
    const std::string& profile = fields[1];
    const std::string& section = fields[2];
    for (const KPlannedTree::Option& option : tree.GetOptions(profile, section)) {
        if (option.value.find(fields[3]) != std::string::npos) {
            Delete(option.value);
            actions.push_back(Action(
                Kind::RemoveOption, profile, "[" + section + "] " + option.key + "=" + option.value
            ));
            tree.RemoveOption(profile, option);
        }
    }
}

void Planner::PlanProcess(const Fields& fields) {
    if (fields.size() != 2) {
        return;
    }
    if (fields[0] == "start") {
        actions.push_back(Action(Kind::StartCommand, fields[1]));
    } else if (fields[0] == "stop") {
        actions.push_back(Action(Kind::StopProgram, fields[1]));
    }
}

void Planner::PlanService(const Fields& fields) {
    static constexpr std::array words = std::to_array<std::pair<const char*, Kind>>({
        {"install", Kind::InstallService},
        {"remove", Kind::RemoveService},
        {"start", Kind::StartService},
        {"stop", Kind::StopService},
    });
    if (fields.size() != 2 && fields.size() != 5) {
        return;
    }
    const std::string operation = Lowered(fields[0]);
    for (const auto& [word, kind] : words) {
        if (operation == word) {
            actions.push_back(Action(kind, fields[1], fields.size() == 5 ? fields[3] : ""));
        }
    }
}

} // namespace

KPlan::KPlan(
    const KScript& script,
    const std::string& section,
    const MacroExpander& expand,
    KPlannedTree& tree
) {
    KScript::Unfolded unfolded = script.Unfold(section, expand);
    cycles = std::move(unfolded.cycles);
    Planner planner(tree);
    for (KScriptRule& rule : unfolded.rules) {
        Actions actions = planner.Plan(rule);
        rules.push_back({std::move(rule), std::move(actions)});
    }
}

std::vector<std::string> KPlan::FindFilesThatGo() const {
    std::vector<std::string> paths;
    for (const KPlannedRule& rule : rules) {
        for (const KPlannedAction& action : rule.actions) {
            const bool goes = action.kind == Kind::DeleteFile ||
                              (action.kind == Kind::CopyFile && action.replaces);
            if (goes && !action.lacks) {
                paths.push_back(NormalPath(action.path));
            }
        }
    }
    return paths;
}

} // namespace KSETUP
