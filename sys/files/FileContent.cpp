// SPDX-License-Identifier: MIT
#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/Retry.h>
#include <sys/files/CallStatus.h>
#include <sys/files/FileCalls.h>
#include <sys/files/FileContent.h>
#include <sys/files/FileStatus.h>
#include <sys/ioctl.h>
#include <sys/uio.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace KSYS {

namespace {

std::array<timespec, 2> OnlyChanged(const timespec& changed) noexcept {
    return {timespec{0, UTIME_OMIT}, changed};
}

unsigned CopyByReading(int source, int target) noexcept {
    std::array<char, 65536> chunk; // NOLINT: filled before it is read
    std::size_t bytes = 0;
    struct stat found {};
    unsigned status = 0;
    if (::fstat(source, &found) == 0 && MayHaveHoles(found)) {
        bool byKernel = true;
        const auto length = static_cast<std::size_t>(found.st_size);
        status = CopyRangeWithHoles(source, 0, target, length, byKernel);
        if (status == 0) { // it may be longer by now
            status = ::lseek(source, found.st_size, SEEK_SET) >= 0 ? 0 : LastError();
        }
    }
    while (status == 0) {
        status = ReadSome(source, chunk.data(), chunk.size(), bytes);
        if (status != 0 || bytes == 0) {
            break;
        }
        status = WriteAll(target, chunk.data(), bytes);
    }
    return status;
}

unsigned CopyExtendedAttribute(int source, int target, const char* name) {
    const ssize_t size = ::fgetxattr(source, name, nullptr, 0);
    if (size < 0) {
        return static_cast<unsigned>(errno);
    }
    std::vector<char> value(static_cast<std::size_t>(size) + 1);
    const ssize_t read = ::fgetxattr(source, name, value.data(), value.size() - 1);
    if (read < 0) {
        return static_cast<unsigned>(errno);
    }
    const unsigned status =
        StatusOf(::fsetxattr(target, name, value.data(), static_cast<std::size_t>(read), 0));
    return status == ENOTSUP ? 0 : status;
}

} // namespace

unsigned ReadSome(int file, char* bytes, std::size_t room, std::size_t& byteCount) noexcept {
    const ssize_t got = Retry([&] { return ::read(file, bytes, room); });
    byteCount = got > 0 ? static_cast<std::size_t>(got) : 0;
    return StatusOf(got);
}

unsigned
ReadAt(int file, char* bytes, std::size_t room, off_t offset, std::size_t& byteCount) noexcept {
    const ssize_t count = Retry([&] { return ::pread(file, bytes, room, offset); });
    byteCount = count > 0 ? static_cast<std::size_t>(count) : 0;
    return StatusOf(count);
}

unsigned WriteAt(int file, const char* bytes, std::size_t byteCount, off_t offset) noexcept {
    return StatusOf(Retry([&] { return ::pwrite(file, bytes, byteCount, offset); }));
}

unsigned Truncate(int file, off_t size) noexcept {
    return StatusOf(Retry([&] { return ::ftruncate(file, size); }));
}

void BeginWriting(int file) noexcept {
    static_cast<void>(::sync_file_range(file, 0, 0, SYNC_FILE_RANGE_WRITE));
}

unsigned ReadAhead(int file, std::size_t byteCount, bool& wasThere) noexcept {
    char byte = 0;
    const iovec room{&byte, 1};
    wasThere = ::preadv2(file, &room, 1, 0, RWF_NOWAIT) >= 0;
    return wasThere
               ? 0
               : static_cast<unsigned>(
                     ::posix_fadvise(file, 0, static_cast<off_t>(byteCount), POSIX_FADV_WILLNEED)
                 );
}

unsigned CopyContent(int source, int target, CopyWay way) noexcept {
    // The old style of the kernel's macro warns: its cast is not ours.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wold-style-cast"
    const unsigned status = StatusOf(::ioctl(target, FICLONE, source));
#pragma GCC diagnostic pop
    return status == 0 || way == CopyWay::ReflinkOnly ? status : CopyByReading(source, target);
}

unsigned CopyExtendedAttributes(int source, int target) {
    const ssize_t bytes = ::flistxattr(source, nullptr, 0);
    if (bytes <= 0) {
        return bytes == 0 || errno == ENOTSUP ? 0 : static_cast<unsigned>(errno);
    }
    std::vector<char> names(static_cast<std::size_t>(bytes) + 1);
    const ssize_t listed = ::flistxattr(source, names.data(), names.size() - 1);
    unsigned status = StatusOf(listed);
    for (ssize_t at = 0; status == 0 && at < listed;) {
        const char* const name = names.data() + at;
        at += static_cast<ssize_t>(std::strlen(name)) + 1;
        status = CopyExtendedAttribute(source, target, name);
    }
    return status;
}

unsigned SetOwner(int file, uid_t owner, gid_t group) noexcept {
    return StatusOf(::fchown(file, owner, group));
}

unsigned SetMode(int file, unsigned mode) noexcept {
    return StatusOf(::fchmod(file, mode & 07777));
}

unsigned SetTime(int file, const timespec& changed) noexcept {
    return StatusOf(::futimens(file, OnlyChanged(changed).data()));
}

unsigned
SetOwnerAndTime(const Entry& link, uid_t owner, gid_t group, const timespec& changed) noexcept {
    KDescriptor opened; // by its name it could be another file with each call
    struct stat status {};
    unsigned failed = OpenEntry(link, O_PATH, opened);
    if (failed == 0) {
        failed = ReadStatus(opened.Get(), status);
    }
    if (failed == 0 && (!S_ISLNK(status.st_mode) || !IsOwn(status))) {
        failed = EEXIST;
    }
    if (failed == 0) {
        failed = StatusOf(::fchownat(opened.Get(), "", owner, group, AT_EMPTY_PATH));
    }
    if (failed == 0) {
        failed =
            StatusOf(::utimensat(opened.Get(), "", OnlyChanged(changed).data(), AT_EMPTY_PATH));
        failed = failed == EINVAL ? 0 : failed;
    }
    return failed;
}

unsigned Flush(int file) noexcept {
    return StatusOf(Retry([&] { return ::fsync(file); }));
}

unsigned FlushFileSystem(int file) noexcept {
    return StatusOf(Retry([&] { return ::syncfs(file); }));
}

bool IsOpenDescriptor(int number) noexcept {
    return ::fcntl(number, F_GETFD) >= 0;
}

} // namespace KSYS
