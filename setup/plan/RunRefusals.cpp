// SPDX-License-Identifier: MIT
#include <ins/Names.h>
#include <setup/files/PathText.h>
#include <setup/plan/RunRefusals.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <system_error>

#include <fcntl.h>
#include <linux/stat.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

namespace KSETUP {

namespace {

using Kind = KPlannedAction::Kind;

bool ChangesFiles(const KPlannedAction& action) {
    switch (action.kind) {
    case Kind::StartCommand:
    case Kind::StopProgram:
    case Kind::InstallService:
    case Kind::RemoveService:
    case Kind::StartService:
    case Kind::StopService:
        return false;
    default:
        return !action.lacks;
    }
}

/// The directories in which entries come or go, as far up as they are there.
std::set<std::string> ChangedDirectories(const KPlan& plan) {
    std::set<std::string> existing;
    std::set<std::string> seen;
    for (const KPlannedRule& rule : plan.GetRules()) {
        for (const KPlannedAction& action : rule.actions) {
            std::string at = ChangesFiles(action) ? ParentPath(NormalPath(action.path)) : "";
            std::error_code unknown; // as good as missing
            while (!at.empty() && seen.insert(at).second) {
                if (at == "/" || std::filesystem::exists(at, unknown)) {
                    existing.insert(at);
                    break;
                }
                at = ParentPath(at);
            }
        }
    }
    return existing;
}

bool IsImmutable(const std::string& path, int flags) {
    struct statx status {};
    return ::statx(AT_FDCWD, path.c_str(), flags, STATX_TYPE, &status) == 0 &&
           (status.stx_attributes & STATX_ATTR_IMMUTABLE) != 0;
}

std::string WhyNotADirectoryToChange(const std::string& directory) {
    struct stat status {};
    struct statvfs system {};
    if (::stat(directory.c_str(), &status) != 0) {
        return {}; // the run's own first step there will tell
    }
    if (!S_ISDIR(status.st_mode)) {
        return directory + " is no directory";
    }
    if (IsImmutable(directory, 0)) {
        return directory + " is immutable";
    }
    return ::statvfs(directory.c_str(), &system) == 0 && (system.f_flag & ST_RDONLY) != 0
               ? "the file system of " + directory + " is mounted read-only"
               : "";
}

} // namespace

std::string WhyNotWritable(const KPlan& plan) {
    for (const std::string& directory : ChangedDirectories(plan)) {
        if (std::string why = WhyNotADirectoryToChange(directory); !why.empty()) {
            return why;
        }
    }
    const std::vector<std::string> going = plan.FindFilesThatGo();
    const auto immutable = std::find_if(going.begin(), going.end(), [](const std::string& path) {
        return IsImmutable(path, AT_SYMLINK_NOFOLLOW);
    });
    return immutable == going.end() ? "" : *immutable + " is immutable";
}

bool HasServices(const KPlan& plan) {
    const auto& rules = plan.GetRules();
    return std::any_of(rules.begin(), rules.end(), [](const KPlannedRule& planned) {
        return planned.rule.line.type == "service";
    });
}

std::string WhyNoRecord(const KPlannedTree& tree, const KMacroContext& macros) {
    const std::string link = macros.Expand(KINS::Names::recordLink);
    const KPlannedEntry entry = tree.Find(link);
    if (entry.kind != KEntryKind::Link) {
        return "no rule makes the link " + link + ", by which the product counts as installed";
    }
    if (!entry.target.starts_with('/')) {
        return "the link " + link + " leads to " + entry.target + ", which is not absolute";
    }
    std::string product = NormalPath(entry.target);
    constexpr int levelsBelowProduct = 3; // at which the engine looks for the link's target
    for (int level = 0; level < levelsBelowProduct; ++level) {
        product = ParentPath(product);
    }
    const std::string record = macros.Expand(JoinPath(product, "config/") + "$iniFile$");
    const KPlannedPlace place =
        tree.Resolve(record, KPlannedTree::Last::Follow, KPlannedTree::Links::Trusted);
    return place.problem == KPathProblem::None && tree.Find(place.path).kind == KEntryKind::File
               ? ""
               : "the link " + link + " leads to " + entry.target +
                     ", three levels below the product path, and there is no configuration file " +
                     record + " by then";
}

} // namespace KSETUP
