// SPDX-License-Identifier: MIT
#include <cerrno>

#include <fcntl.h>
#include <sys/files/FileData.h>
#include <sys/files/KDescriptor.h>
#include <sys/stat.h>
#include <unistd.h>

namespace KSYS {

namespace {

constexpr std::uint64_t blockOfStatus = 512; // in which st_blocks counts

std::uint64_t WholeBlocks(std::uint64_t bytes, std::uint64_t block) noexcept {
    return block == 0 ? bytes : (bytes + block - 1) / block * block;
}

} // namespace

unsigned ReadDataBytes(const char* path, std::uint64_t blockBytes, std::uint64_t& bytes) noexcept {
    const KDescriptor file(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (!file.IsOpen() || ::fstat(file.Get(), &status) != 0) {
        return static_cast<unsigned>(errno);
    }
    if (!S_ISREG(status.st_mode)) {
        return EINVAL;
    }
    const auto size = static_cast<std::uint64_t>(status.st_size);
    bytes = WholeBlocks(size, blockBytes);
    if (static_cast<std::uint64_t>(status.st_blocks) * blockOfStatus >= size) {
        return 0; // it has no holes
    }
    std::uint64_t data = 0;
    off_t end = 0;
    while (end < status.st_size) {
        const off_t begin = ::lseek(file.Get(), end, SEEK_DATA);
        if (begin < 0 && errno == ENXIO) {
            break; // a hole to its end
        }
        end = begin < 0 ? begin : ::lseek(file.Get(), begin, SEEK_HOLE);
        if (end < 0) {
            return 0; // a file system that cannot tell: all of it counts
        }
        data += WholeBlocks(static_cast<std::uint64_t>(end - begin), blockBytes);
    }
    bytes = data;
    return 0;
}

} // namespace KSYS
