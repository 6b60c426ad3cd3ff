// SPDX-License-Identifier: MIT
#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/Retry.h>
#include <sys/files/CallStatus.h>
#include <sys/files/FileStatus.h>
#include <sys/files/KFileReplacement.h>

namespace KSYS {

namespace {

/// Whether a failure to put a file beside another means that the other has to be written over.
bool ForbidsRename(unsigned status) noexcept {
    return status == EACCES || status == EPERM || status == EBUSY || status == EXDEV ||
           status == EROFS;
}

unsigned FlushFile(int file) noexcept {
    return Retry([&] { return ::fsync(file); }) == 0 ? 0 : LastError();
}

unsigned FlushDirectory(int file) noexcept {
    const unsigned status = FlushFile(file);
    // Some file systems cannot flush a directory, and say so with these.
    return status == EINVAL || status == EROFS ? 0 : status;
}

} // namespace

FileIdentity FileIdentity::Of(const struct stat& status) noexcept {
    return {status.st_dev, status.st_ino, status.st_size, status.st_mtim};
}

bool operator==(const FileIdentity& left, const FileIdentity& right) noexcept {
    return left.device == right.device && left.inode == right.inode && left.size == right.size &&
           left.changed.tv_sec == right.changed.tv_sec &&
           left.changed.tv_nsec == right.changed.tv_nsec;
}

unsigned ReadFile(const char* path, std::string& bytes, FileIdentity& identity) {
    KDescriptor file;
    struct stat status {};
    if (const unsigned error = OpenRegular(path, file, status); error != 0) {
        return error;
    }
    identity = FileIdentity::Of(status);
    return ReadAll(file.Get(), bytes);
}

KFileReplacement::KFileReplacement(LockPlaces keptIn) : lock(std::move(keptIn)) {}

unsigned KFileReplacement::Take(const char* path) {
    if (const unsigned status = FindPlace(path, LastLink::Follow, place); status != 0) {
        return status;
    }
    directory.Reset(Retry([&] {
        return ::openat(place.directory.Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    }));
    if (!directory.IsOpen() && errno != EACCES) { // one may write where one may not list
        return LastError();
    }
    return lock.Take(directory.IsOpen() ? directory.Get() : place.directory.Get());
}

bool KFileReplacement::IsStill(const FileIdentity& identity) const noexcept {
    struct stat status {};
    const int found =
        ::fstatat(place.directory.Get(), place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW);
    return (found == 0 ? FileIdentity::Of(status) : FileIdentity()) == identity;
}

unsigned KFileReplacement::Read(std::string& bytes, FileIdentity& identity) const {
    constexpr int flags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
    KDescriptor file(Retry([&] {
        return ::openat(place.directory.Get(), place.name.c_str(), flags);
    }));
    struct stat status {};
    if (!file.IsOpen() || ::fstat(file.Get(), &status) != 0) {
        return LastError();
    }
    if (!S_ISREG(status.st_mode)) {
        return S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    }
    identity = FileIdentity::Of(status);
    return ReadAll(file.Get(), bytes);
}

unsigned KFileReplacement::Write(
    const std::string& bytes, unsigned mode, FileIdentity& identity, bool& replaced
) {
    replaced = false;
    struct stat former {};
    const bool exists =
        ::fstatat(place.directory.Get(), place.name.c_str(), &former, AT_SYMLINK_NOFOLLOW) == 0;
    if (exists && !S_ISREG(former.st_mode)) {
        return S_ISDIR(former.st_mode) ? EISDIR : EINVAL;
    }
    unsigned status = WriteBeside(bytes, exists ? &former : nullptr, mode);
    if (exists && ForbidsRename(status)) {
        status = WriteOver(bytes);
    }
    if (status != 0) {
        return status;
    }
    replaced = true;
    struct stat written {};
    if (::fstatat(place.directory.Get(), place.name.c_str(), &written, AT_SYMLINK_NOFOLLOW) != 0) {
        return LastError();
    }
    identity = FileIdentity::Of(written);
    return directory.IsOpen() ? FlushDirectory(directory.Get()) : 0;
}

unsigned
KFileReplacement::WriteBeside(const std::string& bytes, const struct stat* former, unsigned mode) {
    const int at = place.directory.Get();
    const std::string temporary = TemporaryName();
    constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW;
    KDescriptor file(Retry([&] { return ::openat(at, temporary.c_str(), flags, 0600); }));
    if (!file.IsOpen()) {
        return LastError();
    }
    unsigned status = WriteAll(file.Get(), bytes.data(), bytes.size());
    bool isKept = false;
    if (status == 0 && former != nullptr) {
        status = ReadClosedToOthers(at, isKept);
    }
    if (isKept && ::fchown(file.Get(), former->st_uid, former->st_gid) != 0) {
        status = LastError();
    }
    if (former != nullptr) {
        // What others may have laid there makes no rights wider, and hides what it hid.
        mode = former->st_mode & (isKept ? 07777 : mode);
    }
    if (status == 0 && ::fchmod(file.Get(), mode) != 0) {
        status = LastError();
    }
    if (status == 0) {
        status = FlushFile(file.Get());
    }
    if (const unsigned closing = CloseReporting(file); status == 0) {
        status = closing;
    }
    if (status == 0 && ::renameat(at, temporary.c_str(), at, place.name.c_str()) != 0) {
        status = LastError();
    }
    if (status != 0) {
        ::unlinkat(at, temporary.c_str(), 0); // the first failure is what counts
    }
    return status;
}

unsigned KFileReplacement::WriteOver(const std::string& bytes) {
    constexpr int flags = O_WRONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    KDescriptor file(Retry([&] {
        return ::openat(place.directory.Get(), place.name.c_str(), flags);
    }));
    if (!file.IsOpen()) {
        return LastError();
    }
    struct stat found {};
    if (::fstat(file.Get(), &found) != 0 || !S_ISREG(found.st_mode)) {
        return EINVAL;
    }
    // The room first: a disk that is full must be met before the first byte is written over. File
    // systems that cannot promise room say so, and are taken as they are.
    const auto size = static_cast<off_t>(bytes.size());
    int room = 0;
    do { // its error is its answer
        room = size > found.st_size ? ::posix_fallocate(file.Get(), 0, size) : 0;
    } while (room == EINTR);
    if (room != 0 && room != EOPNOTSUPP && room != EINVAL) {
        return static_cast<unsigned>(room);
    }
    unsigned status = WriteAll(file.Get(), bytes.data(), bytes.size());
    // Zeros where the room was taken would be read as the text's last line.
    const off_t whole = status == 0 ? size : found.st_size;
    if (Retry([&] { return ::ftruncate(file.Get(), whole); }) != 0 && status == 0) {
        status = LastError();
    }
    if (status == 0) {
        status = FlushFile(file.Get());
    }
    const unsigned closing = CloseReporting(file);
    return status != 0 ? status : closing;
}

} // namespace KSYS
