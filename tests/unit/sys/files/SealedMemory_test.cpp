// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include <fcntl.h>
#include <sys/files/FileContent.h>
#include <sys/files/SealedMemory.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

TEST(SealedMemoryTest, IsReadAsOftenAsAskedWhereverTheFileStands) {
    const std::string bytes(1 << 20, 'x');
    KSYS::KDescriptor memory;
    ASSERT_EQ(KSYS::MakeSealedMemory("some", bytes, memory), 0U);
    for (int times = 0; times < 2; ++times) {
        std::string read;
        EXPECT_EQ(KSYS::ReadSealedMemory(memory.Get(), read), 0U);
        EXPECT_EQ(read, bytes);
    }
    EXPECT_NE(::fcntl(memory.Get(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST(SealedMemoryTest, NobodyCanChangeIt) {
    KSYS::KDescriptor memory;
    ASSERT_EQ(KSYS::MakeSealedMemory("some", "bytes", memory), 0U);
    EXPECT_EQ(KSYS::WriteAt(memory.Get(), "other", 5, 0), static_cast<unsigned>(EPERM));
    EXPECT_EQ(KSYS::Truncate(memory.Get(), 0), static_cast<unsigned>(EPERM));
    EXPECT_NE(::fcntl(memory.Get(), F_ADD_SEALS, F_SEAL_WRITE), 0);
    std::string read;
    EXPECT_EQ(KSYS::ReadSealedMemory(memory.Get(), read), 0U);
    EXPECT_EQ(read, "bytes");
}

/// As with vm.memfd_noexec, by which kernels from 6.3 on seal against running it, too.
TEST(SealedMemoryTest, ItIsAlsoWithASealOfTheKernels) {
    constexpr unsigned withoutRunning = 8; // MFD_NOEXEC_SEAL, which older headers do not have
    constexpr unsigned flags = MFD_CLOEXEC | MFD_ALLOW_SEALING | withoutRunning;
    const KSYS::KDescriptor memory(::memfd_create("some", flags));
    if (!memory.IsOpen()) {
        GTEST_SKIP() << "this kernel has no seal against running memory (before 6.3)";
    }
    ASSERT_EQ(KSYS::WriteAt(memory.Get(), "bytes", 5, 0), 0U);
    constexpr int seals = F_SEAL_SEAL | F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE;
    ASSERT_EQ(::fcntl(memory.Get(), F_ADD_SEALS, seals), 0);
    std::string read;
    EXPECT_EQ(KSYS::ReadSealedMemory(memory.Get(), read), 0U);
    EXPECT_EQ(read, "bytes");
}

TEST(SealedMemoryTest, NothingElseIs) {
    KTEST::TemporaryTree tree;
    tree.Write("file", "bytes");
    const KSYS::KDescriptor file(::open(tree.Path("file").c_str(), O_RDONLY | O_CLOEXEC));
    const KSYS::KDescriptor unsealed(::memfd_create("some", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    std::string read;
    EXPECT_EQ(KSYS::ReadSealedMemory(file.Get(), read), static_cast<unsigned>(EINVAL));
    EXPECT_EQ(KSYS::ReadSealedMemory(unsealed.Get(), read), static_cast<unsigned>(EINVAL));
    EXPECT_EQ(KSYS::ReadSealedMemory(-1, read), static_cast<unsigned>(EBADF));
    EXPECT_EQ(read, "");
}

} // namespace
