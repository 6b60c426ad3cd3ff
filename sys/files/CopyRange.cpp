// SPDX-License-Identifier: MIT
//
// Copying between open files, piece by piece.
#include <algorithm>
#include <array>
#include <cerrno>

#include <sys/Retry.h>
#include <sys/files/CallStatus.h>
#include <sys/files/FileCalls.h>
#include <unistd.h>

namespace KSYS {

namespace {

ssize_t CopyThroughBuffer(int from, long long offset, int to, std::size_t length) noexcept {
    std::array<char, 65536> buffer; // filled before it is read
    const std::size_t most = length < buffer.size() ? length : buffer.size();
    const ssize_t bytes = Retry([&] { return ::pread(from, buffer.data(), most, offset); });
    if (bytes > 0) {
        const unsigned status = WriteAll(to, buffer.data(), static_cast<std::size_t>(bytes));
        if (status != 0) {
            errno = static_cast<int>(status);
            return -1;
        }
    }
    return bytes;
}

/// Whether a file has a hole there; `length` becomes how long it is, or how far the bytes go, but no
/// more than it was. What cannot be told counts as bytes.
bool IsHole(int file, off_t offset, std::size_t& length) noexcept {
    const off_t bytes = ::lseek(file, offset, SEEK_DATA);
    if (bytes < 0) { // none are left; or the file is shorter by now
        struct stat status {};
        return errno == ENXIO && ::fstat(file, &status) == 0 &&
               status.st_size - offset >= static_cast<off_t>(length);
    }
    const off_t end = bytes > offset ? bytes : ::lseek(file, offset, SEEK_HOLE);
    if (end > offset) {
        length = std::min(length, static_cast<std::size_t>(end - offset));
    }
    return bytes > offset;
}

unsigned AppendHole(int file, std::size_t length) noexcept {
    const off_t end = ::lseek(file, static_cast<off_t>(length), SEEK_CUR);
    return end >= 0 && Retry([&] { return ::ftruncate(file, end); }) == 0 ? 0 : LastError();
}

bool IsRefusal(int error) noexcept {
    return error == EXDEV || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP;
}

} // namespace

unsigned CopyRange(
    int from, unsigned long long offset, int to, std::size_t length, bool& byKernel
) noexcept {
    auto position = static_cast<off64_t>(offset);
    while (length > 0) {
        ssize_t copied = 0;
        if (byKernel) {
            off64_t at = position;
            copied = Retry([&] { return ::copy_file_range(from, &at, to, nullptr, length, 0); });
            // Some file systems answer 0 for files that have content: reading decides.
            if (copied == 0 || (copied < 0 && IsRefusal(errno))) {
                byKernel = false;
                continue;
            }
        } else {
            copied = CopyThroughBuffer(from, position, to, length);
        }
        if (copied <= 0) {
            return copied == 0 ? ENODATA : LastError();
        }
        position += copied;
        length -= static_cast<std::size_t>(copied);
    }
    return 0;
}

bool MayHaveHoles(const struct stat& status) noexcept {
    constexpr off_t smallestHole = 4096;
    constexpr off_t unit = 512; // of st_blocks, stat(2)
    return status.st_size > smallestHole && status.st_blocks * unit < status.st_size;
}

unsigned CopyRangeWithHoles(
    int from, unsigned long long offset, int to, std::size_t length, bool& byKernel
) noexcept {
    unsigned status = 0;
    while (status == 0 && length > 0) {
        std::size_t step = length;
        status = IsHole(from, static_cast<off_t>(offset), step)
                     ? AppendHole(to, step)
                     : CopyRange(from, offset, to, step, byKernel);
        offset += step;
        length -= step;
    }
    return status;
}

} // namespace KSYS
