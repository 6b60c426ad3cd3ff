// SPDX-License-Identifier: MIT
#include "../../../support/NameOfRow.h"

#include <setup/output/KWordWrap.h>

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace {

struct Row {
    const char* name;
    const char* text;
    const char* wrapped;

    friend void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }
};

class WrappedTextTest : public ::testing::TestWithParam<Row> {};

TEST_P(WrappedTextTest, TakesTwentyColumns) {
    EXPECT_EQ(KSETUP::WrapWords(GetParam().text, 20), GetParam().wrapped);
}

TEST_P(WrappedTextTest, IsTheSameLetterByLetter) {
    KSETUP::KWordWrap wrap(20);
    std::string wrapped;
    for (const char* at = GetParam().text; *at != '\0';) {
        const std::size_t size = static_cast<unsigned char>(*at) < 0xC0 ? 1 : 2;
        wrapped += wrap.Take({at, size});
        at += size;
    }
    EXPECT_EQ(wrapped + wrap.Flush(), GetParam().wrapped);
}

INSTANTIATE_TEST_SUITE_P(
    Texts,
    WrappedTextTest,
    ::testing::Values(
        Row{"Empty", "", ""},
        Row{"Fits", "one two three four 5\n", "one two three four 5\n"},
        Row{"IsOneTooLong", "one two three four 56\n", "one two three four\n56\n"},
        Row{"LettersAreCells", "größe größe größe öä\n", "größe größe größe öä\n"},
        Row{"IsIndented", "    one two three four five\n", "    one two three\n      four five\n"},
        Row{"IsDeep", "      one two three four\n", "      one two three\n      four\n"},
        Row{"IsATable", "  --a     one two three\n", "  --a     one two\n          three\n"},
        Row{"HasNoRoomForTwoColumns",
            "  --long-option   one two\n",
            "  --long-option\n    one two\n"},
        Row{"HasAWordThatIsTooLong",
            "in /opt/a/very/long/path/of/it now\n",
            "in\n/opt/a/very/long/path/of/it\nnow\n"},
        Row{"IsForPrograms",
            "{\"a\": \"b c d e f g h i j\"}\n",
            "{\"a\": \"b c d e f g h i j\"}\n"},
        Row{"IsAQuestion", "Remove it from here? [y/N] ", "Remove it from here?\n[y/N] "},
        Row{"HasLines", "one two three four 5\nsix\n\n  7", "one two three four 5\nsix\n\n  7"}
    ),
    KTEST::NameOfRow()
);

TEST(KWordWrapTest, WithoutColumnsATextStays) {
    const std::string text = "a text  with gaps \n and " + std::string(300, 'x') + " more";
    EXPECT_EQ(KSETUP::WrapWords(text, 0), text);
}

TEST(KWordWrapTest, WhatIsFlushedCountsInItsLine) {
    KSETUP::KWordWrap wrap(20);
    std::string wrapped = wrap.Take("ins-setup:") + wrap.Flush();
    wrapped += wrap.Take(" no such kit here\n");
    EXPECT_EQ(wrapped, "ins-setup: no such\nkit here\n");
}

} // namespace
