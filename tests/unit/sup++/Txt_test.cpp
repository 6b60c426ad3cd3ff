// SPDX-License-Identifier: MIT
#include "../../support/NameOfRow.h"
#include "../../support/TemporaryTree.h"
#include "Common.h"

#include <sup++/SvcMemory.h>
#include <sup++/Txt.h>

#include <algorithm>

namespace KTEST {
namespace {

struct CharacterRow {
    const char* name;
    const char* text;
    std::size_t size;

    friend void PrintTo(const CharacterRow& row, std::ostream* out) { *out << row.name; }
};

class TxtCharacterTest : public testing::TestWithParam<CharacterRow> {};

TEST_P(TxtCharacterTest, HasItsSize) {
    EXPECT_EQ(Txtchrsize(GetParam().text), GetParam().size);
}

TEST_P(TxtCharacterTest, IsSteppedOver) {
    EXPECT_EQ(Txtnext(GetParam().text), GetParam().text + GetParam().size);
}

INSTANTIATE_TEST_SUITE_P(
    Characters,
    TxtCharacterTest,
    testing::ValuesIn(std::vector<CharacterRow>{
        {"End", "", 0},
        {"Ascii", "ab", 1},
        {"LastAscii", "\x7f!", 1},
        {"FirstOfTwoBytes", "\xc2\x80!", 2},
        {"LastOfTwoBytes", "\xdf\xbf!", 2},
        {"FirstOfThreeBytes", "\xe0\xa0\x80!", 3},
        {"LastBeforeTheSurrogates", "\xed\x9f\xbf!", 3},
        {"LastOfThreeBytes", "\xef\xbf\xbf!", 3},
        {"FirstOfFourBytes", "\xf0\x90\x80\x80!", 4},
        {"LastOfFourBytes", "\xf4\x8f\xbf\xbf!", 4},
        {"ContinuationAlone", "\x80\x80", 1},
        {"OverlongTwoBytes", "\xc1\xbf!", 1},
        {"OverlongThreeBytes", "\xe0\x9f\xbf!", 1},
        {"OverlongFourBytes", "\xf0\x8f\xbf\xbf!", 1},
        {"Surrogate", "\xed\xa0\x80!", 1},
        {"BehindTheLastCodePoint", "\xf4\x90\x80\x80!", 1},
        {"FiveByteLead", "\xf8\x88\x80\x80\x80", 1},
        {"NeverAByteOfUtf8", "\xff\xff", 1},
        {"TwoBytesCutByTheEnd", "\xc3", 1},
        {"ThreeBytesCutByTheEnd", "\xe2\x82", 1},
        {"FourBytesCutByTheEnd", "\xf0\x9f\x98", 1},
        {"ThreeBytesCutByALetter", "\xe2\x82z", 1},
    }),
    NameOfRow()
);

TEST(TxtTest, ANullTextIsEmpty) {
    EXPECT_EQ(Txtchrsize(nullptr), 0U);
    EXPECT_EQ(Txtlen(nullptr), 0U);
    EXPECT_EQ(Txtsize(nullptr), 0U);
    EXPECT_EQ(Txtbytesz(nullptr), 1U);
    EXPECT_STREQ(Txtnext(nullptr), "");
    EXPECT_EQ(Txtcmp(nullptr, ""), 0);
    EXPECT_LT(Txtcmp(nullptr, "a"), 0);
    EXPECT_GT(Txtcmp("a", nullptr), 0);
    EXPECT_EQ(Txtincmp(nullptr, "", 3), 0);
    EXPECT_NE(Txtincmp(nullptr, "a", 3), 0);
    EXPECT_EQ(Txtstr(nullptr, "a"), nullptr);
    EXPECT_EQ(Txtistr(nullptr, "a"), nullptr);
    EXPECT_EQ(Txtlwr(nullptr), nullptr);
}

TEST(TxtTest, LengthCountsCharactersAndSizeCountsBytes) {
    const char* text = "a\xc3\xa9\xe2\x82\xac\xff";
    EXPECT_EQ(Txtlen(text), 4U);
    EXPECT_EQ(Txtsize(text), 7U);
    EXPECT_EQ(Txtbytesz(text), 8U);
}

TEST(TxtTest, AnyBytesCanBeWalkedToTheirEnd) {
    std::string bytes = ArbitraryBytes(20000);
    bytes.erase(std::remove(bytes.begin(), bytes.end(), '\0'), bytes.end());
    const char* place = bytes.c_str();
    std::size_t steps = 0;
    while (*place != '\0') {
        ASSERT_GE(Txtchrsize(place), 1U);
        place = Txtnext(place);
        ++steps;
    }
    EXPECT_EQ(place, bytes.c_str() + bytes.size());
    EXPECT_EQ(Txtlen(bytes.c_str()), steps);
}

TEST(TxtTest, ComparesAsUnsignedBytes) {
    EXPECT_EQ(Txtcmp("abc", "abc"), 0);
    EXPECT_LT(Txtcmp("abc", "abd"), 0);
    EXPECT_GT(Txtcmp("b", "abc"), 0);
    EXPECT_LT(Txtcmp("a", "ab"), 0);
    EXPECT_LT(Txtcmp("\x7f", "\x80"), 0);
    EXPECT_NE(Txtcmp("copy", "Copy"), 0);
}

struct PrefixRow {
    const char* name;
    const char* left;
    const char* right;
    std::size_t count;
    bool equal;

