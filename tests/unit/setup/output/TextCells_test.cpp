// SPDX-License-Identifier: MIT
#include <setup/output/TextCells.h>

#include <gtest/gtest.h>

namespace {

using KSETUP::FirstCells;
using KSETUP::LastCells;
using KSETUP::TextCells;

// Two letters of Chinese, and an e with an accent of its own.
constexpr const char* wide = "\xE4\xB8\xAD\xE6\x96\x87";
constexpr const char* accented = "e\xCC\x81";

TEST(TextCellsTest, LettersAreCountedByTheirCells) {
    EXPECT_EQ(TextCells("abc"), 3U);
    EXPECT_EQ(TextCells(wide), 4U);
    EXPECT_EQ(TextCells(accented), 1U);
    EXPECT_EQ(TextCells(""), 0U);
}

TEST(TextCellsTest, NoLetterIsCutThrough) {
    EXPECT_EQ(FirstCells(wide, 3), "\xE4\xB8\xAD");
    EXPECT_EQ(LastCells(wide, 3), "\xE6\x96\x87");
    EXPECT_EQ(FirstCells(std::string(accented) + "x", 1), accented);
    EXPECT_EQ(LastCells(std::string("a") + accented, 1), accented);
    EXPECT_EQ(LastCells(std::string(accented) + "x", 1), "x"); // and no accent of nothing
}

TEST(TextCellsTest, WhatFitsStaysAsItIs) {
    EXPECT_EQ(FirstCells("abc", 3), "abc");
    EXPECT_EQ(LastCells("abc", 80), "abc");
    EXPECT_EQ(FirstCells("abc", 0), "");
}

} // namespace
