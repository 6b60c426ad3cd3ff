// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/safety/Preflight.h>

#include <filesystem>
#include <system_error>

#include <sys/stat.h>
#include <unistd.h>

namespace KSETUP {

namespace {

constexpr gid_t firstGroupOfPeople = 1000; // Debian's policy; below are the system's

enum class Group { MayNotWrite, OfSystemMayWrite };

/// What lets others write, or an empty text. A directory with the sticky bit may be anybody's:
/// there nobody can take away what is another's.
std::string WhoElseWrites(const struct stat& status, Group group, bool isAbove) {
    if (S_ISLNK(status.st_mode)) {
        return {}; // has no mode, and its directory is looked at
    }
    if (status.st_uid != ::geteuid() && status.st_uid != 0) {
        return "belongs to user " + std::to_string(status.st_uid);
    }
    if (isAbove && (status.st_mode & S_ISVTX) != 0) {
        return {};
    }
    if ((status.st_mode & S_IWOTH) != 0) {
        return "may be written by everybody";
    }
    const bool groupIsFine = group == Group::OfSystemMayWrite && status.st_gid < firstGroupOfPeople;
    if ((status.st_mode & S_IWGRP) != 0 && status.st_gid != 0 && !groupIsFine) {
        return "may be written by group " + std::to_string(status.st_gid);
    }
    return {};
}

struct Demand {
    Group group;
    int exitCode;
    const char* thing;
    const char* advice;
};

void Check(const std::string& path, const Demand& demand, bool isAbove) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
        return; // not there, or gone meanwhile: who needs it will tell
    }
    if (const std::string who = WhoElseWrites(status, demand.group, isAbove); !who.empty()) {
        throw KSetupFailure(
            demand.exitCode,
            std::string("the ") + demand.thing + " is not root's alone: " + path + " " + who +
                ". " + demand.advice + " Nothing was changed."
        );
    }
}

/// Returns where the directory really is.
std::filesystem::path CheckWithAbove(const std::string& directory, const Demand& demand) {
    std::error_code unreadable;
    std::filesystem::path real = std::filesystem::canonical(directory, unreadable);
    if (unreadable) {
        return {}; // who needs it will tell
    }
    Check(real.string(), demand, false);
    for (std::filesystem::path at = real; at.has_relative_path();) {
        at = at.parent_path();
        Check(at.string(), demand, true);
    }
    return real;
}

} // namespace

void CheckKitIsPrivate(const std::string& kit) {
    const Demand demand{
        Group::MayNotWrite,
        ExitCode::noKit,
        "kit",
        "Copy it to a directory of root's (cp -r --no-preserve=mode,ownership KIT /root/kit) and "
        "install from there."};
    const std::filesystem::path real = CheckWithAbove(kit, demand);
    std::error_code unreadable;
    std::filesystem::recursive_directory_iterator entry(real, unreadable);
    for (; !unreadable && entry != std::filesystem::recursive_directory_iterator();
         entry.increment(unreadable)) {
        Check(entry->path().string(), demand, false);
    }
}

void CheckLogDirectory(const std::string& directory) {
    CheckWithAbove(
        directory,
        {Group::OfSystemMayWrite,
         ExitCode::cannotWrite,
         "directory of logs",
         "Give it back to root (chown root, chmod o-w)."}
    );
}

} // namespace KSETUP
