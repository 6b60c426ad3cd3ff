// SPDX-License-Identifier: MIT
#include <setup/script/ScriptText.h>

#include <gtest/gtest.h>

namespace {

using KSETUP::Lowered;
using KSETUP::Trimmed;

TEST(TrimmedTest, BlanksAtBothEndsAreGone) {
    EXPECT_EQ(Trimmed(" \ta b\t "), "a b");
    EXPECT_EQ(Trimmed("ab"), "ab");
    EXPECT_EQ(Trimmed(" \t "), "");
    EXPECT_EQ(Trimmed(""), "");
}

TEST(TrimmedTest, OnlyTheNamedBlanksAreTakenOff) {
    EXPECT_EQ(Trimmed("a\r"), "a\r");
    EXPECT_EQ(Trimmed(" a\r", " \r"), "a");
}

TEST(LoweredTest, OnlyLettersOfAsciiAreLowered) {
    EXPECT_EQ(Lowered("Remove_FILE1"), "remove_file1");
    EXPECT_EQ(Lowered("\xC3\x84"), "\xC3\x84");
}

} // namespace
