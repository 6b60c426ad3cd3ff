// SPDX-License-Identifier: MIT
#include <cerrno>

#include <fcntl.h>
#include <sys/files/DirectoryEntry.h>
#include <sys/files/LockPlaces.h>
#include <unistd.h>

namespace KSYS {

namespace {

constexpr unsigned usersAlone = S_IRWXU;

bool IsAlone(const struct stat& status, uid_t user) noexcept {
    return status.st_uid == user && (status.st_mode & (S_IRWXG | S_IRWXO)) == 0;
}

/// Opens what stands there if it is a directory of the user's alone.
unsigned OpenOwned(const std::string& path, uid_t user, KDescriptor& directory) {
    const unsigned failed = OpenDirectoryEntry(path, directory);
    if (failed == ENOTDIR || failed == ELOOP) {
        return ENOLCK;
    }
    struct stat status {};
    if (failed == EACCES) { // another's, or the system refuses what has nothing to do with owners
        const bool isKnown = ReadStatus(path, LastLink::Keep, status) == 0;
        return isKnown && !IsAlone(status, user) ? ENOLCK : failed;
    }
    if (const unsigned unknown = failed != 0 ? failed : ReadStatus(directory.Get(), status)) {
        return unknown;
    }
    return IsAlone(status, user) ? 0 : ENOLCK;
}

/// Whether the user can make something in the directory that is to hold the place. Who asks about
/// another user's cannot know, unless nobody can.
bool CanBeMade(const std::string& path, uid_t user) noexcept {
    const std::string parent = path.substr(0, path.rfind('/'));
    return ::faccessat(AT_FDCWD, parent.c_str(), W_OK | X_OK, AT_EACCESS) == 0 ||
           (errno == EACCES && user != ::geteuid());
}

} // namespace

LockPlaces LockPlaces::Of(uid_t user) {
    const std::string number = std::to_string(user);
    const std::string forAnybody = "/tmp/ins++-" + number;
    if (user == 0) {
        return {user, {"/run/ins++", "/var/lib/ins++.locks", forAnybody}};
    }
    return {user, {"/run/user/" + number + "/ins++", forAnybody}};
}

LockPlaces LockPlaces::OfThisUser() {
    return Of(::geteuid());
}

unsigned OpenLockPlace(
    const LockPlaces& places, MissingPlace missing, KDescriptor& directory, std::string& path
) {
    for (const std::string& place : places.directories) {
        path = place;
        unsigned failed = OpenOwned(place, places.user, directory);
        if (failed == ENOENT && !CanBeMade(place, places.user)) {
            continue;
        }
        if (failed == ENOENT && missing == MissingPlace::IsMade) {
            failed = MakeDirectoryEntry(place, usersAlone);
            if (failed == 0 || failed == EEXIST) { // perhaps by another process, just now
                failed = OpenOwned(place, places.user, directory);
            }
        }
        return failed;
    }
    path.clear();
    return ENOENT;
}

std::string DescribeRefusedPlace(const std::string& path) {
    return path + " is not a directory of this user's alone (mode 0700), and locks are kept there: "
                  "look what it holds, then delete it";
}

} // namespace KSYS
