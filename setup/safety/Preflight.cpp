// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/PathText.h>
#include <setup/safety/Preflight.h>
#include <setup/safety/VersionOrder.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string_view>
#include <system_error>
#include <unordered_set>
#include <utility>

#include <fcntl.h>
#include <fts.h>
#include <linux/stat.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace KSETUP {

namespace {

namespace fs = std::filesystem;
using Kind = KPlannedAction::Kind;

/// What the log, the record and the state of the run may take on top.
constexpr std::uint64_t reserveBytes = 8ULL << 20U;
constexpr std::uint64_t reserveFiles = 16;

std::string Readable(std::uint64_t bytes) {
    constexpr std::array units = std::to_array<const char*>({"bytes", "KiB", "MiB", "GiB", "TiB"});
    auto amount = static_cast<double>(bytes);
    std::size_t unit = 0;
    for (; amount >= 1024 && unit + 1 < units.size(); ++unit) {
        amount /= 1024;
    }
    std::array<char, 48> text{};
    std::snprintf(text.data(), text.size(), unit == 0 ? "%.0f %s" : "%.1f %s", amount, units[unit]);
    return text.data();
}

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
                if (parent == "/" || fs::exists(parent, unknown)) {
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
    struct statvfs system {};
    struct statx status {};
    if (::statx(AT_FDCWD, directory.c_str(), 0, STATX_TYPE, &status) != 0) {
        return {}; // the run's own first step there will tell
    }
    if (!S_ISDIR(status.stx_mode)) {
        return "it is no directory. Take it away, or choose another product path";
    }
    if ((status.stx_attributes & STATX_ATTR_IMMUTABLE) != 0) {
        return "it is immutable; chattr -i allows changes";
    }
    if (::statvfs(directory.c_str(), &system) == 0 && (system.f_flag & ST_RDONLY) != 0) {
        return "its file system is mounted read-only; mount -o remount,rw allows changes";
    }
    return {};
}

/// Calls `each` with the files on the disk that the plan replaces or deletes.
void ForEachFileThatGoes(
    const KPlan& plan, const std::function<void(const std::string& path)>& each
) {
    for (const KPlannedRule& rule : plan.GetRules()) {
        for (const KPlannedAction& action : rule.actions) {
            const bool goes = action.kind == Kind::DeleteFile ||
                              (action.kind == Kind::CopyFile && action.replaces);
            if (goes && !action.lacks) {
                each(NormalPath(action.path));
            }
        }
    }
}

bool IsImmutable(const std::string& path) {
    struct statx status {};
    return ::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_TYPE, &status) == 0 &&
           (status.stx_attributes & STATX_ATTR_IMMUTABLE) != 0;
}

/// Who called sudo(8), which says so: their own files are theirs to run as root. Else root.
uid_t CallingUser() {
    const char* text = std::getenv("SUDO_UID"); // NOLINT: nobody changes the environment
    uid_t user = 0;
    if (text != nullptr) {
        std::from_chars(text, text + std::strlen(text), user);
    }
    return user;
}

std::string ToText(const KVersion& version) {
    return version.text + " (build " + std::to_string(version.buildNumber) + ")";
}

/// Why others could change what is there; empty when they cannot. `isAbove` says that only what is
/// below it counts.
std::string WhyNotPrivate(const struct stat& status, bool isAbove) {
    const bool othersMayWrite = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    // In a directory with the sticky bit nobody takes another's entry away.
    const bool isSticky = (status.st_mode & S_ISVTX) != 0 && isAbove;
    const bool isTrusted = status.st_uid == 0 || status.st_uid == CallingUser();
    if (isTrusted && (!othersMayWrite || isSticky || S_ISLNK(status.st_mode))) {
        return "";
    }
    // What is above the kit may be somebody's home, whose owner and rights are to stay.
    return std::string(": others than root can change it, and root would run that. Nothing was "
                       "changed. Copy the kit to a directory of root's (cp -R KIT /root/)") +
           (isAbove ? "." : ", or take the right away (chown -R root, chmod -R go-w).");
}

std::string NameOf(const fs::path& process) {
    std::FILE* file = std::fopen((process / "comm").c_str(), "re");
    if (file == nullptr) {
        return "?";
    }
    std::array<char, 64> name{};
    const bool isRead = std::fgets(name.data(), static_cast<int>(name.size()), file) != nullptr;
    std::fclose(file);
    const std::string text = isRead ? name.data() : "?";
    return text.substr(0, text.find('\n'));
}

} // namespace

void RequireRoot() {
    if (::geteuid() != 0) {
        throw KSetupFailure(
            ExitCode::notRoot, "Only root can install and remove products. Try it with sudo."
        );
    }
}

