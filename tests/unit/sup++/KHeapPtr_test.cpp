// SPDX-License-Identifier: MIT
#include "Common.h"

#include <sup++/KHeapPtr.h>

#include <new>
#include <stdexcept>
#include <type_traits>

namespace KTEST {
namespace {

using Buffer = KSUP::KHeapPtr<unsigned char>;

Buffer BufferOf(const std::string& bytes) {
    return Buffer(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), "test");
}

std::string BytesOf(const Buffer& buffer) {
    return {reinterpret_cast<const char*>(buffer.GetData()), buffer.GetCount()};
}

TEST(KHeapPtrTest, BeginsEmpty) {
    const Buffer buffer;
    EXPECT_EQ(buffer.GetCount(), 0U);
    EXPECT_EQ(buffer.GetData(), nullptr);
}

TEST(KHeapPtrTest, AppendsAtTheEnd) {
    Buffer buffer = BufferOf("abc");
    const unsigned char more[] = {'d', 0, 'e'};
    buffer.Append(more, 3);
    EXPECT_EQ(BytesOf(buffer), std::string("abcd\0e", 6));
}

TEST(KHeapPtrTest, AppendsNothing) {
    Buffer buffer = BufferOf("abc");
    buffer.Append(nullptr, 0);
    EXPECT_EQ(BytesOf(buffer), "abc");
}

TEST(KHeapPtrTest, CountsValuesNotBytes) {
    const std::uint32_t values[] = {1, 2, 0xFFFFFFFFU};
    const KSUP::KHeapPtr<std::uint32_t> buffer(values, 3, "test");
    EXPECT_EQ(buffer.GetCount(), 3U);
    EXPECT_EQ(buffer[2], 0xFFFFFFFFU);
}

TEST(KHeapPtrTest, KeepsManyAppends) {
    Buffer buffer;
    std::string expected;
    for (unsigned step = 0; step < 5000; ++step) {
        const auto value = static_cast<unsigned char>(step * 31);
        buffer.Append(&value, 1);
        expected += static_cast<char>(value);
    }
    EXPECT_EQ(BytesOf(buffer), expected);
}

TEST(KHeapPtrTest, AppendsItsOwnValues) {
    KSUP::KHeapPtr<unsigned> buffer;
    for (unsigned value = 0; value < 1000; ++value) {
        buffer.Append(&value, 1);
    }
    for (int times = 0; times < 8; ++times) { // the block moves
        buffer.Append(&buffer[0], buffer.GetCount());
    }
    ASSERT_EQ(buffer.GetCount(), 256000U);
    EXPECT_EQ(buffer[255999], 999U);
    EXPECT_EQ(buffer[1000], 0U);
}

TEST(KHeapPtrTest, MoreThanThereCanBeIsAnError) {
    KSUP::KHeapPtr<unsigned> buffer;
    const unsigned value = 7;
    buffer.Append(&value, 1);
    EXPECT_THROW(buffer.Append(&value, ~std::size_t{0} / sizeof(unsigned)), std::bad_alloc);
    EXPECT_EQ(buffer.GetCount(), 1U);
}

TEST(KHeapPtrTest, ShrinksAndNeverGrowsByIt) {
    Buffer buffer = BufferOf("abcdef");
    buffer.Shrink(9);
    EXPECT_EQ(BytesOf(buffer), "abcdef");
    buffer.Shrink(2);
    EXPECT_EQ(BytesOf(buffer), "ab");
    buffer.Append(reinterpret_cast<const unsigned char*>("z"), 1);
    EXPECT_EQ(BytesOf(buffer), "abz");
    buffer.Shrink(0);
    EXPECT_EQ(buffer.GetCount(), 0U);
}

TEST(KHeapPtrTest, ChecksTheIndex) {
    Buffer buffer = BufferOf("ab");
    EXPECT_EQ(buffer[0], 'a');
    EXPECT_EQ(buffer[1], 'b');
    EXPECT_THROW(static_cast<void>(buffer[2]), std::out_of_range);
    EXPECT_THROW(static_cast<void>(buffer[SIZE_MAX]), std::out_of_range);
    buffer.Shrink(1);
    EXPECT_THROW(static_cast<void>(buffer[1]), std::out_of_range);
}

TEST(KHeapPtrTest, ACopyHasItsOwnBytes) {
    Buffer original = BufferOf("abc");
    Buffer copy(original);
    EXPECT_NE(copy.GetData(), original.GetData());
    original.Append(reinterpret_cast<const unsigned char*>("d"), 1);
    EXPECT_EQ(BytesOf(copy), "abc");
    copy = original;
    EXPECT_EQ(BytesOf(copy), "abcd");
    EXPECT_NE(copy.GetData(), original.GetData());
}

TEST(KHeapPtrTest, AMoveTakesTheBytes) {
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<Buffer>);
    Buffer original = BufferOf("abc");
    const unsigned char* bytes = original.GetData();
    Buffer moved(std::move(original));
    EXPECT_EQ(moved.GetData(), bytes);
    Buffer assigned = BufferOf("former");
    assigned = std::move(moved);
    EXPECT_EQ(BytesOf(assigned), "abc");
}

TEST(KHeapPtrTest, SurvivesAssignmentToItself) {
    Buffer buffer = BufferOf("abc");
    Buffer& same = buffer;
    buffer = same;
    EXPECT_EQ(BytesOf(buffer), "abc");
    buffer = std::move(same);
    EXPECT_EQ(BytesOf(buffer), "abc");
}

TEST(KHeapPtrTest, ComparesValues) {
    EXPECT_TRUE(BufferOf("abc") == BufferOf("abc"));
    EXPECT_TRUE(BufferOf("abc") != BufferOf("abd"));
    EXPECT_TRUE(BufferOf("abc") != BufferOf("ab"));
    EXPECT_TRUE(BufferOf("") == Buffer());
}

TEST(KHeapPtrTest, MissingMemoryLeavesItAsItWas) {
    Buffer buffer = BufferOf("abc");
    EXPECT_THROW(buffer.Append(buffer.GetData(), SIZE_MAX / 4 * 3), std::bad_alloc);
    EXPECT_EQ(BytesOf(buffer), "abc");
}

} // namespace
} // namespace KTEST
