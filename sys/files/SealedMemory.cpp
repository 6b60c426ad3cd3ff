// SPDX-License-Identifier: MIT
#include <cerrno>

#include <fcntl.h>
#include <sys/files/FileCalls.h>
#include <sys/files/FileContent.h>
#include <sys/files/FileStatus.h>
#include <sys/files/SealedMemory.h>
#include <sys/mman.h>

namespace KSYS {

namespace {

constexpr int allSeals = F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;

} // namespace

unsigned MakeSealedMemory(const char* name, std::string_view bytes, KDescriptor& memory) noexcept {
    KDescriptor made(::memfd_create(name, MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!made.IsOpen()) {
        return static_cast<unsigned>(errno);
    }
    const unsigned failed = WriteAll(made.Get(), bytes.data(), bytes.size());
    if (failed != 0) {
        return failed;
    }
    if (::fcntl(made.Get(), F_ADD_SEALS, allSeals) != 0) {
        return static_cast<unsigned>(errno);
    }
    memory = std::move(made);
    return 0;
}

unsigned ReadSealedMemory(int file, std::string& bytes) {
    const int seals = ::fcntl(file, F_GET_SEALS);
    if (seals < 0) {
        return static_cast<unsigned>(errno);
    }
    struct stat status {};
    if ((seals & allSeals) != allSeals) { // newer kernels may add one against running it
        return EINVAL;
    }
    if (const unsigned failed = ReadStatus(file, status); failed != 0) {
        return failed;
    }
    bytes.resize(static_cast<std::size_t>(status.st_size));
    std::size_t have = 0;
    for (std::size_t count = 1; have < bytes.size() && count != 0; have += count) {
        const unsigned failed =
            ReadAt(file, bytes.data() + have, bytes.size() - have, static_cast<off_t>(have), count);
        if (failed != 0) {
            return failed;
        }
    }
    return 0;
}

} // namespace KSYS
