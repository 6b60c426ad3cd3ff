// SPDX-License-Identifier: MIT
#include <setup/files/PathText.h>
#include <setup/plan/KPlan.h>
#include <setup/plan/KPlannedServices.h>
#include <setup/script/ScriptText.h>

#include <algorithm>
#include <climits>
#include <string_view>
#include <utility>

namespace KSETUP {

namespace {

using Kind = KPlannedAction::Kind;
using Actions = std::vector<KPlannedAction>;
using Fields = std::vector<std::string>;
using KINS::KRuleOperation;
using KINS::KRuleType;

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
    Planner(KPlannedTree& plannedTree, KServiceFate fate)
        : tree(plannedTree),
          services(plannedTree, fate) {}

    Actions Plan(const KScriptRule& rule);

  private:
    void PlanFile(KRuleOperation operation, const Fields& fields);
    void CopyMatches(const std::string& pattern, const std::string& target);
    void Copy(const std::string& source, const std::string& target);
    void Delete(const std::string& path);
    /// Of what a directory or a profile names: what cannot be deleted stays, without a word.
    void DeleteIfPossible(const std::string& path);
    void Link(const std::string& target, const std::string& path);
    void PlanDirectory(KRuleOperation operation, const std::string& path);
    /// Whether above the path something stands that was there before and is no directory.
    bool IsBlockedByDisk(const std::string& path) const;
    void PlanProfile(KRuleOperation operation, const Fields& fields);
    void Create(const std::string& profile);
    void Put(const std::string& profile, const KPlannedTree::Option& option);
    void
    RemoveListed(const std::string& profile, const std::string& section, const std::string& text);
    void PlanProcess(KRuleOperation operation, const std::string& command);
    void PlanService(KRuleOperation operation, const Fields& fields);
    /// Why nothing can be made at the path, nor deleted: the way to it. Empty when it can.
    std::string WhyNoPlace(const std::string& path, KPlannedTree::Last last) const;

