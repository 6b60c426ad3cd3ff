// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cerrno>
#include <ctime>
#include <filesystem>
#include <string_view>
#include <system_error>

#include <bundle/JoinedHead.h>
#include <bundle/KBundleError.h>
#include <bundle/KWorkPlace.h>
#include <sys/files/DirectoryEntry.h>
#include <sys/files/FileLock.h>
#include <sys/files/FileStatus.h>
#include <unistd.h>

namespace KBUNDLE {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view nameBegin = ".ins-setup-bundle-";
constexpr unsigned permissions = 07777;

/// The nearest directory above that is there.
std::string NearestDirectory(fs::path path) {
    std::error_code missing;
    while (path.has_relative_path() && !fs::is_directory(path, missing)) {
        path = path.parent_path();
    }
    return path.string();
}

/// Whether nobody else can exchange what is made in a directory: not in it, nor on the way to it.
bool IsClosedToOthers(const std::string& directory) {
    for (fs::path path = directory;; path = path.parent_path()) {
        struct stat status {};
        if (KSYS::ReadStatus(path.string(), KSYS::LastLink::Keep, status) != 0 ||
            !(status.st_uid == 0 || KSYS::IsOwn(status)) ||
            ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0 && (status.st_mode & S_ISVTX) == 0)) {
            return false;
        }
        if (!path.has_relative_path()) {
            return true;
        }
    }
}

std::string PathIn(const std::string& place, const std::string& name) {
    return (place == "/" ? "" : place) + "/" + name;
}

std::string Mebibytes(std::uint64_t bytes) {
    constexpr unsigned shift = 20;
    return std::to_string((bytes + (std::uint64_t{1} << shift) - 1) >> shift) + " MiB";
}

/// Why a directory is no place; empty for one that may be.
std::string WhyNot(
    const std::string& place, const std::function<KBundleNeeds(std::uint64_t blockBytes)>& needs
) {
    // The loader would look for libraries in something else, also below the current directory.
    if (place.find_first_of(":;$") != std::string::npos) {
        return "a path with \":\", \";\" or \"$\", which the loader takes apart";
    }
    KSYS::FileSystemStatus system;
    const unsigned failed = KSYS::ReadFileSystem(place.c_str(), system);
    if (failed != 0) {
        return std::generic_category().message(static_cast<int>(failed));
    }
    if (system.isReadOnly) {
        return "read-only";
    }
    if (system.runsNoPrograms) {
        return "runs no programs (mounted noexec)";
    }
    const KBundleNeeds needed = needs(system.blockBytes);
    if (system.bytesFree < needed.bytes + bytesToSpare) {
        return Mebibytes(system.bytesFree) + " free, " + Mebibytes(needed.bytes + bytesToSpare) +
               " needed";
    }
    if (system.hasFileLimit && system.filesFree < needed.entries + entriesToSpare) {
        return std::to_string(system.filesFree) + " files free, " +
               std::to_string(needed.entries + entriesToSpare) + " needed";
    }
    return IsClosedToOthers(place) ? "" : "others can change it";
}

/// Whether a name is as MakeIn gives it: an administrator may call something almost so.
bool IsWorkName(std::string_view name) {
    if (!name.starts_with(nameBegin)) {
        return false;
    }
    name.remove_prefix(nameBegin.size());
    return KSYS::IsTemporaryName(name);
}

bool IsHeadName(std::string_view name) {
    constexpr std::size_t drawn = 10; // of mktemp(1)
    return name.starts_with(headDirectoryBegin) && name.size() == headDirectoryBegin.size() + drawn;
}

/// Whether a head was put there by a script that did not come to its end: that takes moments, and holds
/// no lock, which a shell cannot.
bool IsHeadLeft(int directory, const struct stat& status) {
    constexpr std::time_t longAgo = 3600; // seconds
    std::vector<std::string> names;
    return std::time(nullptr) - status.st_mtime > longAgo &&
           KSYS::ListEntries({directory, "."}, names) == 0 &&
           std::all_of(names.begin(), names.end(), [](const std::string& name) {
               return name == headFile;
           });
}

void RemoveLeftoversIn(const std::string& place) {
    std::vector<std::string> names;
    // Where others can rename, what was looked at need not be what is deleted.
    if (!IsClosedToOthers(place) || KSYS::ListEntries(place, names) != 0) {
        return;
    }
    for (const std::string& name : names) {
        const std::string path = PathIn(place, name);
        KSYS::KDescriptor directory;
        struct stat status {};
        const bool isHead = IsHeadName(name);
        if ((isHead || IsWorkName(name)) && KSYS::OpenDirectoryEntry(path, directory) == 0 &&
            KSYS::ReadStatus(directory.Get(), status) == 0 && KSYS::IsOwn(status) &&
            (status.st_mode & permissions) == S_IRWXU &&
            (isHead ? IsHeadLeft(directory.Get(), status)
                    : KSYS::TryLockFile(directory.Get(), KSYS::LockKind::Exclusive) == 0)) {
            std::error_code stays; // the next run tries again
            fs::remove_all(path, stays);
        }
    }
}

