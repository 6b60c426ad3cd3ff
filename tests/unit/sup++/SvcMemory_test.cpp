// SPDX-License-Identifier: MIT
#include "Common.h"

#include <sup++/SvcMemory.h>

#include <cerrno>
#include <cstddef>
#include <thread>

namespace KTEST {
namespace {

constexpr const char* blockTag = "SvcMemoryTest";

class SvcMemoryTest : public testing::Test {
  protected:
    ~SvcMemoryTest() override { Rel_SvcReleaseMemory(memory); }

    void GivenBlock(std::size_t bytes) {
        ASSERT_EQ(Rel_SvcExpandMemory(&memory, bytes, blockTag), 0U);
        for (std::size_t index = 0; index < bytes; ++index) {
            Bytes()[index] = static_cast<unsigned char>(index * 7);
        }
    }
    void ExpectKept(std::size_t bytes) {
        for (std::size_t index = 0; index < bytes; ++index) {
            ASSERT_EQ(Bytes()[index], static_cast<unsigned char>(index * 7)) << index;
        }
    }
    unsigned char* Bytes() { return static_cast<unsigned char*>(memory); }
    std::size_t Size() {
        std::size_t bytes = 12345;
        EXPECT_EQ(SvcGetMemorySizeEx(memory, &bytes), 0U);
        return bytes;
    }

    void* memory = nullptr;
};

TEST_F(SvcMemoryTest, ExpandingNothingMakesABlock) {
    GivenBlock(100);
    ASSERT_NE(memory, nullptr);
    EXPECT_GE(Size(), 100U);
}

TEST_F(SvcMemoryTest, BlocksAreAlignedForAnyType) {
    for (const std::size_t bytes : {1U, 7U, 33U, 1000U}) {
        void* block = nullptr;
        ASSERT_EQ(Rel_SvcExpandMemory(&block, bytes, blockTag), 0U);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % alignof(std::max_align_t), 0U);
        Rel_SvcReleaseMemory(block);
    }
}

TEST_F(SvcMemoryTest, ExpandingKeepsTheContents) {
    GivenBlock(100);
    ASSERT_EQ(Rel_SvcExpandMemory(&memory, 100000, blockTag), 0U);
    EXPECT_GE(Size(), 100000U);
    ExpectKept(100);
    Bytes()[99999] = 1;
}

TEST_F(SvcMemoryTest, ExpandingNeverShrinks) {
    GivenBlock(1000);
    const std::size_t before = Size();
    ASSERT_EQ(Rel_SvcExpandMemory(&memory, 10, blockTag), 0U);
    EXPECT_EQ(Size(), before);
    ExpectKept(1000);
}

TEST_F(SvcMemoryTest, ExpandingByteByByteKeepsEverything) {
    GivenBlock(1);
    for (std::size_t bytes = 2; bytes <= 3000; ++bytes) {
        ASSERT_EQ(Rel_SvcExpandMemory(&memory, bytes, blockTag), 0U);
        Bytes()[bytes - 1] = static_cast<unsigned char>((bytes - 1) * 7);
    }
    ExpectKept(3000);
}

TEST_F(SvcMemoryTest, ResizingMakesABlockExactlyAsLong) {
    GivenBlock(100);
    ASSERT_EQ(Rel_SvcResizeMemory(&memory, 37), 0U);
    EXPECT_EQ(Size(), 37U);
    ExpectKept(37);
    ASSERT_EQ(Rel_SvcResizeMemory(&memory, 5000), 0U);
    EXPECT_EQ(Size(), 5000U);
    ExpectKept(37);
    Bytes()[4999] = 1;
}

TEST_F(SvcMemoryTest, NoMemoryLeavesTheOldBlock) {
    GivenBlock(50);
    const void* before = memory;
    for (const std::size_t bytes : {SIZE_MAX, SIZE_MAX - 8, SIZE_MAX / 4 * 3}) {
        EXPECT_EQ(Rel_SvcExpandMemory(&memory, bytes, blockTag), unsigned{ENOMEM});
        EXPECT_EQ(Rel_SvcResizeMemory(&memory, bytes), unsigned{ENOMEM});
        EXPECT_EQ(memory, before);
    }
    ExpectKept(50);
}

TEST_F(SvcMemoryTest, NoMemoryLeavesANullPointer) {
    EXPECT_EQ(Rel_SvcExpandMemory(&memory, SIZE_MAX / 4 * 3, blockTag), unsigned{ENOMEM});
    EXPECT_EQ(memory, nullptr);
}

TEST_F(SvcMemoryTest, NullArgumentsAreRefused) {
    EXPECT_EQ(Rel_SvcExpandMemory(nullptr, 10, blockTag), 36U);
    EXPECT_EQ(Rel_SvcResizeMemory(nullptr, 10), 36U);
    EXPECT_EQ(SvcGetMemorySizeEx("x", nullptr), 36U);
}

TEST_F(SvcMemoryTest, NothingHasNoSizeAndCanBeReleased) {
    EXPECT_EQ(Size(), 0U);
    EXPECT_EQ(Rel_SvcReleaseMemory(nullptr), 0U);
}

TEST_F(SvcMemoryTest, ABlockIsReleasedOnAnotherThread) {
    GivenBlock(100);
    unsigned status = 1;
    std::thread([&] { status = Rel_SvcReleaseMemory(memory); }).join();
    memory = nullptr;
    EXPECT_EQ(status, 0U);
}

} // namespace
} // namespace KTEST
