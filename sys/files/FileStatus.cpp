// SPDX-License-Identifier: MIT
#include <cerrno>
#include <ctime>

#include <linux/stat.h>
#include <sys/Retry.h>
#include <sys/files/FileStatus.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace KSYS {

namespace {

constexpr std::uint64_t nanoseconds = 1'000'000'000; // in a second

} // namespace

bool IsSameFile(const struct stat& left, const struct stat& right) noexcept {
    return left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

bool IsOwn(const struct stat& status) noexcept {
    return status.st_uid == ::geteuid();
}

bool IsOwnAlone(const struct stat& status) noexcept {
    return IsOwn(status) && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

unsigned ReadClosedToOthers(int directory, bool& isClosed) noexcept {
    struct stat status {};
    const unsigned failed = ReadStatus(directory, status);
    isClosed = failed == 0 && (status.st_uid == 0 || IsOwn(status)) &&
               (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
    return failed;
}

unsigned ReadEntryStatus(const Entry& entry, LastLink last, EntryStatus& status) noexcept {
    struct statx found {};
    const int flags = last == LastLink::Follow ? 0 : AT_SYMLINK_NOFOLLOW;
    constexpr unsigned wanted = STATX_TYPE | STATX_MODE | STATX_SIZE | STATX_UID | STATX_MTIME;
    if (::statx(entry.GetDirectory(), entry.GetName(), flags, wanted, &found) == 0) {
        status.mode = found.stx_mode;
        status.bytes = found.stx_size;
        status.owner = found.stx_uid;
        status.attribute =
            (found.stx_attributes & STATX_ATTR_IMMUTABLE) != 0 ? ProtectingAttribute::Immutable
            : (found.stx_attributes & STATX_ATTR_APPEND) != 0  ? ProtectingAttribute::AppendOnly
                                                               : ProtectingAttribute::None;
        status.modifiedSeconds = found.stx_mtime.tv_sec;
        status.modifiedNanoseconds = found.stx_mtime.tv_nsec;
        return 0;
    }
    if (errno != ENOSYS && errno != EPERM) {
        return static_cast<unsigned>(errno);
    }
    struct stat plain {}; // a filter of system calls that is older than the call
    if (const unsigned failed = ReadStatus(entry, last, plain); failed != 0) {
        return failed;
    }
    status = {
        plain.st_mode,
        static_cast<std::uint64_t>(plain.st_size),
        plain.st_uid,
        ProtectingAttribute::None,
        plain.st_mtim.tv_sec,
        static_cast<unsigned>(plain.st_mtim.tv_nsec)};
    return 0;
}

std::uint64_t ReadBirthTime(const Entry& entry) noexcept {
    struct statx status {};
    const bool isKnown =
        ::statx(entry.GetDirectory(), entry.GetName(), AT_SYMLINK_NOFOLLOW, STATX_BTIME, &status) ==
            0 &&
        (status.stx_mask & STATX_BTIME) != 0;
    return isKnown ? static_cast<std::uint64_t>(status.stx_btime.tv_sec) * nanoseconds +
                         status.stx_btime.tv_nsec
                   : 0;
}

std::uint64_t ReadFileClock() noexcept {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME_COARSE, &now); // cannot fail on Linux
    return static_cast<std::uint64_t>(now.tv_sec) * nanoseconds +
           static_cast<std::uint64_t>(now.tv_nsec);
}

unsigned ReadFileSystem(const char* path, FileSystemStatus& system) noexcept {
    struct statvfs status {};
    if (Retry([&] { return ::statvfs(path, &status); }) != 0) {
        return static_cast<unsigned>(errno);
    }
    system.isReadOnly = (status.f_flag & ST_RDONLY) != 0;
    system.runsNoPrograms = (status.f_flag & ST_NOEXEC) != 0;
    system.blockBytes = status.f_frsize != 0 ? status.f_frsize : 1;
    system.bytesFree = std::uint64_t{status.f_bfree} * status.f_frsize;
    system.filesFree = status.f_ffree;
    system.hasFileLimit = status.f_files != 0;
    return 0;
}

} // namespace KSYS