/// The descriptor by which this process has a directory open, and locked.
int FindHeld(const struct stat& wanted) {
    for (int number = STDERR_FILENO + 1; number < mostHeld; ++number) {
        struct stat status {};
        if (KSYS::ReadStatus(number, status) == 0 && KSYS::IsSameFile(status, wanted) &&
            KSYS::TryLockFile(number, KSYS::LockKind::Exclusive) == 0) {
            return number;
        }
    }
    return -1;
}

} // namespace

std::vector<std::string> WorkPlacesFor(const std::string& productPlace) {
    std::vector<std::string> places;
    const bool isKnown = productPlace.starts_with('/');
    const fs::path product = fs::path(productPlace).lexically_normal();
    const std::string above = isKnown ? NearestDirectory(product.parent_path()) : "/";
    if (above != "/") {
        places.push_back(above);
    }
    for (const char* usual : {"/var/tmp", "/opt", "/tmp", "/var/lib"}) {
        places.emplace_back(usual);
    }
    if (isKnown) { // where nothing but the product's own place can be written to
        places.push_back(NearestDirectory(product));
    }
    places.emplace_back("/dev/shm");
    std::vector<std::string> real;
    for (const std::string& place : places) {
        std::error_code missing;
        const std::string path = fs::canonical(place, missing).string();
        if (!missing && std::find(real.begin(), real.end(), path) == real.end()) {
            real.push_back(path);
        }
    }
    return real;
}

void RemoveLeftovers(const std::vector<std::string>& places) {
    std::for_each(places.begin(), places.end(), &RemoveLeftoversIn);
}

int FindLockOf(const std::string& directory) {
    fs::path path = directory;
    path = path.has_filename() ? path : path.parent_path();
    for (const fs::path& each : {path, path.parent_path()}) {
        struct stat status {};
        if (IsWorkName(each.filename().string()) &&
            KSYS::ReadStatus(each.string(), KSYS::LastLink::Keep, status) == 0 &&
            S_ISDIR(status.st_mode) && KSYS::IsOwn(status) &&
            (status.st_mode & permissions) == S_IRWXU) {
            return FindHeld(status);
        }
    }
    return -1;
}

KWorkPlace::KWorkPlace(
    const std::vector<std::string>& places,
    const std::function<KBundleNeeds(std::uint64_t blockBytes)>& needs
) {
    std::string reasons;
    for (const std::string& place : places) {
        std::string why = WhyNot(place, needs);
        if (why.empty()) {
            const unsigned failed = MakeIn(place);
            if (failed == 0) {
                return;
            }
            why = std::generic_category().message(static_cast<int>(failed));
        }
        reasons += "\n    " + place + ": " + why;
    }
    throw KBundleError(
        KBundleError::Kind::CannotWrite,
        "there is no directory to unpack the bundle to:" + reasons +
            "\nName one that has room and runs programs with --work DIR, in front of the command, "
            "or "
            "let one of these be so: make room, or mount -o remount,exec DIR."
    );
}

KWorkPlace::KWorkPlace(const std::string& place) {
    if (const unsigned failed = MakeIn(place); failed != 0) {
        FailOnWrite(place, failed);
    }
}

unsigned KWorkPlace::MakeIn(const std::string& place) {
    // Again where somebody who clears up takes a new one for a leftover.
    constexpr unsigned mostTries = 10;
    for (unsigned tries = 0; tries < mostTries; ++tries) {
        path = PathIn(place, std::string(nameBegin) + KSYS::TemporaryName());
        unsigned failed = KSYS::MakeDirectoryEntry(path, S_IRWXU);
        if (failed != 0) {
            return failed;
        }
        struct stat made {};
        struct stat there {};
        failed = KSYS::OpenDirectoryEntry(path, lock);
        if (failed == 0 &&
            KSYS::TryLockFile(lock.Get(), KSYS::LockKind::Exclusive) != EWOULDBLOCK &&
            KSYS::ReadStatus(lock.Get(), made) == 0 &&
            KSYS::ReadStatus(path, KSYS::LastLink::Keep, there) == 0 &&
            KSYS::IsSameFile(made, there)) {
            return 0;
        }
    }
    return EBUSY;
}

KWorkPlace::~KWorkPlace() {
    std::error_code stays; // the next run deletes it
    if (!path.empty()) {
        fs::remove_all(path, stays);
    }
}

} // namespace KBUNDLE
