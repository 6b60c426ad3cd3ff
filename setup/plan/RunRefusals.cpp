// SPDX-License-Identifier: MIT
#include <ins/Names.h>
#include <setup/ExitCode.h>
#include <setup/files/PathText.h>
#include <setup/plan/RunRefusals.h>
#include <setup/plan/SystemPlaces.h>
#include <setup/plan/UnitFiles.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <system_error>
#include <unordered_map>

#include <sys/files/FileStatus.h>

namespace KSETUP {

namespace {

constexpr std::size_t conflictsShown = 5;
constexpr std::size_t contentShown = 5;

/// Whether an entry goes or is replaced, rather than only comes. Profiles are written beside and
/// renamed, new ones too.
bool TakesAway(const KPlannedAction& action) noexcept {
    using Kind = KPlannedAction::Kind;
    return action.replaces || action.kind == Kind::DeleteFile ||
           action.kind == Kind::DeleteDirectory || action.kind == Kind::CreateProfile ||
           action.kind == Kind::PutOption || action.kind == Kind::RemoveOption;
}

/// The directories in which entries come or go, each once, as far up as they are there.
class ChangedDirectories {
  public:
    explicit ChangedDirectories(const KPlan& plan) {
        plan.ForEachAction([this](const KPlannedAction& action) {
            if (action.IsOfEntry() && !action.lacks) {
                Add(ParentPath(NormalPath(*action.path)), TakesAway(action));
            }
        });
        for (const std::string& service : plan.GetChangedUnits()) {
            for (const std::string& path : UnitPaths(service)) {
                Add(ParentPath(path), true);
            }
        }
    }

    /// And whether anything goes there.
    const std::map<std::string, bool>& Get() const noexcept { return existing; }

  private:
    void Add(const std::string& parent, bool takesAway) {
        if (parent == last && (lastTakesAway || !takesAway)) { // one rule copies many files to one
            return;
        }
        last = parent;
        lastTakesAway = takesAway;
        std::string at = parent;
        std::error_code unknown; // as good as missing
        while (!at.empty()) {
            const auto [known, isNew] = seen.try_emplace(at, takesAway);
            if (!isNew && (known->second || !takesAway)) {
                return;
            }
            known->second = takesAway;
            if (at == "/" || std::filesystem::exists(at, unknown)) {
                existing[at] = existing[at] || takesAway;
                return;
            }
            at = ParentPath(at);
        }
    }

