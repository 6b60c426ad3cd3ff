// SPDX-License-Identifier: MIT
#include <setup/check/Checks.h>
#include <setup/files/PathText.h>
#include <setup/plan/SystemPlaces.h>
#include <setup/script/KSetupRuleLine.h>
#include <setup/state/KManifest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <string_view>

namespace KSETUP::Checks {

namespace {

using KINS::KRuleOperation;
using KINS::KRuleType;
using Kind = KPlannedAction::Kind;

constexpr std::size_t mostNamed = 3; // of what one rule leaves

/// The directories that rules delete and packages of this machine have.
std::map<std::string, std::string> FindThoseOfPackages(const KCheckContext& context) {
    std::vector<std::string> directories;
    for (const KScriptRule& rule : context.GetLines()) {
        if (rule.Is(KRuleType::Directory, KRuleOperation::Delete)) {
            std::string path = KPlannedTree::Normal(rule.fields[1]);
            if (LookAtEntry(path)) {
                directories.push_back(std::move(path));
            }
        }
    }
    return FindPackageManagers(directories);
}

/// A directory in /etc that the script makes itself is the product's, unless many share it.
bool IsOfOthers(const KCheckContext& context, const std::string& path) {
    const bool isOwn = ParentPath(path) == "/etc" && context.GetAfterInstall().HasChanged(path) &&
                       !IsSharedNameInEtc(std::string(NameOfPath(path)));
    return !isOwn && context.IsOfTheSystem(path);
}

/// What the actions of a kind are about: paths, services, commands.
std::set<std::string> PathsOf(const KPlan& plan, Kind kind) {
    std::set<std::string> names;
    for (const KPlannedRule& planned : plan.GetRules()) {
        for (const KPlannedAction& action : planned.actions) {
            if (action.kind == kind) {
                names.insert(*action.path);
            }
        }
    }
    return names;
}

/// The services that are the product's.
std::set<std::string> OwnServices(const KCheckContext& context) {
    std::set<std::string> names = PathsOf(context.GetInstall(), Kind::InstallService);
    names.insert(context.Expand("$serviceName$"));
    return names;
}

/// A service's unit file, or the directory of its drop-ins, or something in that.
bool IsUnitOf(const std::set<std::string>& services, const std::string& path) {
    constexpr std::string_view units = "/etc/systemd/system/";
    constexpr std::string_view dropIns = ".service.d";
    if (!path.starts_with(units)) {
        return false;
    }
    const std::string name = path.substr(units.size(), path.find('/', units.size()) - units.size());
    const bool isBelow = units.size() + name.size() < path.size();
    const std::string_view ending = isBelow || name.ends_with(".d") ? dropIns : ".service";
    if (!name.ends_with(ending)) {
        return false;
    }
    return services.contains(name.substr(0, name.size() - ending.size()));
}

bool IsInstalled(const KCheckContext& context, const std::string& path) {
    return context.GetAfterInstall().IsMade(path);
}

/// The directory that a deletion reaches into where it is one of the system's; else empty.
std::string SystemDirectoryOf(
    const KCheckContext& context,
    const std::set<std::string>& services,
    const std::map<std::string, std::string>& ofPackages,
    const KScriptRule& rule
) {
    const std::vector<std::string>& fields = rule.fields;
    if (rule.Is(KRuleType::Directory, KRuleOperation::Delete)) {
        const std::string path = KPlannedTree::Normal(fields[1]);
        const bool isOfOthers = IsOfOthers(context, path) || ofPackages.contains(path);
        return isOfOthers && !IsUnitOf(services, path) ? path : "";
    }
    const bool isOwn = SetupOperationOf(rule) == KSetupOperation::DeleteEntry;
    if (!isOwn && !rule.Is(KRuleType::File, KRuleOperation::Delete)) {
        return "";
    }
    const std::string path =
        KPlannedTree::Normal(isOwn ? fields[1] : JoinPath(fields[2], fields[1]));
    const std::string directory = std::filesystem::path(path).parent_path().string();
    return context.IsOfTheSystem(directory) && !IsInstalled(context, path) &&
                   !IsUnitOf(services, path)
               ? directory
               : "";
}

constexpr std::string_view separators = " \t\"';";
constexpr std::string_view allBelow = "/*"; // of a directory, behind its path

/// Whether a word of a command is the path, or all that is in it.
bool Names(const std::string& command, const std::string& path) {
    const auto isApart = [&](std::size_t at) {
        return at >= command.size() || separators.find(command[at]) != std::string_view::npos;
    };
    for (std::size_t at = command.find(path); at != std::string::npos;
         at = command.find(path, at + 1)) {
        const std::size_t end = command.find_first_not_of(allBelow, at + path.size());
        if ((at == 0 || isApart(at - 1)) && isApart(end)) {
            return true;
        }
    }
    return false;
}

/// What the removal does.
class Removal {
  public:
    explicit Removal(const KPlan& plan)
        : services(PathsOf(plan, Kind::RemoveService)),
          commands(PathsOf(plan, Kind::StartCommand)) {
        commands.merge(PathsOf(plan, Kind::RunCommand));
        for (const std::string& command : commands) {
            AddWords(command);
        }
        for (const KPlannedRule& planned : plan.GetRules()) {
            if (!planned.actions.empty() && planned.actions.back().kind == Kind::DeleteDirectory) {
                directories.insert(KPlannedTree::Normal(*planned.actions.back().path));
            }
        }
    }

