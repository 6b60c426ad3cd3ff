// SPDX-License-Identifier: MIT
#include <cerrno>

#include <fcntl.h>
#include <sys/Retry.h>
#include <sys/files/CallStatus.h>
#include <sys/files/DirectoryEntry.h>
#include <sys/files/FileStatus.h>
#include <sys/files/SecondName.h>
#include <sys/files/WriteReport.h>
#include <sys/files/WriteTracking.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace KSYS {

bool IsPlainFile(const std::string& path, struct stat& status) {
    const auto attributes = [&] {
        const ssize_t bytes = ::llistxattr(path.c_str(), nullptr, 0);
        return bytes < 0 && errno == ENOTSUP ? 0 : bytes;
    };
    return ReadStatus(path, LastLink::Keep, status) == 0 && S_ISREG(status.st_mode) &&
           status.st_nlink == 1 && IsOwn(status) && status.st_gid == ::getegid() &&
           attributes() == 0;
}

bool MakesPlainFiles(const std::string& directory) noexcept {
    KDescriptor opened;
    struct stat status {};
    bool isClosed = false;
    return OpenDirectoryEntry(directory, opened) == 0 &&
           ReadClosedToOthers(opened.Get(), isClosed) == 0 && isClosed &&
           ReadStatus(opened.Get(), status) == 0 && (status.st_mode & S_ISGID) == 0 &&
           ::flistxattr(opened.Get(), nullptr, 0) <= 0;
}

unsigned
LinkAnewAt(int from, const char* file, int directory, const char* name, const char* path) noexcept {
    if (::linkat(from, file, directory, name, 0) != 0) {
        return LastError();
    }
    NoteWrite(path);
    ReportWrite(Written::File, path);
    return 0;
}

} // namespace KSYS