    std::map<std::string, bool> existing;
    std::unordered_map<std::string, bool> seen;
    std::string last;
    bool lastTakesAway = false;
};

/// The directories that rules delete with all that is in them, or much of it.
std::set<std::string> EmptiedDirectories(const KPlan& plan) {
    using KINS::KRuleOperation;
    using KINS::KRuleType;
    std::set<std::string> directories;
    for (const KPlannedRule& planned : plan.GetRules()) {
        const KScriptRule& rule = planned.rule;
        if (rule.Is(KRuleType::Directory, KRuleOperation::Delete)) {
            directories.insert(NormalPath(rule.fields[1]));
        } else if (rule.Is(KRuleType::File, KRuleOperation::Delete) && IsPattern(rule.fields[1])) {
            directories.insert(NormalPath(rule.fields[2]));
        }
    }
    return directories;
}

/// Why nothing can be made, or taken away, in a directory that is there; empty when it can.
KText WhyNotADirectoryToChange(const std::string& directory, bool takesAway) {
    using KSYS::ProtectingAttribute;
    KSYS::FileSystemStatus system;
    KSYS::EntryStatus status;
    if (KSYS::ReadEntryStatus(directory, KSYS::LastLink::Follow, status) != 0) {
        return {}; // the run's own first step there will tell
    }
    if (!S_ISDIR(status.mode)) {
        return Text("it is no directory. Take it away, or choose another product path");
    }
    if (status.attribute == ProtectingAttribute::Immutable) {
        return Text("it is immutable; chattr -i %s allows changes", directory);
    }
    if (status.attribute == ProtectingAttribute::AppendOnly && takesAway) {
        return Text("it is append-only; chattr -a %s allows changes", directory);
    }
    if (KSYS::ReadFileSystem(directory.c_str(), system) == 0 && system.isReadOnly) {
        return Text("its file system is mounted read-only; mount -o remount,rw allows changes");
    }
    return {};
}

} // namespace

KText WhyNotWritable(const KPlan& plan) {
    const ChangedDirectories changed(plan);
    for (const auto& [directory, takesAway] : changed.Get()) {
        if (const KText why = WhyNotADirectoryToChange(directory, takesAway); !why.empty()) {
            return Text("%s cannot be written to: %s", directory, why);
        }
    }
    if (!plan.GetProtected().empty()) {
        const KPlan::Protected& first = plan.GetProtected().front();
        const bool isImmutable = first.attribute == KSYS::ProtectingAttribute::Immutable;
        return Text(
            "%s cannot be changed or deleted: it is %s%s allows it",
            first.path,
            (isImmutable ? Text("immutable; chattr -i ") : Text("append-only; chattr -a ")),
            first.path
        );
    }
    return {};
}

int ExitCodeOf(const KPlannedAction& obstacle) noexcept {
    using Kind = KPlannedAction::Kind;
    const bool isOfService =
        obstacle.kind == Kind::InstallService || obstacle.kind == Kind::RemoveService ||
        obstacle.kind == Kind::StartService || obstacle.kind == Kind::StopService;
    return isOfService ? ExitCode::noService : ExitCode::ruleFailed;
}

KChangePolicy::Options OptionsOf(const KSetupArguments& arguments) noexcept {
    KChangePolicy::Options options;
    options.purges = arguments.purge;
    options.allowsConflicts = arguments.allowConflicts;
    return options;
}

KText WhySystemPlace(
    const KPlan& plan,
    const KChangePolicy& policy,
    const std::string& productPath,
    const std::string& service
) {
    const KOwnership& ownership = policy.GetOwnership();
    if (IsSharedNameInEtc(service)) {
        return Text(
            "/etc/%s: many programs share this directory, so no service can be called %s",
            service,
            service
        );
    }
    const auto isMissing = [](const std::string& path) {
        unsigned why = 0;
        return !LookAtEntry(path, &why) && CountsAsMissing(why);
    };
    std::vector<std::string> own; // that is there, and of nobody known
    if (ownership.GetKnown() == KOwnership::Known::Manifest) {
        own = {NormalPath(productPath), "/etc/" + service};
        std::erase_if(own, [&](const std::string& path) {
            return isMissing(path) || ownership.Find(path) != nullptr || ownership.WasBegun(path);
        });
    }
    std::set<std::string> emptied = EmptiedDirectories(plan);
    std::erase_if(emptied, [&](const std::string& path) {
        return isMissing(path) || ownership.Find(path) != nullptr;
    });
    std::vector<std::string> asked = own;
    asked.insert(asked.end(), emptied.begin(), emptied.end());
    const std::map<std::string, std::string> managers = FindPackageManagers(asked);
    for (const std::string& path : own) {
        if (const auto manager = managers.find(path); manager != managers.end()) {
            return Text(
                "%s: the directory belongs to a package of the system (%s)", path, manager->second
            );
        }
    }
    for (const std::string& path : emptied) {
        if (IsSystemDirectory(path, service)) {
            return Text("%s: the script deletes what is in this directory of the system", path);
        }
        if (const auto manager = managers.find(path); manager != managers.end()) {
            return Text(
                "%s: the script deletes what is in this directory of a package (%s)",
                path,
                manager->second
            );
        }
    }
    return {};
}

KText DescribeForeignContent(const KOwnership& ownership, const std::string& productPath) {
    std::size_t count = 0;
    std::string shown;
    std::error_code none; // a directory that is not there, or cannot be read, holds nothing to tell
    for (const auto& entry : std::filesystem::directory_iterator(productPath, none)) {
        const std::string path = entry.path().string();
        if (ownership.Find(path) != nullptr || ownership.WasBegun(path)) {
            continue;
        }
        if (++count <= contentShown) {
            shown += (count == 1 ? "" : ", ") + entry.path().filename().string();
        }
    }
    if (count == 0) {
        return {};
    }
    return "The directory " + NormalPath(productPath) +
           " is there already, and what it holds stays and is not the product's: " + shown +
           (count > contentShown ? Text(" and %s more", count - contentShown) : "") + ".";
}

KText WhyConflict(const KPlan& plan) {
    KText words;
    std::size_t count = 0;
    plan.ForEachAction([&](const KPlannedAction& action) {
        if (!action.conflict.empty() && ++count <= conflictsShown) {
            words += (count == 1 ? "" : "; ") + *action.path + ": " + action.conflict;
        }
    });
    if (count > conflictsShown) {
        words += Text("; and %s more", count - conflictsShown);
    }
    return words;
}

bool IsSystemdRunning() {
    struct stat running {};
    return KSYS::ReadStatus("/run/systemd/system", KSYS::LastLink::Follow, running) == 0;
}

bool HasServices(const KPlan& plan) {
    const auto& rules = plan.GetRules();
    return std::any_of(rules.begin(), rules.end(), [](const KPlannedRule& planned) {
        return planned.rule.type == KINS::KRuleType::Service;
    });
}

KText WhyNoRecord(const KPlannedTree& tree, const KMacroContext& macros) {
    const std::string link = macros.Expand(KINS::Names::recordLink);
    const KPlannedEntry entry = tree.Find(link);
    if (entry.kind != KEntryKind::Link) {
        return Text("no rule makes the link %s, by which the product counts as installed", link);
    }
    if (!entry.GetTarget().starts_with('/')) {
        return Text("the link %s leads to %s, which is not absolute", link, entry.GetTarget());
    }
    std::string product = NormalPath(entry.GetTarget());
    constexpr int levelsBelowProduct = 3; // at which the engine looks for the link's target
    for (int level = 0; level < levelsBelowProduct; ++level) {
        product = ParentPath(product);
    }
    const std::string record = macros.Expand(JoinPath(product, "config/") + "$iniFile$");
    const KPlannedPlace place =
        tree.Resolve(record, KPlannedTree::Last::Follow, KPlannedTree::Links::Trusted);
    return place.problem == KPathProblem::None &&
                   tree.Find(place.GetPath()).kind == KEntryKind::File
               ? ""
               : Text(
                     "the link %s leads to %s, three levels below the product path, and there is "
                     "no configuration file %s by then",
                     link,
                     entry.GetTarget(),
                     record
                 );
}

} // namespace KSETUP