void RequireSpace(const KPlan& plan) {
    for (const KPlan::Space& space : plan.GetSpace()) {
        if (space.needed + reserveBytes > space.available) {
            throw KSetupFailure(
                ExitCode::cannotWrite,
                "the file system of " + space.directory + " has too little space: " +
                    Readable(space.needed + reserveBytes) + " needed, " +
                    Readable(space.available) + " free. Nothing was changed. Make room there."
            );
        }
        if (!space.filesAreUnlimited && space.filesNeeded + reserveFiles > space.filesAvailable) {
            throw KSetupFailure(
                ExitCode::cannotWrite,
                "the file system of " + space.directory +
                    " has too few inodes: " + std::to_string(space.filesNeeded + reserveFiles) +
                    " needed, " + std::to_string(space.filesAvailable) +
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
    ForEachFileThatGoes(plan, [](const std::string& path) {
        if (IsImmutable(path)) {
            throw KSetupFailure(
                ExitCode::cannotWrite,
                path + " cannot be replaced or deleted: it is immutable; chattr -i allows it. "
                       "Nothing was changed."
            );
        }
    });
}

bool NeedsServices(const KPlan& plan) {
    const auto& rules = plan.GetRules();
    return std::any_of(rules.begin(), rules.end(), [](const KPlannedRule& rule) {
        return rule.rule.line.type == "service";
    });
}

void RequireServiceManager(const KPlan& plan) {
    if (NeedsServices(plan) && ::access("/run/systemd/system", F_OK) != 0) {
        throw KSetupFailure(
            ExitCode::noService,
            "the script has services, and systemd does not run here. Nothing was changed. "
            "\"install --offline-services\" leaves them for the next boot."
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

void RequirePrivate(const std::string& directory) {
    for (std::string at = ParentPath(directory); !at.empty();
         at = at == "/" ? "" : ParentPath(at)) {
        struct stat status {};
        const std::string why =
            ::lstat(at.c_str(), &status) == 0 ? WhyNotPrivate(status, true) : "";
        if (!why.empty()) {
            throw KSetupFailure(ExitCode::noKit, at + why);
        }
    }
    std::string root = directory;
    char* roots[] = {root.data(), nullptr};
    const std::unique_ptr<FTS, int (*)(FTS*)> walk(
        ::fts_open(roots, FTS_PHYSICAL | FTS_NOCHDIR, nullptr), ::fts_close
    );
    while (const FTSENT* entry = walk != nullptr ? ::fts_read(walk.get()) : nullptr) {
        if (entry->fts_info == FTS_DP) { // seen before what is in it
            continue;
        }
        if (entry->fts_statp == nullptr || entry->fts_info == FTS_NS ||
            entry->fts_info == FTS_DNR) {
            throw KSetupFailure(ExitCode::noKit, std::string(entry->fts_path) + " cannot be read.");
        }
        if (const std::string why = WhyNotPrivate(*entry->fts_statp, false); !why.empty()) {
            throw KSetupFailure(ExitCode::noKit, entry->fts_path + why);
        }
    }
}

void RequireSafeLogDirectory(const std::string& directory) {
    struct stat status {};
    if (::stat(directory.c_str(), &status) != 0) {
        return; // who opens the log there says what is wrong
    }
    const bool anybodyMay = (status.st_mode & S_IWOTH) != 0 && (status.st_mode & S_ISVTX) == 0;
    if (status.st_uid != 0 || anybodyMay) {
        throw KSetupFailure(
            ExitCode::cannotWrite,
            directory + ": the directory of logs can be changed by others than root. Nothing was "
                        "changed. Make it root's (chown root, chmod o-w)."
        );
    }
}

std::vector<std::string> FindRunningPrograms(const KPlan& plan) {
    // By device and inode: a program may have been started through a link.
    std::map<std::pair<dev_t, ino_t>, std::string> files;
    ForEachFileThatGoes(plan, [&](const std::string& path) {
        struct stat status {};
        if (::lstat(path.c_str(), &status) == 0) {
            files.emplace(std::pair(status.st_dev, status.st_ino), path);
        }
    });
    std::vector<std::string> running;
    if (files.empty()) {
        return running;
    }
    std::error_code unreadable; // without /proc nothing is known to run
    for (const fs::directory_entry& process : fs::directory_iterator("/proc", unreadable)) {
        struct stat program {}; // there is none of a kernel thread, or of one that has ended
        if (::stat((process.path() / "exe").c_str(), &program) != 0) {
            continue;
        }
        const auto file = files.find({program.st_dev, program.st_ino});
        if (file != files.end()) {
            running.push_back(
                NameOf(process.path()) + " (" + process.path().filename().string() + "), " +
                file->second
            );
        }
    }
    return running;
}

} // namespace KSETUP
