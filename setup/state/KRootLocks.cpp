// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/state/KRootLocks.h>

#include <cerrno>
#include <chrono>
#include <exception>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <sys/files/DirectoryEntry.h>
#include <sys/files/FileLock.h>
#include <sys/files/LockPlaces.h>
#include <sys/processes/PrivateRoot.h>

namespace KSETUP {

namespace {

constexpr const char* inTree = "/var/lib/ins++.locks";
constexpr const char* whereSought = "/run/ins++";
constexpr std::chrono::milliseconds betweenLooks{10};

/// That of another run which is about to take them away is not used.
unsigned OpenUsed(KSYS::MissingPlace missing, KSYS::KDescriptor& place) {
    for (;;) {
        std::string path;
        if (const unsigned failed = KSYS::OpenLockPlace({0, {inTree}}, missing, place, path)) {
            return failed;
        }
        const unsigned locked = KSYS::TryLockFile(place.Get(), KSYS::LockKind::Shared);
        struct stat status {};
        if (locked != EWOULDBLOCK && KSYS::ReadStatus(place.Get(), status) == 0 &&
            status.st_nlink > 0) {
            return 0; // also where the file system has no such locks, and nobody takes them away
        }
        std::this_thread::sleep_for(betweenLooks);
    }
}

[[noreturn]] void RefuseLocks(const KText& why) {
    throw KSetupFailure(ExitCode::cannotWrite, Text("%s. Nothing was changed.", why));
}

} // namespace

KRootLocks::KRootLocks(Use use) {
    const bool isTaken = use == Use::Taken;
    unsigned failed =
        OpenUsed(isTaken ? KSYS::MissingPlace::IsMade : KSYS::MissingPlace::StaysMissing, place);
    if (failed == ENOENT && !isTaken) {
        return;
    }
    if (failed == ENOLCK) {
        RefuseLocks(KSYS::DescribeRefusedPlace(inTree));
    }
    if (failed == ENOENT) {
        RefuseLocks(Text(
            "%s cannot be made in the root, for the lock: /var/lib is missing there, or read-only. "
            "Make it (mkdir -p), or mount it to be written",
            inTree
        ));
    }
    if (failed == 0) {
        failed = KSYS::MakeDirectoryEntry(whereSought, S_IRWXU);
    }
    if (failed == 0) {
        failed = KSYS::ShowDirectory(inTree, whereSought);
    }
    if (failed != 0) {
        RefuseLocks(Text(
            "%s cannot be made in the root: %s. Fix the cause and run it again",
            inTree,
            std::generic_category().message(static_cast<int>(failed))
        ));
    }
    if (!isTaken) {
        place.Reset();
    }
}

void KRootLocks::RemoveUnused() noexcept {
    if (!place.IsOpen() ||
        KSYS::TryLockFile(place.Get(), KSYS::LockKind::Exclusive) != 0) { // another run's too
        return;
    }
    try {
        std::vector<std::string> names;
        static_cast<void>(KSYS::ListEntries({place.Get(), "."}, names)
        ); // what stays is told by none
        for (const std::string& name : names) {
            static_cast<void>(KSYS::UnlinkEntry({place, name}));
        }
        static_cast<void>(KSYS::RemoveDirectoryEntry(inTree)); // unless something is left
    } catch (const std::exception&) {
        return; // without memory they stay
    }
}

} // namespace KSETUP
