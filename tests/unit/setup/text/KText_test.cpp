// SPDX-License-Identifier: MIT
#include <setup/text/KText.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>

namespace {

using KSETUP::Counted;
using KSETUP::KText;
using KSETUP::Text;

TEST(KTextTest, ArgumentsTakeTheirPlacesInTurn) {
    EXPECT_EQ(Text("%s has %s files", "a", 3).English(), "a has 3 files");
}

TEST(KTextTest, ArgumentsTakeThePlacesOfTheirNumbers) {
    EXPECT_EQ(Text("%2$s of %1$s", 10, 4).English(), "4 of 10");
}

TEST(KTextTest, APercentSignIsWrittenTwice) {
    EXPECT_EQ(Text("100%% of %s", "a").English(), "100% of a");
    EXPECT_EQ(Text("%%s").English(), "%s");
}

TEST(KTextTest, WhatAnArgumentHoldsIsNoFormat) {
    EXPECT_EQ(Text("look at %s", "%s%2$s%").English(), "look at %s%2$s%");
}

TEST(KTextTest, APlaceWithoutAnArgumentStaysEmpty) {
    EXPECT_EQ(Text("%s%s%9$s%").English(), "");
}

TEST(KTextTest, BothLanguagesOfAnArgumentAreKept) {
    const KText text = Text("now: %s", KText("a file", "eine Datei"));
    EXPECT_EQ(text.English(), "now: a file");
    EXPECT_EQ(text.Translated(), "now: eine Datei");
}

TEST(KTextTest, TextsAreJoinedInBothLanguages) {
    const KText text = KText("/a") + ": " + KText("a file", "eine Datei");
    EXPECT_EQ(text.English(), "/a: a file");
    EXPECT_EQ(text.Translated(), "/a: eine Datei");
}

TEST(KTextTest, WhatIsAddedToACopyStaysOutOfTheOther) {
    const KText one("a file", "eine Datei");
    KText copy = one;
    copy += KText(" more");
    EXPECT_EQ(one.Translated(), "eine Datei");
    EXPECT_EQ(copy.Translated(), "eine Datei more");
    copy += copy;
    EXPECT_EQ(copy.English(), "a file morea file more");
    KText none;
    none += one;
    none += KText();
    none += KText("!");
    EXPECT_EQ(none.English(), "a file!");
    EXPECT_EQ(one.English(), "a file");
}

TEST(KTextTest, AStreamIsForPeople) {
    std::ostringstream out;
    out << KText("a file", "eine Datei");
    EXPECT_EQ(out.str(), "eine Datei");
}

TEST(CountedTest, OnlyOneIsNotMany) {
    const auto files = [](std::uint64_t count) {
        return Counted(count, "%s file in %s", "%s files in %s", "/a").English();
    };
    EXPECT_EQ(files(0), "0 files in /a");
    EXPECT_EQ(files(1), "1 file in /a");
    EXPECT_EQ(files(2), "2 files in /a");
}

} // namespace