    KPlannedTree& tree;
    KPlannedServices services;
    Actions actions;
};

std::string Words(const KPlannedPlace& place, const std::string& path) {
    const std::string directory = ParentPath(NormalPath(path));
    switch (place.problem) {
    case KPathProblem::None:
        return "";
    case KPathProblem::Missing:
        return "there is no directory " + directory;
    case KPathProblem::NoDirectory:
        return directory + " is no directory";
    case KPathProblem::Link:
        return "a symbolic link on the way is not followed: " + path;
    case KPathProblem::TooLong:
        return "a name or a path is too long: " + path;
    }
    return "";
}

bool NamesDirectory(const std::string& path) {
    return path.ends_with('/');
}

/// What the engine's profiles refuse to write, because it would not read back.
std::string WhyNotAnOption(const KPlannedTree::Option& option) {
    const std::string_view key = Trimmed(option.key);
    const auto isControl = [](char byte) {
        return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F;
    };
    const std::string all = option.section + option.key + option.value;
    if (std::any_of(all.begin(), all.end(), isControl)) {
        return "a profile holds no control characters, as tabs";
    }
    const bool looksOtherwise = key.starts_with("\xEF\xBB\xBF") || key.starts_with('[') ||
                                key.starts_with(';') || key.starts_with('#') ||
                                key.find('=') != std::string_view::npos;
    return looksOtherwise ? "a profile holds no key such as " + option.key : "";
}

Actions Planner::Plan(const KScriptRule& rule) {
    actions.clear();
    if (rule.operation == KRuleOperation::None) {
        return {}; // it does nothing, or there is no run at all
    }
    switch (rule.type) {
    case KRuleType::File:
        PlanFile(rule.operation, rule.fields);
        break;
    case KRuleType::Directory:
        PlanDirectory(rule.operation, rule.fields[1]);
        break;
    case KRuleType::Profile:
        PlanProfile(rule.operation, rule.fields);
        break;
    case KRuleType::Process:
        PlanProcess(rule.operation, rule.fields[1]);
        break;
    case KRuleType::Service:
        PlanService(rule.operation, rule.fields);
        break;
    case KRuleType::Section:
    case KRuleType::None:
        break;
    }
    return std::move(actions);
}

std::string Planner::WhyNoPlace(const std::string& path, KPlannedTree::Last last) const {
    return Words(tree.Resolve(path, last, KPlannedTree::Links::Trusted), path);
}

void Planner::PlanFile(KRuleOperation operation, const Fields& fields) {
    const std::string& name = fields[1];
    const std::string& directory = fields[2];
    const std::string target = fields.size() > 3 ? fields[3] : "";
    const std::string& targetName = fields.size() == 5 ? fields[4] : name;
    const std::string path = JoinPath(directory, name);
    if (operation == KRuleOperation::Copy && IsPattern(name)) {
        CopyMatches(path, target);
    } else if (operation == KRuleOperation::Copy) {
        Copy(path, JoinPath(target, targetName));
    } else if (operation == KRuleOperation::Delete && IsPattern(name)) {
        for (const std::string& one : tree.List(directory, name)) {
            Delete(JoinPath(directory, one));
        }
    } else if (operation == KRuleOperation::Delete) {
        Delete(path);
    } else if (operation == KRuleOperation::Symlink) {
        Link(path, JoinPath(target, targetName));
    }
}

void Planner::CopyMatches(const std::string& pattern, const std::string& target) {
    const std::string directory = pattern.substr(0, pattern.rfind('/') + 1);
    const KPlannedPlace place =
        tree.Resolve(directory, KPlannedTree::Last::Follow, KPlannedTree::Links::Any);
    if (place.problem == KPathProblem::Link || place.problem == KPathProblem::TooLong) {
        KPlannedAction action = Action(Kind::CopyFile, target, pattern);
        action.lacks = true;
        action.obstacle = Words(place, directory);
        actions.push_back(std::move(action));
        return;
    }
    for (const std::string& one : tree.List(directory, std::string(NameOfPath(pattern)))) {
        Copy(directory + one, JoinPath(target, one));
    }
}

void Planner::Copy(const std::string& source, const std::string& target) {
    KPlannedAction action = Action(Kind::CopyFile, target, source);
    const KPlannedEntry found = tree.FindTarget(source);
    action.bytes = found.bytes;
    action.mode = found.mode;
    action.lacks = found.kind != KEntryKind::File;
    action.replaces = tree.Exists(target);
    const KPlannedPlace place =
        tree.Resolve(target, KPlannedTree::Last::Follow, KPlannedTree::Links::Trusted);
    const KEntryKind former = tree.Find(place.path).kind;
    if (action.lacks) {
        action.obstacle = found.kind == KEntryKind::Nothing ? source + " is missing"
                                                            : source + " is no regular file";
    } else if (former == KEntryKind::Directory || NamesDirectory(target)) {
        action.obstacle = target + " is a directory";
    } else if (former == KEntryKind::Other) {
        action.obstacle = target + " is no regular file";
    } else {
        action.obstacle = Words(place, target);
    }
    action.lacksDirectory = place.problem == KPathProblem::Missing;
    // Also where its directory is missing: that is told once, not for all that follows.
    if (!action.lacks && former != KEntryKind::Directory) {
        tree.PutCopy(place.path, found, source);
    }
    actions.push_back(std::move(action));
}

void Planner::Delete(const std::string& path) {
    KPlannedAction action = Action(Kind::DeleteFile, path);
    const KPlannedPlace place =
        tree.Resolve(path, KPlannedTree::Last::Keep, KPlannedTree::Links::Trusted);
    const bool isPlace =
        place.problem == KPathProblem::None || place.problem == KPathProblem::Missing;
    const KPlannedEntry found = isPlace ? tree.Find(place.path) : KPlannedEntry();
    action.bytes = found.bytes;
    action.lacks = found.kind == KEntryKind::Nothing || found.kind == KEntryKind::Directory;
    if (found.kind == KEntryKind::Directory || NamesDirectory(path)) {
        action.lacks = true;
        action.obstacle = path + " is a directory";
    } else if (place.problem != KPathProblem::Missing) {
        action.obstacle = Words(place, path);
    }
    if (!action.lacks) {
        tree.Remove(place.path);
    }
    actions.push_back(std::move(action));
}

void Planner::DeleteIfPossible(const std::string& path) {
    Delete(path);
    actions.back().obstacle.clear();
}

void Planner::Link(const std::string& target, const std::string& path) {
    KPlannedAction action = Action(Kind::MakeLink, path, target);
    const KEntryKind former = tree.Find(path).kind;
    action.replaces = former != KEntryKind::Nothing;
    if (action.replaces && former != KEntryKind::Link) {
        action.obstacle = path + " is no link, and a link replaces nothing else";
    } else if (target.size() >= PATH_MAX) {
        action.obstacle = "a link cannot lead to so long a path: " + target;
    } else if (NamesDirectory(path)) {
        action.obstacle = path + " names a directory";
    } else {
        action.obstacle = WhyNoPlace(path, KPlannedTree::Last::Keep);
    }
    action.lacksDirectory =
        tree.Resolve(path, KPlannedTree::Last::Keep, KPlannedTree::Links::Trusted).problem ==
        KPathProblem::Missing;
    KPlannedEntry entry;
    entry.kind = KEntryKind::Link;
    entry.target = target;
    tree.Put(path, std::move(entry));
    actions.push_back(std::move(action));
}

void Planner::PlanDirectory(KRuleOperation operation, const std::string& path) {
    if (operation == KRuleOperation::Create) {
        for (const std::string& made : tree.MakeDirectory(path)) {
            actions.push_back(Action(Kind::CreateDirectory, made));
        }
        if (IsBlockedByDisk(path)) { // the run is refused for it, so it is told
            actions.push_back(Action(Kind::CreateDirectory, path));
        }
    } else if (operation == KRuleOperation::Delete) {
        for (const std::string& name : tree.List(path, "*")) {
            DeleteIfPossible(JoinPath(path, name));
        }
        KPlannedAction action = Action(Kind::DeleteDirectory, path);
        const KPlannedPlace place =
            tree.Resolve(path, KPlannedTree::Last::Keep, KPlannedTree::Links::Trusted);
        action.lacks = place.problem != KPathProblem::None ||
                       tree.Find(path).kind != KEntryKind::Directory || !tree.IsEmpty(path);
        if (!action.lacks) {
            tree.Remove(path);
        }
        actions.push_back(std::move(action));
    }
}

bool Planner::IsBlockedByDisk(const std::string& path) const {
    std::string at = ParentPath(NormalPath(path));
    while (!at.empty() && at != "/" && !tree.Exists(at)) {
        at = ParentPath(at);
    }
    const KEntryKind kind = tree.FindTarget(at).kind;
    return (kind == KEntryKind::File || kind == KEntryKind::Other) &&
           !tree.GetChanges().contains(at);
}

void Planner::PlanProfile(KRuleOperation operation, const Fields& fields) {
    const std::size_t count = fields.size();
    const std::string& path = fields[1];
    if (operation == KRuleOperation::Create) {
        Create(path);
    } else if (operation == KRuleOperation::Put) {
        Put(path,
            count == 5 ? KPlannedTree::Option{fields[2], fields[3], fields[4]}
                       : KPlannedTree::Option{});
    } else if (operation == KRuleOperation::RemoveFile) {
        RemoveListed(path, count == 4 ? fields[2] : "", count == 4 ? fields[3] : "");
    }
}

void Planner::Create(const std::string& profile) {
    KPlannedAction action = Action(Kind::CreateProfile, profile);
    action.replaces = tree.Exists(profile);
    const KPlannedPlace place =
        tree.Resolve(profile, KPlannedTree::Last::Follow, KPlannedTree::Links::Trusted);
    const KEntryKind former = tree.Find(place.path).kind;
    action.obstacle = former == KEntryKind::Directory ? profile + " is a directory"
                      : former == KEntryKind::Other   ? profile + " is no regular file"
                                                      : Words(place, profile);
    action.lacksDirectory = place.problem == KPathProblem::Missing;
    KPlannedEntry entry;
    entry.kind = KEntryKind::File;
    entry.mode = former == KEntryKind::File ? tree.Find(place.path).mode : 0644;
    tree.Put(place.path, std::move(entry));
    actions.push_back(std::move(action));
}

void Planner::Put(const std::string& profile, const KPlannedTree::Option& option) {
    KPlannedAction action = Action(
        Kind::PutOption, profile, "[" + option.section + "] " + option.key + "=" + option.value
    );
    const KPlannedPlace place =
        tree.Resolve(profile, KPlannedTree::Last::Follow, KPlannedTree::Links::Trusted);
    const KEntryKind former = tree.Find(place.path).kind;
    action.replaces = former != KEntryKind::Nothing;
    action.obstacle = former == KEntryKind::Directory ? profile + " is a directory"
                      : former == KEntryKind::Other   ? profile + " is no regular file"
                                                      : Words(place, profile);
    if (action.obstacle.empty()) {
        action.obstacle = WhyNotAnOption(option);
    }
    action.lacksDirectory = place.problem == KPathProblem::Missing;
    if (!action.replaces) {
        KPlannedEntry entry;
        entry.kind = KEntryKind::File;
        entry.mode = 0644;
        tree.Put(place.path, std::move(entry));
    }
    tree.PutOption(place.path, option);
    actions.push_back(std::move(action));
}

void Planner::RemoveListed(
    const std::string& profile, const std::string& section, const std::string& text
) {
    const KPlannedPlace place =
        tree.Resolve(profile, KPlannedTree::Last::Follow, KPlannedTree::Links::Any);
    const KEntryKind kind = tree.Find(place.path).kind;
    const std::string why = kind == KEntryKind::Directory ? profile + " is a directory"
                            : kind == KEntryKind::Other   ? profile + " is no regular file"
                            : place.problem != KPathProblem::Missing ? Words(place, profile)
                                                                     : "";
    if (!why.empty()) {
        actions.push_back(Action(Kind::RemoveOption, profile, "[" + section + "]"));
        actions.back().obstacle = why;
        return;
    }
    const std::vector<KPlannedTree::Option> all = tree.ReadOptions(profile, section);
    for (const KPlannedTree::Option& option : all) {
        if (option.value.find(text) != std::string::npos) {
            DeleteIfPossible(option.value);
            KPlannedAction action = Action(
                Kind::RemoveOption, profile, "[" + section + "] " + option.key + "=" + option.value
            );
            action.obstacle = WhyNoPlace(profile, KPlannedTree::Last::Follow);
            actions.push_back(std::move(action));
            tree.RemoveOption(profile, option);
        }
    }
}

void Planner::PlanProcess(KRuleOperation operation, const std::string& command) {
    if (operation == KRuleOperation::Start) {
        services.NoteCommand();
        actions.push_back(Action(Kind::StartCommand, command));
    } else if (operation == KRuleOperation::Stop) {
        actions.push_back(Action(Kind::StopProgram, command));
    }
}

void Planner::PlanService(KRuleOperation operation, const Fields& fields) {
    const std::string& name = fields[1];
    const bool isWhole = fields.size() == 5;
    if (operation == KRuleOperation::Install) {
        actions.push_back(Action(Kind::InstallService, name, isWhole ? fields[3] : ""));
        actions.back().obstacle = isWhole ? services.Install(name, fields[2], fields[3], fields[4])
                                          : services.Install(name, "", "", "");
    } else if (operation == KRuleOperation::Start) {
        actions.push_back(Action(Kind::StartService, name));
        actions.back().obstacle = services.Start(name);
    } else if (operation == KRuleOperation::Stop) {
        actions.push_back(Action(Kind::StopService, name));
        actions.back().obstacle = services.Stop(name);
    } else if (operation == KRuleOperation::Remove) {
        actions.push_back(Action(Kind::RemoveService, name));
        services.Remove(name);
    }
}

} // namespace

KPlan::KPlan(
    const KScript& script,
    const std::string& section,
    const MacroExpander& expand,
    KPlannedTree& tree,
    KServiceFate fate
) {
    KScript::Unfolded unfolded = script.Unfold(section, expand);
    cycles = std::move(unfolded.cycles);
    Planner planner(tree, fate);
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
