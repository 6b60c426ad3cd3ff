// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/PathText.h>
#include <setup/output/TextFormat.h>
#include <setup/preflight/Preflight.h>
#include <setup/preflight/VersionOrder.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <system_error>
#include <unordered_set>

#include <sys/files/FileStatus.h>
#include <sys/processes/ProcessIsolation.h>

namespace KSETUP {

namespace {

using Kind = KPlannedAction::Kind;

bool ChangesFiles(const KPlannedAction& action) {
    switch (action.kind) {
    case Kind::CreateDirectory:
    case Kind::DeleteDirectory:
    case Kind::CopyFile:
    case Kind::DeleteFile:
    case Kind::MakeLink:
    case Kind::CreateProfile:
    case Kind::PutOption:
    case Kind::RemoveOption:
        return !action.lacks;
    case Kind::StartCommand:
    case Kind::StopProgram:
    case Kind::InstallService:
    case Kind::RemoveService:
    case Kind::StartService:
    case Kind::StopService:
        return false;
    }
    return false;
}

/// The directories in which entries come or go, each once, as far up as they are there.
std::set<std::string> ChangedDirectories(const KPlan& plan) {
    std::set<std::string> existing;
    std::unordered_set<std::string> seen;
    std::string last;
    for (const KPlannedRule& rule : plan.GetRules()) {
        for (const KPlannedAction& action : rule.actions) {
            std::string parent = ChangesFiles(action) ? ParentPath(NormalPath(action.path)) : last;
            if (parent == last) { // one rule copies many files to one directory
                continue;
            }
            last = parent;
            std::error_code unknown; // as good as missing
            while (!parent.empty() && seen.insert(parent).second) {
                if (parent == "/" || std::filesystem::exists(parent, unknown)) {
                    existing.insert(parent);
                    break;
                }
                parent = ParentPath(parent);
            }
        }
    }
    return existing;
}

/// Why nothing can be made in a directory that is there; empty when something can.
std::string WhyNotWritable(const std::string& directory) {
    KSYS::FileSystemStatus system;
    struct stat status {};
    if (KSYS::ReadStatus(directory, KSYS::LastLink::Follow, status) != 0) {
        return {}; // the run's own first step there will tell
    }
    if (!S_ISDIR(status.st_mode)) {
        return "it is no directory. Take it away, or choose another product path";
    }
    if (KSYS::IsImmutable(directory, KSYS::LastLink::Follow)) {
        return "it is immutable; chattr -i allows changes";
    }
    if (KSYS::ReadFileSystem(directory.c_str(), system) == 0 && system.isReadOnly) {
        return "its file system is mounted read-only; mount -o remount,rw allows changes";
    }
    return {};
}

std::string ToText(const KVersion& version) {
    return version.text + " (build " + std::to_string(version.buildNumber) + ")";
}

} // namespace

void RequireRoot() {
    if (!KSYS::IsRoot()) {
        throw KSetupFailure(
            ExitCode::notRoot, "Only root can install and remove products. Try it with sudo."
        );
    }
}

void RequireSpace(const KPlan& plan, const std::vector<std::string>& alsoWritten) {
    for (const KPlan::Space& space : plan.GetSpace(alsoWritten)) {
        if (!space.HasBytes()) {
            throw KSetupFailure(
                ExitCode::cannotWrite,
                "the file system of " + space.directory + " has too little space: " +
                    BytesInWords(space.needed + KPlan::Space::spareBytes) + " needed, " +
                    BytesInWords(space.available) + " free. Nothing was changed. Make room there."
            );
        }
        if (!space.HasFiles()) {
            throw KSetupFailure(
                ExitCode::cannotWrite,
                "the file system of " + space.directory + " has too few inodes: " +
                    std::to_string(space.filesNeeded + KPlan::Space::spareFiles) + " needed, " +
                    std::to_string(space.filesAvailable) +
                    " free. Nothing was changed. Delete files there that nobody needs."
            );
        }
    }
}

void RequireWritable(const KPlan& plan) {
    for (const std::string& directory : ChangedDirectories(plan)) {
        if (const std::string why = WhyNotWritable(directory); !why.empty()) {
            throw KSetupFailure(
                ExitCode::cannotWrite,
                directory + " cannot be written to: " + why + ". Nothing was changed."
            );
        }
    }
    for (const std::string& path : plan.FindFilesThatGo()) {
        if (KSYS::IsImmutable(path, KSYS::LastLink::Keep)) {
            throw KSetupFailure(
                ExitCode::cannotWrite,
                path + " cannot be replaced or deleted: it is immutable; chattr -i allows it. "
                       "Nothing was changed."
            );
        }
    }
}

bool NeedsServices(const KPlan& plan) {
    const auto& rules = plan.GetRules();
    return std::any_of(rules.begin(), rules.end(), [](const KPlannedRule& rule) {
        return rule.rule.line.type == "service";
    });
}

void RequireServiceManager(const KPlan& plan) {
    struct stat running {};
    if (NeedsServices(plan) &&
        KSYS::ReadStatus("/run/systemd/system", KSYS::LastLink::Follow, running) != 0) {
        throw KSetupFailure(
            ExitCode::noService,
            "the script has services, and systemd does not run here. Nothing was changed. "
            "--offline-services leaves them for the next boot."
        );
    }
}

void RequireNoDowngrade(
    const std::string& product, const KVersion& installed, const KVersion& wanted
) {
    const auto order = CompareVersions(installed.text, wanted.text);
    if (order > 0 || (order == 0 && installed.buildNumber > wanted.buildNumber)) {
        throw KSetupFailure(
            ExitCode::usage,
            product + " " + ToText(installed) + " is installed, which is newer than " +
                ToText(wanted) +
                ". Nothing was changed. --allow-downgrade installs the older one over it."
        );
    }
}

} // namespace KSETUP
