// SPDX-License-Identifier: MIT
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <sys/Retry.h>
#include <sys/files/DirectoryEntry.h>
#include <sys/files/FileLock.h>
#include <sys/files/KDirectoryLock.h>

namespace KSYS {

namespace {

constexpr auto lockPatience = std::chrono::seconds(10);
constexpr auto lockInterval = std::chrono::milliseconds(5);
constexpr std::uint64_t fileCount = 64; // so that they do not pile up

/// The file for a directory. Its name is none that a product's lock has, which ends otherwise.
unsigned FileName(int directory, std::string& name) {
    struct stat status {};
    if (const unsigned failed = ReadStatus(directory, status); failed != 0) {
        return failed;
    }
    constexpr std::uint64_t spread = 0x9E3779B97F4A7C15U; // 2^64 by the golden ratio
    const std::uint64_t mixed = (status.st_ino + status.st_dev * spread) * spread;
    name = "directory-" + std::to_string((mixed >> 32U) % fileCount);
    return 0;
}

unsigned WaitFor(int file) {
    const auto end = std::chrono::steady_clock::now() + lockPatience;
    unsigned status = TryLockFile(file, LockKind::Exclusive);
    while (status == EWOULDBLOCK && std::chrono::steady_clock::now() < end) {
        std::this_thread::sleep_for(lockInterval);
        status = TryLockFile(file, LockKind::Exclusive);
    }
    return status;
}

/// A file system may have no such locks for directories, as over the network.
unsigned LockItself(int directory) {
    const unsigned status = WaitFor(directory);
    const bool isUnable =
        status == EBADF || status == ENOLCK || status == EOPNOTSUPP || status == EINVAL;
    return isUnable ? 0 : status;
}

/// A file that was cleaned away meanwhile locks nobody out.
unsigned IsThere(int file, bool& isThere) noexcept {
    struct stat status {};
    const unsigned failed = ReadStatus(file, status);
    isThere = status.st_nlink > 0;
    return failed;
}

} // namespace

KDirectoryLock::KDirectoryLock(LockPlaces keptIn) : places(std::move(keptIn)) {}

unsigned KDirectoryLock::Take(int directory) {
    KDescriptor place;
    std::string text;
    unsigned status = OpenLockPlace(places, MissingPlace::IsMade, place, text);
    if (status == 0) {
        status = FileName(directory, text);
    } else if (status == ENOENT) {
        return LockItself(directory);
    }
    for (bool isThere = false; status == 0 && !isThere;) {
        constexpr int flags = O_RDONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW;
        file.Reset(Retry([&] {
            return ::openat(place.Get(), text.c_str(), flags, S_IRUSR | S_IWUSR);
        }));
        if (!file.IsOpen()) {
            return errno == EROFS ? LockItself(directory) : static_cast<unsigned>(errno);
        }
        status = WaitFor(file.Get());
        if (status == 0) {
            status = IsThere(file.Get(), isThere);
        }
    }
    return status;
}

std::string KDirectoryLock::WhyRefused() {
    KDescriptor place;
    std::string path;
    // Its answer is known: the path is what is asked for.
    static_cast<void>(
        OpenLockPlace(LockPlaces::OfThisUser(), MissingPlace::StaysMissing, place, path)
    );
    return DescribeRefusedPlace(path);
}

} // namespace KSYS
