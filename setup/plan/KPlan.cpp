// SPDX-License-Identifier: MIT
#include <setup/plan/KPlan.h>
#include <sup++/KUtil.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <map>
#include <utility>

#include <sys/stat.h>
#include <sys/statvfs.h>

namespace KSETUP {

namespace {

using Kind = KPlannedAction::Kind;
using Actions = std::vector<KPlannedAction>;
using Fields = std::vector<std::string>;

std::string Lower(const std::string& text) {
    return KSUP::KUtil::Lowerify(text).c_str();
}

std::string Join(const std::string& directory, const std::string& name) {
    return std::string(KSUP::KUtil::AppendPathSep(directory, "/").c_str()) + name;
}

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
            Copy(Join(directory, one), Join(target, one));
        }
    } else if (operation == "copy") {
        Copy(Join(directory, name), Join(target, targetName));
    } else if (operation == "delete" && IsPattern(name)) {
        for (const std::string& one : tree.List(directory, name)) {
            Delete(Join(directory, one));
        }
    } else if (operation == "delete") {
        Delete(Join(directory, name));
    } else if (operation == "symlink") {
        Link(Join(directory, name), Join(target, targetName));
    }
}

void Planner::Copy(const std::string& source, const std::string& target) {
    KPlannedAction action = Action(Kind::CopyFile, target, source);
    KPlannedEntry found = tree.Find(source);
    std::filesystem::path at(source);
    for (int links = 0; found.kind == KEntryKind::Link && links < 40; ++links) {
        at = at.parent_path() / found.target; // relative to where that very link stands
        found = tree.Find(at.string());
    }
    action.bytes = found.bytes;
    action.mode = found.mode;
    action.lacks = found.kind != KEntryKind::File;
    action.replaces = tree.Exists(target);
    if (!action.lacks) {
        tree.Put(target, found);
    }
    actions.push_back(std::move(action));
}

void Planner::Delete(const std::string& path) {
    KPlannedAction action = Action(Kind::DeleteFile, path);
    const KPlannedEntry found = tree.Find(path);
    action.bytes = found.bytes;
    action.lacks = found.kind == KEntryKind::Nothing || found.kind == KEntryKind::Directory;
    if (!action.lacks) {
        tree.Remove(path);
    }
    actions.push_back(std::move(action));
}

void Planner::Link(const std::string& target, const std::string& path) {
    KPlannedAction action = Action(Kind::MakeLink, path, target);
    action.replaces = tree.Exists(path);
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
    const std::string operation = Lower(fields[0]);
    const std::string& path = fields[1];
    if (operation == "create") {
        for (const std::string& made : tree.MakeDirectory(path)) {
            actions.push_back(Action(Kind::CreateDirectory, made));
        }
    } else if (operation == "delete") {
        for (const std::string& name : tree.List(path, "*")) {
            Delete(Join(path, name));
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
    const std::string operation = Lower(fields[0]);
    const std::string& path = fields[1];
    if (operation == "create") {
        KPlannedAction action = Action(Kind::CreateProfile, path);
        action.replaces = tree.Exists(path);
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
    const std::string operation = Lower(fields[0]);
    for (const auto& [word, kind] : words) {
        if (operation == word) {
            actions.push_back(Action(kind, fields[1], fields.size() == 5 ? fields[3] : ""));
        }
    }
}

/// The nearest directory on the way up that is there.
std::string Existing(const std::string& path) {
    std::filesystem::path at(KPlannedTree::Normal(path));
    std::error_code unknown; // as good as missing
    while (at.has_relative_path() && !std::filesystem::exists(at, unknown)) {
        at = at.parent_path();
    }
    return at.empty() ? "/" : at.string();
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

std::vector<KPlan::Space> KPlan::GetSpace() const {
    std::map<dev_t, Space> spaces;
    for (const KPlannedRule& rule : rules) {
        for (const KPlannedAction& action : rule.actions) {
            const bool makes = action.kind == Kind::CopyFile || action.kind == Kind::MakeLink ||
                               action.kind == Kind::CreateDirectory ||
                               (action.kind == Kind::PutOption && !action.replaces) ||
                               action.kind == Kind::CreateProfile;
            if (!makes || action.lacks) {
                continue;
            }
            const std::string directory = Existing(action.path);
            struct stat status {};
            struct statvfs system {};
            if (::stat(directory.c_str(), &status) != 0 ||
                ::statvfs(directory.c_str(), &system) != 0) {
                continue; // the run's own first step there will tell
            }
            Space& space = spaces[status.st_dev];
            if (space.directory.empty()) {
                space.directory = directory;
                space.available = std::uint64_t{system.f_bfree} * system.f_frsize;
                space.filesAvailable = system.f_ffree;
                space.filesAreUnlimited = system.f_files == 0;
            }
            // What a file takes is whole blocks.
            const std::uint64_t block = system.f_frsize != 0 ? system.f_frsize : 1;
            space.needed += (action.bytes + block - 1) / block * block;
            space.filesNeeded += action.replaces ? 0 : 1;
        }
    }
    std::vector<Space> result;
    for (auto& [device, space] : spaces) {
        result.push_back(std::move(space));
    }
    return result;
}

const char* ActionWord(KPlannedAction::Kind kind) noexcept {
    switch (kind) {
    case Kind::CreateDirectory:
        return "create directory";
    case Kind::DeleteDirectory:
        return "delete directory";
    case Kind::CopyFile:
        return "copy file";
    case Kind::DeleteFile:
        return "delete file";
    case Kind::MakeLink:
        return "make link";
    case Kind::CreateProfile:
        return "create profile";
    case Kind::PutOption:
        return "put option";
    case Kind::RemoveOption:
        return "remove option";
    case Kind::StartCommand:
        return "start command";
    case Kind::StopProgram:
        return "stop program";
    case Kind::InstallService:
        return "install service";
    case Kind::RemoveService:
        return "remove service";
    case Kind::StartService:
        return "start service";
    case Kind::StopService:
        return "stop service";
    }
    return "";
}

} // namespace KSETUP
