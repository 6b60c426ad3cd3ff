// SPDX-License-Identifier: MIT
#include <cerrno>
#include <cstring>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/Retry.h>
#include <sys/files/CallStatus.h>
#include <sys/files/DirectoryEntry.h>
#include <sys/files/FileCalls.h>
#include <sys/files/FileStatus.h>
#include <sys/files/WriteReport.h>
#include <sys/files/WriteTracking.h>

namespace KSYS {

namespace {

constexpr int makeNew = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY;

unsigned OpenAt(const Place& place, int flags, unsigned mode, KDescriptor& file) noexcept {
    file.Reset(Retry([&] {
        return ::openat(place.directory.Get(), place.name.c_str(), flags, mode);
    }));
    return file.IsOpen() ? 0 : LastError();
}

unsigned StatAt(const Place& place, struct stat& status) noexcept {
    const int directory = place.directory.Get();
    return ::fstatat(directory, place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0
               ? 0
               : LastError();
}

unsigned KindError(const struct stat& status) noexcept {
    return S_ISREG(status.st_mode) ? 0U : S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
}

bool NamesDirectory(const char* path) noexcept {
    const std::size_t size = path != nullptr ? std::strlen(path) : 0;
    return size > 0 && path[size - 1] == '/';
}

/// One attempt to put a new file in the place of a regular one; ELOOP for a link. `isUnlinked` is set
/// once the former one is gone.
unsigned TryToReplace(
    int directory, const char* name, unsigned mode, KDescriptor& file, bool& isUnlinked
) noexcept {
    const auto make = [&] {
        file.Reset(Retry([&] { return ::openat(directory, name, makeNew, mode); }));
        return file.IsOpen() ? 0 : LastError();
    };
    struct stat former {};
    if (::fstatat(directory, name, &former, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno == ENOENT ? make() : LastError();
    }
    unsigned status = S_ISLNK(former.st_mode) ? ELOOP : KindError(former);
    if (status == 0 && ::unlinkat(directory, name, 0) != 0) {
        status = LastError();
    }
    if (status == 0) {
        isUnlinked = true;
        status = make();
    }
    // Else whoever lays a file there would own what root puts in its place.
    bool isKept = false;
    if (status == 0) {
        status = ReadClosedToOthers(directory, isKept);
    }
    if (isKept && ::fchown(file.Get(), former.st_uid, former.st_gid) != 0) {
        status = LastError();
    }
    return status;
}

unsigned ReplaceRegular(
    int directory, const char* name, unsigned mode, KDescriptor& file, bool& isUnlinked
) noexcept {
    unsigned status = EEXIST;
    // Somebody may lay a file there between unlink and open; not for ever.
    for (int tries = 8; status == EEXIST && tries > 0; --tries) {
        status = TryToReplace(directory, name, mode, file, isUnlinked);
    }
    return status;
}

unsigned
ReplaceAt(const char* path, LastLink last, unsigned mode, KDescriptor& file, bool& isUnlinked) {
    Place place;
    const unsigned status = FindPlace(path, last, place);
    if (status != 0) {
        return status;
    }
    return ReplaceRegular(place.directory.Get(), place.name.c_str(), mode, file, isUnlinked);
}

/// Tells what became of the path, also when the call failed halfway: a former file may be gone, or
/// a new one be left without its owner.
void NoteCreation(const char* path, const KDescriptor& file, bool isUnlinked) noexcept {
    if (file.IsOpen() || isUnlinked) {
        NoteWrite(path);
        ReportWrite(file.IsOpen() ? Written::File : Written::FileDeleted, path);
    }
}

bool IsEmpty(int directory) {
    std::vector<std::string> names;
    return ListEntries({directory, "."}, names) == 0 && names.empty();
}

/// mkdir(2) obeys the umask, which of the caller's settings must not reach an installed product.
unsigned AddModeBits(const Place& place, unsigned mode) {
    // By descriptor: in a directory that others may write, the name may be another's by now, or that
    // of another directory of root's, which is not empty.
    KDescriptor made;
    struct stat status {};
    constexpr int asDirectory = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    if (const unsigned error = OpenAt(place, asDirectory, 0, made); error != 0) {
        return error;
    }
    if (::fstat(made.Get(), &status) != 0) {
        return LastError();
    }
    if ((status.st_mode & mode) == mode || !IsOwn(status)) {
        return 0;
    }
    bool isSurelyIt = false;
    if (const unsigned error = ReadClosedToOthers(place.directory.Get(), isSurelyIt); error != 0) {
        return error;
    }
    if (!isSurelyIt && !IsEmpty(made.Get())) {
        return 0;
    }
    // Added to what the kernel gave, so that an inherited set-group-id bit stays.
    const int result = ::fchmod(made.Get(), (status.st_mode & 07777) | mode);
    return result == 0 ? 0 : LastError();
}

/// 0 when a directory stands at the path, or a trusted link to one.
unsigned IsDirectory(const char* path) {
    Place place;
    struct stat status {};
    unsigned error = FindPlace(path, LastLink::Follow, place);
    if (error == 0) {
        error = StatAt(place, status);
    }
    return error != 0 ? error : S_ISDIR(status.st_mode) ? 0U : EEXIST;
}

bool HasMode(const Place& place, unsigned mode) noexcept {
    struct stat status {};
    return StatAt(place, status) == 0 && (status.st_mode & 07777) == mode;
}

std::string WithoutEndSeparators(const char* path) {
    std::string bare(path);
    while (bare.size() > 1 && bare.back() == '/') {
        bare.pop_back();
    }
    return bare;
}

std::string ParentOf(const char* path) {
    const std::string parent = WithoutEndSeparators(path);
    const std::size_t slash = parent.rfind('/');
    return slash == std::string::npos ? std::string() : parent.substr(0, slash == 0 ? 1 : slash);
}

} // namespace

unsigned OpenRegular(const char* path, KDescriptor& file, struct stat& status) noexcept {
    return OpenRegularAt(AT_FDCWD, path, file, status);
}

unsigned
OpenRegularAt(int directory, const char* name, KDescriptor& file, struct stat& status) noexcept {
    // Not blocking: a FIFO without a writer would hang here before it can be refused.
    constexpr int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    file.Reset(Retry([&] { return ::openat(directory, name, flags); }));
    if (!file.IsOpen() || ::fstat(file.Get(), &status) != 0) {
        return LastError();
    }
    const unsigned error = KindError(status);
    if (error != 0) {
        file.Reset();
    }
    return error;
}

unsigned OpenDirectory(const char* path, KDescriptor& directory) noexcept {
    directory.Reset(Retry([&] { return ::open(path, O_PATH | O_DIRECTORY | O_CLOEXEC); }));
    return directory.IsOpen() ? 0 : LastError();
}

unsigned OpenPlace(const char* path, KDescriptor& directory) noexcept {
    try {
        Place place;
        const unsigned status = FindPlace(path, LastLink::Keep, place);
        directory = std::move(place.directory);
        return status;
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
}

unsigned CreateAnewAt(
    int directory, const char* name, const char* path, unsigned mode, KDescriptor& file
) noexcept {
    file.Reset(Retry([&] { return ::openat(directory, name, makeNew, mode); }));
    unsigned status = file.IsOpen() ? 0 : LastError();
    bool isUnlinked = false;
    if (status == EEXIST) {
        status = ReplaceRegular(directory, name, mode, file, isUnlinked);
    }
    NoteCreation(path, file, isUnlinked);
    return status;
}

unsigned CreateAnew(const char* path, unsigned mode, KDescriptor& file) {
    if (NamesDirectory(path)) {
        return EISDIR;
    }
    bool isUnlinked = false;
    unsigned status = OpenWithoutLinks(path, makeNew, mode, file);
    if (status == EEXIST || status == ELOOP) {
        status = ReplaceAt(path, LastLink::Keep, mode, file, isUnlinked);
        if (status == ELOOP) {
            status = ReplaceAt(path, LastLink::Follow, mode, file, isUnlinked);
        }
    }
    NoteCreation(path, file, isUnlinked);
    return status;
}

unsigned OpenForAppend(const char* path, unsigned mode, KDescriptor& file) {
    Place place;
    if (NamesDirectory(path)) {
        return EISDIR;
    }
    unsigned status = FindPlace(path, LastLink::Keep, place);
    if (status != 0) {
        return status;
    }
    status = OpenAt(place, makeNew | O_APPEND, mode, file);
    if (status == 0) {
        return ::fchmod(file.Get(), mode) == 0 ? 0 : LastError(); // whatever the umask
    }
    if (status == EEXIST) {
        struct stat found {};
        constexpr int existing =
            O_WRONLY | O_APPEND | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
        status = OpenAt(place, existing, 0, file);
        if (status == 0) {
            status = ::fstat(file.Get(), &found) == 0 ? KindError(found) : LastError();
            // Neither somebody else's file nor one that has another name too.
            if (status == 0 && (found.st_uid != ::geteuid() || found.st_nlink > 1)) {
                status = EPERM;
            }
        } else if (status == ENXIO) { // a FIFO that nobody reads
            status = EINVAL;
        }
    }
    return status;
}

unsigned WriteAll(int file, const char* bytes, std::size_t byteCount) noexcept {
    while (byteCount > 0) {
        const ssize_t written = Retry([&] { return ::write(file, bytes, byteCount); });
        if (written <= 0) { // no error and no step: it would go on for ever
            return written < 0 ? LastError() : EIO;
        }
        bytes += written;
        byteCount -= static_cast<std::size_t>(written);
    }
    return 0;
}

unsigned ReadAll(int file, std::string& bytes) {
    struct stat status {};
    if (::fstat(file, &status) != 0) {
        return LastError();
    }
    // One byte more than expected: the read that finds the end needs room.
    bytes.resize(static_cast<std::size_t>(status.st_size) + 1);
    std::size_t filled = 0;
    while (true) {
        const ssize_t got =
            Retry([&] { return ::read(file, bytes.data() + filled, bytes.size() - filled); });
        if (got < 0) {
            return LastError();
        }
        if (got == 0) {
            bytes.resize(filled);
            return 0;
        }
        filled += static_cast<std::size_t>(got);
        if (filled == bytes.size()) {
            bytes.resize(bytes.size() * 2);
        }
    }
}

unsigned CloseReporting(KDescriptor& file) noexcept {
    // Not repeated when interrupted: on Linux the descriptor is gone by then (close(2)).
    return ::close(file.Release()) == 0 || errno == EINTR ? 0 : LastError();
}

unsigned Unlink(const char* path) {
    Place place;
    if (NamesDirectory(path)) {
        return EISDIR;
    }
    if (const unsigned status = FindPlace(path, LastLink::Keep, place); status != 0) {
        return status;
    }
    if (::unlinkat(place.directory.Get(), place.name.c_str(), 0) != 0) {
        return LastError();
    }
    NoteWrite(path);
    ReportWrite(Written::FileDeleted, path);
    return 0;
}

unsigned MakeDirectory(const char* path, unsigned mode, bool withParents) {
    Place place;
    unsigned status = FindPlace(path, LastLink::Keep, place);
    if (status == ENOENT && withParents) {
        const std::string parent = ParentOf(path);
        if (parent.empty()) {
            return status;
        }
        status = MakeDirectory(parent.c_str(), mode, true);
        if (status == 0) {
            status = FindPlace(path, LastLink::Keep, place);
        }
    }
    if (status != 0) {
        return status;
    }
    const std::string bare = WithoutEndSeparators(path);
    if (::mkdirat(place.directory.Get(), place.name.c_str(), mode) != 0) {
        return errno == EEXIST ? IsDirectory(path) : LastError();
    }
    NoteWrite(path);
    status = AddModeBits(place, mode);
    ReportWrite(Written::Directory, bare.c_str());
    return status;
}

unsigned RemoveDirectory(const char* path) {
    Place place;
    if (const unsigned status = FindPlace(path, LastLink::Keep, place); status != 0) {
        return status;
    }
    const std::string bare = WithoutEndSeparators(path);
    if (::unlinkat(place.directory.Get(), place.name.c_str(), AT_REMOVEDIR) != 0) {
        return LastError();
    }
    NoteWrite(bare.c_str()); // the directory itself is gone
    ReportWrite(Written::DirectoryDeleted, bare.c_str());
    return 0;
}

unsigned MakeLink(const char* target, const char* path) {
    Place place;
    if (NamesDirectory(path)) {
        return EISDIR;
    }
    if (const unsigned status = FindPlace(path, LastLink::Keep, place); status != 0) {
        return status;
    }
    const int directory = place.directory.Get();
    NoteWrite(path);
    if (::symlinkat(target, directory, place.name.c_str()) == 0) {
        ReportWrite(Written::Link, path);
        return 0;
    }
    struct stat former {};
    if (errno != EEXIST) {
        return LastError();
    }
    if (const unsigned status = StatAt(place, former); status != 0) {
        return status;
    }
    if (!S_ISLNK(former.st_mode)) {
        return EEXIST;
    }
    const std::string temporary = TemporaryName();
    if (::symlinkat(target, directory, temporary.c_str()) != 0) {
        return LastError();
    }
    if (::renameat(directory, temporary.c_str(), directory, place.name.c_str()) != 0) {
        const unsigned status = LastError();
        ::unlinkat(directory, temporary.c_str(), 0); // the rename's failure is what counts
        return status;
    }
    ReportWrite(Written::Link, path);
    return 0;
}

unsigned ChangeMode(const char* path, unsigned mode) {
    Place place;
    if (const unsigned status = FindPlace(path, LastLink::Follow, place); status != 0) {
        return status;
    }
    const bool isChange = IsReportingWrites() && !HasMode(place, mode & 07777);
    const int result =
        ::fchmodat(place.directory.Get(), place.name.c_str(), mode & 07777, AT_SYMLINK_NOFOLLOW);
    const unsigned status = result == 0 ? 0 : LastError();
    NoteWrite(path);
    if (status == 0 && isChange) {
        ReportWrite(Written::Mode, path);
    }
    return status;
}

} // namespace KSYS