    bool RemovesService(const std::string& name) const { return services.contains(name); }
    bool HasCommands() const { return !commands.empty(); }
    /// Whether a rule is to delete the directory as its last.
    bool DeletesDirectory(const std::string& path) const { return directories.contains(path); }
    bool Names(const std::string& path) const {
        const bool isWord = path.find_first_of(separators) == std::string::npos &&
                            allBelow.find(path.back()) == std::string_view::npos;
        return isWord ? words.contains(path)
                      : std::any_of(commands.begin(), commands.end(), [&](const auto& command) {
                            return Checks::Names(command, path);
                        });
    }

  private:
    void AddWords(const std::string& command) {
        for (std::size_t at = 0; at < command.size();) {
            const std::size_t end = std::min(command.find_first_of(separators, at), command.size());
            const std::string_view word = std::string_view(command).substr(at, end - at);
            words.emplace(word.substr(0, word.find_last_not_of(allBelow) + 1));
            at = end + 1;
        }
    }

    std::set<std::string> services;
    std::set<std::string> commands;
    std::set<std::string> words; // of commands, as Names takes them apart
    std::set<std::string> directories;
};

/// Whether one of the commands takes care of a path, or of a directory that it is in.
bool IsNamedBy(const KCheckContext& context, const Removal& removal, const std::string& path) {
    if (!removal.HasCommands()) {
        return false;
    }
    for (std::filesystem::path at(path);
         at.has_relative_path() && !context.IsOfTheSystem(at.string());
         at = at.parent_path()) {
        if (removal.Names(at.string())) {
            return true;
        }
    }
    return false;
}

/// Directories of the system, and those that the product shares with others by lying below them.
bool IsShared(const KCheckContext& context, const std::string& path) {
    const std::string product = KPlannedTree::Normal(context.GetProductPath());
    return context.IsOfTheSystem(path) || product.starts_with(path + "/");
}

/// Whether the removal would delete a directory but for what is still in it, which is told by
/// itself. One that is empty in the end was deleted too early.
bool IsHeldByContents(
    const KCheckContext& context, const Removal& removal, const std::string& path
) {
    return removal.DeletesDirectory(path) && !context.GetAfterRemove().IsEmpty(path);
}

bool IsLeft(const KCheckContext& context, const Removal& removal, const std::string& path) {
    const KPlannedEntry& entry = context.GetAfterRemove().Find(path);
    const bool isDirectory = entry.kind == KEntryKind::Directory;
    return IsInstalled(context, path) && entry.kind != KEntryKind::Nothing &&
           !path.starts_with(context.GetKitDirectory() + "/") &&
           !(isDirectory && (IsShared(context, path) || IsHeldByContents(context, removal, path))
           ) &&
           !IsNamedBy(context, removal, path);
}

bool Makes(Kind kind) {
    return kind == Kind::CreateDirectory || kind == Kind::CopyFile || kind == Kind::MakeLink ||
           kind == Kind::CreateProfile || kind == Kind::PutOption || kind == Kind::CreateUser;
}

struct Left {
    const KScriptLine* line;
    std::vector<KText> names;
};

/// What stays, by the rule that made it first.
std::vector<Left> FindLeft(const KCheckContext& context) {
    const Removal removal(context.GetRemove());
    std::set<std::string> told;
    std::vector<Left> all;
    for (const KPlannedRule& planned : context.GetInstall().GetRules()) {
        Left left{&planned.rule.line, {}};
        for (const KPlannedAction& action : planned.actions) {
            const std::string path = KPlannedTree::Normal(*action.path);
            const bool isService = action.kind == Kind::InstallService;
            const bool stays = isService ? !removal.RemovesService(*action.path)
                                         : Makes(action.kind) && IsLeft(context, removal, path);
            if (!stays) {
                continue;
            }
            KText name = isService ? Text("service %s", *action.path) : KText("\"" + path + "\"");
            if (told.insert(name.English()).second) {
                left.names.push_back(std::move(name));
            }
        }
        if (!left.names.empty()) {
            all.push_back(std::move(left));
        }
    }
    return all;
}

KText FirstOf(const std::vector<KText>& names) {
    KText list;
    for (std::size_t index = 0; index < std::min(names.size(), mostNamed); ++index) {
        list += (index == 0 ? "" : ", ") + names[index];
    }
    return names.size() > mostNamed ? Text("%s and %s more", list, names.size() - mostNamed) : list;
}

} // namespace

Findings SystemDeletions(const KCheckContext& context) {
    const std::set<std::string> services = OwnServices(context);
    const auto ofPackages = FindThoseOfPackages(context);
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        const std::string directory = SystemDirectoryOf(context, services, ofPackages, rule);
        if (!directory.empty()) {
            found.push_back(context.AtField(
                rule.line,
                rule.type == KRuleType::File ? 2 : 1,
                Text("this deletes in \"%s\", which belongs to the system", directory),
                Text("delete only what the script installs, each file by its name")
            ));
        }
    }
    return found;
}

Findings LeftBehind(const KCheckContext& context) {
    Findings found;
    for (const Left& left : FindLeft(context)) {
        found.push_back(context.AtValue(
            *left.line,
            Text("section [remove] does not remove %s, made here", FirstOf(left.names)),
            Text("add a rule that does")
        ));
    }
    return found;
}

} // namespace KSETUP::Checks
