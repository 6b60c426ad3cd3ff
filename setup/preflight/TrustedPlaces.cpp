// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/PathText.h>
#include <setup/preflight/TrustedPlaces.h>

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <system_error>
#include <vector>

#include <sys/files/DirectoryEntry.h>

namespace KSETUP {

namespace {

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

/// `path` is where the entry is.
void RequirePrivateTree(const KSYS::Entry& entry, const std::string& path) {
    struct stat status {};
    KSYS::KDescriptor directory;
    std::vector<std::string> names;
    unsigned failed = KSYS::ReadStatus(entry, KSYS::LastLink::Keep, status);
    const std::string why = failed == 0 ? WhyNotPrivate(status, false) : "";
    if (!why.empty()) {
        throw KSetupFailure(ExitCode::noKit, path + why);
    }
    if (failed == 0 && S_ISDIR(status.st_mode)) {
        failed = KSYS::OpenDirectoryEntry(entry, directory);
    }
    if (failed == 0 && directory.IsOpen()) {
        failed = KSYS::ListEntries({directory.Get(), "."}, names);
    }
    if (failed != 0) {
        throw KSetupFailure(ExitCode::noKit, path + " cannot be read.");
    }
    for (const std::string& name : names) {
        RequirePrivateTree({directory, name}, JoinPath(path, name));
    }
}

} // namespace

uid_t CallingUser() {
    const char* text = std::getenv("SUDO_UID"); // NOLINT: nobody changes the environment
    uid_t user = 0;
    if (text != nullptr) {
        std::from_chars(text, text + std::strlen(text), user);
    }
    return user;
}

void RequirePrivate(const std::string& directory) {
    for (std::string at = ParentPath(directory); !at.empty();
         at = at == "/" ? "" : ParentPath(at)) {
        struct stat status {};
        const std::string why = KSYS::ReadStatus(at, KSYS::LastLink::Keep, status) == 0
                                    ? WhyNotPrivate(status, true)
                                    : "";
        if (!why.empty()) {
            throw KSetupFailure(ExitCode::noKit, at + why);
        }
    }
    RequirePrivateTree(directory, directory);
}

void RequireSafeLog(const std::string& file) {
    const std::string directory = ParentPath(file);
    struct stat status {};
    if (const unsigned missing = KSYS::ReadStatus(directory, KSYS::LastLink::Follow, status)) {
        throw KSetupFailure(
            ExitCode::cannotWrite,
            directory + ": " + std::generic_category().message(static_cast<int>(missing)) +
                ". Logs go there. Nothing was changed. Make the directory (mkdir -p)."
        );
    }
    const bool anybodyMay = (status.st_mode & S_IWOTH) != 0 && (status.st_mode & S_ISVTX) == 0;
    if (status.st_uid != 0 || anybodyMay) {
        throw KSetupFailure(
            ExitCode::cannotWrite,
            directory + ": the directory of logs can be changed by others than root. Nothing was "
                        "changed. Make it root's (chown root, chmod o-w)."
        );
    }
    if (KSYS::ReadStatus(file, KSYS::LastLink::Keep, status) == 0 && !S_ISREG(status.st_mode)) {
        throw KSetupFailure(
            ExitCode::cannotWrite,
            file + ": is no regular file, and a log is to be written there. Nothing was changed. "
                   "Take it away."
        );
    }
}

} // namespace KSETUP
