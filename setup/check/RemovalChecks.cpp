// SPDX-License-Identifier: MIT
#include <setup/check/Checks.h>
#include <setup/files/PathText.h>
#include <setup/plan/ProductPath.h>
#include <setup/plan/SystemPlaces.h>
#include <setup/script/KSetupRuleLine.h>
#include <setup/state/KManifest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>

namespace KSETUP::Checks {

namespace {

using KINS::KRuleOperation;
using KINS::KRuleType;
using Kind = KPlannedAction::Kind;

constexpr std::size_t mostNamed = 3; // of what one rule leaves

bool IsOfTheSystem(const KCheckContext& context, std::string path) {
    // Commas and the like are another reason not to be a product path, and none here.
    std::replace_if(
        path.begin(),
        path.end(),
        [](char byte) {
            return byte == ',' || byte == '$' || static_cast<signed char>(byte) < ' ';
        },
        '_'
    );
    return path.starts_with('/') &&
           !WhyNotAProductPath(path, context.Expand("$serviceName$")).empty();
}

/// A directory in /etc that the script makes itself is the product's, unless many share it or a
/// package of this machine has it too.
bool IsOfOthers(const KCheckContext& context, const std::string& path) {
    const bool isOwn = ParentPath(path) == "/etc" &&
                       context.GetAfterInstall().GetChanges().contains(path) &&
                       !IsSharedNameInEtc(std::string(NameOfPath(path)));
    return (!isOwn && IsOfTheSystem(context, path)) ||
           (LookAtEntry(path) && !FindPackageManagerOf(path).empty());
}

/// What the actions of a kind are about: paths, services, commands.
std::set<std::string> PathsOf(const KPlan& plan, Kind kind) {
    std::set<std::string> names;
    for (const KPlannedRule& planned : plan.GetRules()) {
        for (const KPlannedAction& action : planned.actions) {
            if (action.kind == kind) {
                names.insert(action.path);
            }
        }
    }
    return names;
}

/// A service's unit file, or the directory of its drop-ins.
bool IsOwnUnit(const KCheckContext& context, const std::string& path) {
    std::set<std::string> names = PathsOf(context.GetInstall(), Kind::InstallService);
    names.insert(context.Expand("$serviceName$"));
    return std::any_of(names.begin(), names.end(), [&](const std::string& name) {
        const std::string unit = "/etc/systemd/system/" + name + ".service";
        return path == unit || path == unit + ".d" || path.starts_with(unit + ".d/");
    });
}

bool IsInstalled(const KCheckContext& context, const std::string& path) {
    const auto& changes = context.GetAfterInstall().GetChanges();
    const auto made = changes.find(path);
    return made != changes.end() && made->second.kind != KEntryKind::Nothing;
}

/// The directory that a deletion reaches into where it is one of the system's; else empty.
std::string SystemDirectoryOf(const KCheckContext& context, const KScriptRule& rule) {
    const std::vector<std::string>& fields = rule.fields;
    if (rule.Is(KRuleType::Directory, KRuleOperation::Delete)) {
        const std::string path = KPlannedTree::Normal(fields[1]);
        return IsOfOthers(context, path) && !IsOwnUnit(context, path) ? path : "";
    }
    const bool isOwn = SetupOperationOf(rule) == KSetupOperation::DeleteEntry;
    if (!isOwn && !rule.Is(KRuleType::File, KRuleOperation::Delete)) {
        return "";
    }
    const std::string path =
        KPlannedTree::Normal(isOwn ? fields[1] : JoinPath(fields[2], fields[1]));
    const std::string directory = std::filesystem::path(path).parent_path().string();
    return IsOfTheSystem(context, directory) && !IsInstalled(context, path) &&
                   !IsOwnUnit(context, path)
               ? directory
               : "";
}

bool IsSeparator(char byte) {
    return byte == ' ' || byte == '\t' || byte == '"' || byte == '\'' || byte == ';';
}

/// Whether a word of a command is the path, or all that is in it.
bool Names(const std::string& command, const std::string& path) {
    for (std::size_t at = command.find(path); at != std::string::npos;
         at = command.find(path, at + 1)) {
        std::size_t end = at + path.size();
        while (end < command.size() && (command[end] == '/' || command[end] == '*')) {
            ++end;
        }
        if ((at == 0 || IsSeparator(command[at - 1])) &&
            (end == command.size() || IsSeparator(command[end]))) {
            return true;
        }
    }
    return false;
}

/// Whether one of the commands takes care of a path, or of a directory that it is in.
bool IsNamedBy(
    const KCheckContext& context, const std::set<std::string>& commands, const std::string& path
) {
    if (commands.empty()) {
        return false;
    }
    for (std::filesystem::path at(path);
         at.has_relative_path() && !IsOfTheSystem(context, at.string());
         at = at.parent_path()) {
        for (const std::string& command : commands) {
            if (Names(command, at.string())) {
                return true;
            }
        }
    }
    return false;
}

/// Directories of the system, and those that the product shares with others by lying below them.
bool IsShared(const KCheckContext& context, const std::string& path) {
    const std::string product = KPlannedTree::Normal(context.GetProductPath());
    return IsOfTheSystem(context, path) || product.starts_with(path + "/");
}

/// Whether the removal would delete a directory but for what is still in it, which is told by
/// itself. One that is empty in the end was deleted too early.
bool IsHeldByContents(const KCheckContext& context, const std::string& path) {
    const auto& rules = context.GetRemove().GetRules();
    return !context.GetAfterRemove().IsEmpty(path) &&
           std::any_of(rules.begin(), rules.end(), [&](const KPlannedRule& planned) {
               return !planned.actions.empty() &&
                      planned.actions.back().kind == Kind::DeleteDirectory &&
                      KPlannedTree::Normal(planned.actions.back().path) == path;
           });
}

bool IsLeft(
    const KCheckContext& context, const std::set<std::string>& commands, const std::string& path
) {
    const KPlannedEntry entry = context.GetAfterRemove().Find(path);
    const bool isDirectory = entry.kind == KEntryKind::Directory;
    return IsInstalled(context, path) && entry.kind != KEntryKind::Nothing &&
           !path.starts_with(context.GetKitDirectory() + "/") &&
           !(isDirectory && (IsShared(context, path) || IsHeldByContents(context, path))) &&
           !IsNamedBy(context, commands, path);
}

bool Makes(Kind kind) {
    return kind == Kind::CreateDirectory || kind == Kind::CopyFile || kind == Kind::MakeLink ||
           kind == Kind::CreateProfile || kind == Kind::PutOption || kind == Kind::CreateUser;
}

struct Left {
    const KScriptLine* line;
    std::vector<std::string> names;
};

/// What stays, by the rule that made it first.
std::vector<Left> FindLeft(const KCheckContext& context) {
    const std::set<std::string> removed = PathsOf(context.GetRemove(), Kind::RemoveService);
    std::set<std::string> commands = PathsOf(context.GetRemove(), Kind::StartCommand);
    commands.merge(PathsOf(context.GetRemove(), Kind::RunCommand));
    std::set<std::string> told;
    std::vector<Left> all;
    for (const KPlannedRule& planned : context.GetInstall().GetRules()) {
        Left left{&planned.rule.line, {}};
        for (const KPlannedAction& action : planned.actions) {
            const std::string path = KPlannedTree::Normal(action.path);
            const bool isService = action.kind == Kind::InstallService;
            const bool stays = isService ? !removed.contains(action.path)
                                         : Makes(action.kind) && IsLeft(context, commands, path);
            const std::string name = isService ? "service " + action.path : "\"" + path + "\"";
            if (stays && told.insert(name).second) {
                left.names.push_back(name);
            }
        }
        if (!left.names.empty()) {
            all.push_back(std::move(left));
        }
    }
    return all;
}

std::string ListOf(const std::vector<std::string>& names) {
    std::string list;
    for (std::size_t index = 0; index < std::min(names.size(), mostNamed); ++index) {
        list += (index == 0 ? "" : ", ") + names[index];
    }
    return names.size() > mostNamed
               ? list + " and " + std::to_string(names.size() - mostNamed) + " more"
               : list;
}

} // namespace

Findings SystemDeletions(const KCheckContext& context) {
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        const std::string directory = SystemDirectoryOf(context, rule);
        if (!directory.empty()) {
            found.push_back(context.AtField(
                rule.line,
                rule.type == KRuleType::File ? 2 : 1,
                "this deletes in \"" + directory + "\", which belongs to the system",
                "delete only what the script installs, each file by its name"
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
            "section [remove] does not remove " + ListOf(left.names) + ", made here",
            "add a rule that does"
        ));
    }
    return found;
}

} // namespace KSETUP::Checks
