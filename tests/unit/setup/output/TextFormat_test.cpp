// SPDX-License-Identifier: MIT
#include <setup/output/TextFormat.h>

#include <gtest/gtest.h>

namespace {

using KSETUP::BytesInWords;
using KSETUP::Printable;

TEST(ShownTest, PrintableTextStaysAsItIs) {
    EXPECT_EQ(Printable("Copying file Größe.txt (43%)"), "Copying file Größe.txt (43%)");
}

TEST(ShownTest, ControlCharactersAreNotShown) {
    EXPECT_EQ(Printable("a\nb\x1b[2Jc\x7f"), "a?b?[2Jc?");
}

TEST(ShownTest, ControlCharactersOfTwoBytesAreNotShown) {
    EXPECT_EQ(
        Printable("a\xC2\x9B"
                  "b\xC2\xA0"),
        "a?b\xC2\xA0"
    );
}

TEST(ShownTest, BytesThatAreNoUtf8AreNotShown) {
    EXPECT_EQ(Printable("a\xFF\xC3"), "a??");
}

TEST(ShownTest, WhatStandsBehindANulIsNotLost) {
    EXPECT_EQ(Printable(std::string("a\0b", 3)), "a?b");
}

TEST(ShownTest, LinesAreKeptOnlyWhereTheyAreMeant) {
    EXPECT_EQ(Printable("a\nb\r\t", KSETUP::KLineEnds::Kept), "a\nb??");
}

TEST(DecimalTextTest, ANumberHasOneDecimal) {
    EXPECT_EQ(KSETUP::DecimalText(0), "0.0");
    EXPECT_EQ(KSETUP::DecimalText(12.34), "12.3");
    EXPECT_EQ(KSETUP::DecimalText(99.96), "100.0");
}

TEST(BytesInWordsTest, AmountsGoUpByTheirUnits) {
    EXPECT_EQ(BytesInWords(0), "0 bytes");
    EXPECT_EQ(BytesInWords(1023), "1023 bytes");
    EXPECT_EQ(BytesInWords(1024), "1.0 KiB");
    EXPECT_EQ(BytesInWords(1536), "1.5 KiB");
    EXPECT_EQ(BytesInWords(3ULL << 20U), "3.0 MiB");
    EXPECT_EQ(BytesInWords(8ULL << 40U), "8.0 TiB");
}

TEST(BytesInWordsTest, TheLastUnitHoldsTheLargestAmount) {
    EXPECT_EQ(BytesInWords(~0ULL), "16777216.0 TiB");
}

} // namespace