    friend void PrintTo(const PrefixRow& row, std::ostream* out) { *out << row.name; }
};

class TxtPrefixTest : public testing::TestWithParam<PrefixRow> {};

TEST_P(TxtPrefixTest, ComparesBothWaysAlike) {
    const PrefixRow& row = GetParam();
    EXPECT_EQ(Txtincmp(row.left, row.right, row.count) == 0, row.equal);
    EXPECT_EQ(Txtincmp(row.right, row.left, row.count) == 0, row.equal);
}

INSTANTIATE_TEST_SUITE_P(
    Prefixes,
    TxtPrefixTest,
    testing::ValuesIn(std::vector<PrefixRow>{
        {"CaseDoesNotCount", "0X1f", "0xAA", 2, true},
        {"BehindTheCount", "abc", "abd", 2, true},
        {"AtTheCount", "abc", "abd", 3, false},
        {"NoCharacters", "a", "b", 0, true},
        {"BothEndBeforeTheCount", "aB", "Ab", 9, true},
        {"OneEndsBeforeTheCount", "ab", "abc", 3, false},
        {"OneEndsAtTheCount", "ab", "abc", 2, true},
        {"CountsCharactersNotBytes",
         "\xc3\xa9"
         "Ab",
         "\xc3\xa9"
         "aX",
         2,
         true},
        {"CharactersOfManyBytesBehindTheCount",
         "\xc3\xa9"
         "b",
         "\xc3\xa9"
         "c",
         1,
         true},
        {"FoldsOnlyAscii", "\xc3\x89", "\xc3\xa9", 1, false},
        {"NeighboursOfTheLetters", "@[`{", "`{@[", 4, false},
    }),
    NameOfRow()
);

TEST(TxtTest, FindsTheFirstPlace) {
    const char* text = "one two one";
    EXPECT_EQ(Txtstr(text, "one"), text);
    EXPECT_EQ(Txtstr(text + 1, "one"), text + 8);
    EXPECT_EQ(Txtstr(text, "three"), nullptr);
    EXPECT_EQ(Txtstr(text, "One"), nullptr);
    EXPECT_EQ(Txtstr(text, "one two one!"), nullptr);
}

TEST(TxtTest, FindsWithoutRegardToCaseOfAsciiLetters) {
    const char* text = "path\xc3\x89 TARGET";
    EXPECT_EQ(Txtistr(text, "target"), text + 7);
    EXPECT_EQ(Txtistr(text, "PATH"), text);
    EXPECT_EQ(Txtistr(text, "\xc3\xa9"), nullptr);
    EXPECT_EQ(Txtistr(text, "targets"), nullptr);
}

TEST(TxtTest, FindsAnEmptyPartAtTheStart) {
    const char* text = "abc";
    EXPECT_EQ(Txtstr(text, ""), text);
    EXPECT_EQ(Txtistr(text, ""), text);
    EXPECT_EQ(Txtstr(text, nullptr), text);
}

TEST(TxtTest, FindsOnlyWholeCharacters) {
    const char* text = "\xc3\xa9\xa9";
    EXPECT_EQ(Txtstr(text, "\xa9"), text + 2);
    EXPECT_EQ(Txtstr("\xc3\xa9", "\xc3"), nullptr);
    EXPECT_EQ(Txtistr(text, "\xa9"), text + 2);
}

TEST(TxtTest, LowersExactlyTheAsciiLetters) {
    for (int byte = 0; byte < 256; ++byte) {
        const char letter = static_cast<char>(byte);
        const bool upper = letter >= 'A' && letter <= 'Z';
        EXPECT_EQ(Txttolower(letter), upper ? static_cast<char>(letter + 32) : letter) << byte;
    }
}

TEST(TxtTest, LowersATextInPlace) {
    char text[] = "InSTALL \xc3\x89";
    EXPECT_EQ(Txtlwr(text), text);
    EXPECT_STREQ(text, "install \xc3\x89");
}

TEST(TxtTest, DuplicatesOnTheLibrarysHeap) {
    const char* text = "r\xc3\xa9sum\xc3\xa9";
    char* copy = Rel_Txtdup(text);
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy, text);
    EXPECT_STREQ(copy, text);
    std::size_t bytes = 0;
    EXPECT_EQ(SvcGetMemorySizeEx(copy, &bytes), 0U);
    EXPECT_GE(bytes, Txtbytesz(text));
    EXPECT_EQ(Rel_SvcReleaseMemory(copy), 0U);
}

TEST(TxtTest, DuplicatesANullTextAsAnEmptyOne) {
    char* copy = Rel_Txtdup(nullptr);
    ASSERT_NE(copy, nullptr);
    EXPECT_STREQ(copy, "");
    Rel_SvcReleaseMemory(copy);
}

} // namespace
} // namespace KTEST
