// SPDX-License-Identifier: MIT
#include <setup/files/WriteAll.h>
#include <setup/state/CopyFile.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace KSETUP {

namespace {

constexpr std::size_t chunkBytes = std::size_t{1} << 20U;

int CopyByReading(int source, int target) noexcept {
    std::vector<char> chunk(chunkBytes);
    for (;;) {
        const ssize_t count = ::read(source, chunk.data(), chunk.size());
        if (count == 0) {
            return 0;
        }
        if (count < 0) {
            if (errno != EINTR) {
                return errno;
            }
            continue;
        }
        if (const int status = WriteAll(target, {chunk.data(), static_cast<std::size_t>(count)});
            status != 0) {
            return status;
        }
    }
}

} // namespace

int CopyContent(int source, int target, CopyWay way) noexcept {
    // The old style of the kernel's macro warns: its cast is not ours.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wold-style-cast"
    const bool reflinked = ::ioctl(target, FICLONE, source) == 0;
#pragma GCC diagnostic pop
    if (reflinked || way == CopyWay::ReflinkOnly) {
        return reflinked ? 0 : errno;
    }
    return CopyByReading(source, target);
}

int CopyExtendedAttributes(int source, int target) {
    const ssize_t bytes = ::flistxattr(source, nullptr, 0);
    if (bytes <= 0) {
        return bytes == 0 || errno == ENOTSUP ? 0 : errno;
    }
    std::vector<char> names(static_cast<std::size_t>(bytes) + 1);
    const ssize_t listed = ::flistxattr(source, names.data(), names.size() - 1);
    for (ssize_t at = 0; at < listed;) {
        const char* const name = names.data() + at;
        at += static_cast<ssize_t>(std::strlen(name)) + 1;
        const ssize_t size = ::fgetxattr(source, name, nullptr, 0);
        if (size < 0) {
            return errno;
        }
        std::vector<char> value(static_cast<std::size_t>(size) + 1);
        const ssize_t read = ::fgetxattr(source, name, value.data(), value.size() - 1);
        if (read < 0) {
            return errno;
        }
        if (::fsetxattr(target, name, value.data(), static_cast<std::size_t>(read), 0) != 0 &&
            errno != ENOTSUP) {
            return errno;
        }
    }
    return 0;
}

} // namespace KSETUP
