// SPDX-License-Identifier: MIT
#include "../../support/NameOfRow.h"
#include "../../support/TraceRecorder.h"
#include "Common.h"

#include <sup++/KErrorCode.h>
#include <sup++/KString.h>

#include <limits>

namespace KTEST {
namespace {

using KSUP::KString;
using testing::ElementsAre;

constexpr unsigned npos = std::numeric_limits<unsigned>::max();

// SectionVector

struct SectionRow {
    const char* name;
    const char* text;
    char separator;
    bool caseSensitive;
    std::vector<std::string> fields;

    friend void PrintTo(const SectionRow& row, std::ostream* out) { *out << row.name; }
};

class KStringSectionTest : public testing::TestWithParam<SectionRow> {};

TEST_P(KStringSectionTest, GivesTheFields) {
    const SectionRow& row = GetParam();
    EXPECT_EQ(
        TextsOf(KString(row.text).SectionVector(row.separator, row.caseSensitive)), row.fields
    );
}

INSTANTIATE_TEST_SUITE_P(
    Lines,
    KStringSectionTest,
    testing::ValuesIn(std::vector<SectionRow>{
        {"FourFields", "file,copy,a,b", ',', true, {"file", "copy", "a", "b"}},
        {"EmptyFieldVanishes", "a,,b", ',', true, {"a", "b"}},
        {"EmptyFieldsAtBothEndsVanish", ",a,", ',', true, {"a"}},
        {"ManyEmptyFieldsVanish", ",,,a,,,,b,,,", ',', true, {"a", "b"}},
        {"EmptyText", "", ',', true, {}},
        {"OneSeparator", ",", ',', true, {}},
        {"OnlySeparators", ",,,", ',', true, {}},
        {"NoSeparator", "abc", ',', true, {"abc"}},
        {"BlanksStay", "a, b ,\tc", ',', true, {"a", " b ", "\tc"}},
        {"ABlankIsAField", "a, ,b", ',', true, {"a", " ", "b"}},
        {"QuotesDoNotProtect", "\"a,b\",c", ',', true, {"\"a", "b\"", "c"}},
        {"BackslashesDoNotProtect", "a\\,b", ',', true, {"a\\", "b"}},
        {"UpperSeparatorExactly", "aXbxc", 'X', true, {"a", "bxc"}},
        {"LowerSeparatorExactly", "aXbxc", 'x', true, {"aXb", "c"}},
        {"UpperSeparatorInAnyCase", "aXbxc", 'X', false, {"a", "b", "c"}},
        {"LowerSeparatorInAnyCase", "aXbxc", 'x', false, {"a", "b", "c"}},
        {"CharactersOfManyBytes",
         "\xc3\xa9,\xe2\x82\xac,z",
         ',',
         true,
         {"\xc3\xa9", "\xe2\x82\xac", "z"}},
        {"AByteInsideACharacterIsNoSeparator",
         "a\xc3\xa9"
         "b",
         '\xa9',
         true,
         {"a\xc3\xa9"
          "b"}},
        {"TheFirstByteOfACharacterIsNoSeparator",
         "a\xc3\xa9"
         "b",
         '\xc3',
         true,
         {"a\xc3\xa9"
          "b"}},
        {"AnInvalidByteCanSeparate",
         "a\xa9"
         "b",
         '\xa9',
         true,
         {"a", "b"}},
        {"InvalidBytesStay", "\xff,\xfe", ',', true, {"\xff", "\xfe"}},
        {"NulNeverStands", "a,b", '\0', true, {"a,b"}},
    }),
    NameOfRow()
);

TEST(KStringTest, SectionVectorTakesLongLines) {
    std::string line;
    for (int field = 0; field < 300; ++field) {
        line += "field" + std::to_string(field) + ",,";
    }
    const std::vector<KString> fields = KString(line).SectionVector(',', true);
    ASSERT_EQ(fields.size(), 300U);
    EXPECT_EQ(fields.back(), "field299");
}

// Split

struct SplitRow {
    const char* name;
    const char* text;
    char first;
    char second;
    bool caseSensitive;
    bool honourBackslash;
    const char* left;
    const char* right;

    friend void PrintTo(const SplitRow& row, std::ostream* out) { *out << row.name; }
};

class KStringSplitTest : public testing::TestWithParam<SplitRow> {};

TEST_P(KStringSplitTest, GivesBothHalves) {
    const SplitRow& row = GetParam();
    const auto halves =
        KString(row.text).Split(row.first, row.second, row.caseSensitive, row.honourBackslash);
    EXPECT_EQ(halves.first, row.left);
    EXPECT_EQ(halves.second, row.right);
}

INSTANTIATE_TEST_SUITE_P(
    Texts,
    KStringSplitTest,
    testing::ValuesIn(std::vector<SplitRow>{
        {"AtTheFirst", "type,rest,more", ',', '\0', true, false, "type", "rest,more"},
        {"WithoutASeparator", "abc", ',', '\0', true, false, "abc", ""},
        {"AtTheStart", ",abc", ',', '\0', true, false, "", "abc"},
        {"AtTheEnd", "abc,", ',', '\0', true, false, "abc", ""},
        {"OnlyTheSeparator", ",", ',', '\0', true, false, "", ""},
        {"EmptyText", "", ',', '\0', true, false, "", ""},
        {"AtTheSecond", "a;b=c", '=', ';', true, false, "a", "b=c"},
        {"ExactCase", "aXbxc", 'x', '\0', true, false, "aXb", "c"},
        {"AnyCase", "aXbxc", 'x', '\0', false, false, "a", "bxc"},
        {"AnyCaseOfTheSecond", "aXbxc", '=', 'x', false, false, "a", "bxc"},
        {"BackslashWithoutHonour", "a\\=b=c", '=', '\0', true, false, "a\\", "b=c"},
        {"BackslashProtectsOne", "a\\=b=c", '=', '\0', true, true, "a\\=b", "c"},
        {"BackslashProtectsFromAfar", "\\a=b=c", '=', '\0', true, true, "\\a=b", "c"},
        {"TwoBackslashesProtectOne", "\\\\a=b=c", '=', '\0', true, true, "\\\\a=b", "c"},
        {"TheProtectedIsTheOnlyOne", "a\\=b", '=', '\0', true, true, "a\\=b", ""},
        {"BackslashDoesNotProtectTheSecond", "a\\;b=c", '=', ';', true, true, "a\\", "b=c"},
        {"EachBackslashProtectsAgain", "\\=\\=x=y", '=', '\0', true, true, "\\=\\=x", "y"},
        {"CharactersOfManyBytes",
         "\xc3\xa9=\xe2\x82\xac",
         '=',
         '\0',
         true,
         false,
         "\xc3\xa9",
         "\xe2\x82\xac"},
        {"ComparesTheFirstByteOfACharacter",
         "a\xc3\xa9"
         "b",
         '\xc3',
         '\0',
         true,
         false,
         "a",
         "b"},
        {"NotTheOtherBytesOfACharacter",
         "a\xc3\xa9"
         "b",
         '\xa9',
         '\0',
         true,
         false,
         "a\xc3\xa9"
         "b",
         ""},
    }),
    NameOfRow()
);

// Find

struct FindRow {
    const char* name;
    const char* text;
    const char* part;
    unsigned start;
    bool caseSensitive;
    int position;

    friend void PrintTo(const FindRow& row, std::ostream* out) { *out << row.name; }
};

static_assert(std::is_same_v<decltype(KString().Find("", 0, true)), int>, "so >= 0 means found");

class KStringFindTest : public testing::TestWithParam<FindRow> {};

TEST_P(KStringFindTest, GivesThePosition) {
    const FindRow& row = GetParam();
    EXPECT_EQ(KString(row.text).Find(row.part, row.start, row.caseSensitive), row.position);
}

INSTANTIATE_TEST_SUITE_P(
    Texts,
    KStringFindTest,
    testing::ValuesIn(std::vector<FindRow>{
        {"AtTheStart", "*.so", "*", 0, true, 0},
        {"Inside", "lib?.so", "?", 0, true, 3},
        {"AtTheEnd", "abc", "c", 0, true, 2},
        {"Missing", "abc", "x", 0, true, -1},
        {"LongerThanTheText", "abc", "abcd", 0, true, -1},
        {"FromStart", "abcabc", "a", 1, true, 3},
        {"StartIsIncluded", "abcabc", "a", 3, true, 3},
        {"BehindTheLast", "abcabc", "a", 4, true, -1},
        {"StartAtTheEnd", "abc", "c", 3, true, -1},
        {"StartBehindTheEnd", "abc", "a", 99, true, -1},
        {"StartNowhere", "abc", "a", npos, true, -1},
        {"ExactCase", "ABC", "b", 0, true, -1},
        {"AnyCase", "ABC", "b", 0, false, 1},
        {"CountsCharacters", "\xc3\xa9\xe2\x82\xacx", "x", 0, true, 2},
        {"StartsAtCharacters", "\xc3\xa9x\xc3\xa9x", "x", 2, true, 3},
        {"StartBeyondTheCharacters", "\xc3\xa9\xc3\xa9", "\xc3\xa9", 2, true, -1},
        {"WholeCharactersOnly", "\xc3\xa9", "\xa9", 0, true, -1},
        {"EmptyPart", "abc", "", 1, true, 1},
        {"EmptyText", "", "a", 0, true, -1},
        {"EmptyTextAndPart", "", "", 0, true, -1},
    }),
    NameOfRow()
);

// Replace

struct ReplaceRow {
    const char* name;
    const char* text;
    const char* find;
    const char* replacement;
    unsigned start;
    unsigned most;
    bool caseSensitive;
    unsigned count;
    const char* result;

    friend void PrintTo(const ReplaceRow& row, std::ostream* out) { *out << row.name; }
};

class KStringReplaceTest : public testing::TestWithParam<ReplaceRow> {};

TEST_P(KStringReplaceTest, GivesTheCountAndTheText) {
    const ReplaceRow& row = GetParam();
    KString text(row.text);
    EXPECT_EQ(
        text.Replace(row.find, row.replacement, row.start, row.most, row.caseSensitive), row.count
    );
    EXPECT_EQ(text, row.result);
}

INSTANTIATE_TEST_SUITE_P(
    Texts,
    KStringReplaceTest,
    testing::ValuesIn(std::vector<ReplaceRow>{
        {"All", "a-b-c", "-", "+", 0, npos, true, 2, "a+b+c"},
        {"ZeroMeansAll", "a-b-c", "-", "+", 0, 0, true, 2, "a+b+c"},
        {"One", "a-b-c", "-", "+", 0, 1, true, 1, "a+b-c"},
        {"Two", "a-b-c-d", "-", "+", 0, 2, true, 2, "a+b+c-d"},
        {"MoreThanThereAre", "a-b", "-", "+", 0, 9, true, 1, "a+b"},
        {"ByNothing", "class Foo", "class ", "", 0, npos, true, 1, "Foo"},
        {"NotThere", "Foo", "class ", "", 0, npos, true, 0, "Foo"},
        {"ByMore", "aXa", "X", "12345", 0, npos, true, 1, "a12345a"},
        {"WhatWasPutInIsNotSearched", "aa", "a", "aa", 0, npos, true, 2, "aaaa"},
        {"ANewOccurrenceAcrossTheEdgeStays", "aab", "ab", "b", 0, npos, true, 1, "ab"},
        {"Overlapping", "aaa", "aa", "b", 0, npos, true, 1, "ba"},
        {"ExactCase", "aAa", "A", "x", 0, npos, true, 1, "axa"},
        {"AnyCase", "aAa", "A", "x", 0, npos, false, 3, "xxx"},
        {"FromStart", "aaa", "a", "x", 1, npos, true, 2, "axx"},
        {"FromTheLastCharacter", "aaa", "a", "x", 2, npos, true, 1, "aax"},
        {"StartCountsCharacters",
         "\xc3\xa9\xc3\xa9"
         "a\xc3\xa9",
         "\xc3\xa9",
         "e",
         2,
         npos,
         true,
         1,
         "\xc3\xa9\xc3\xa9"
         "ae"},
        {"WholeCharactersOnly", "\xc3\xa9", "\xa9", "x", 0, npos, true, 0, "\xc3\xa9"},
        {"TheWholeText", "abc", "abc", "", 0, npos, true, 1, ""},
        {"EmptyFind", "abc", "", "x", 0, npos, true, 0, "abc"},
        {"EmptyFindWithStartOutside", "abc", "", "x", 9, npos, true, 0, "abc"},
        {"EmptyText", "", "a", "x", 0, npos, true, 0, ""},
        {"EmptyTextWithStartOutside", "", "a", "x", 9, npos, true, 0, ""},
    }),
    NameOfRow()
);

class KStringReplaceErrorTest : public testing::TestWithParam<unsigned> {};

TEST_P(KStringReplaceErrorTest, RefusesAStartOutsideAndChangesNothing) {
    TraceRecorder trace;
    KString text("a\xc3\xa9");
    const KSUP::KError error = ErrorOf([&] { text.Replace("a", "b", GetParam(), npos, true); });
    EXPECT_EQ(error.GetCode(), KSUP::ErrorCode::invalidArgument);
    EXPECT_EQ(error.GetLevel(), 400U);
    EXPECT_EQ(error.GetSubCode(), 0U);
    EXPECT_STREQ(error.GetFile(), "sup++/KString");
    EXPECT_STREQ(error.GetFunction(), "Replace");
    EXPECT_FALSE(error.HasInfo());
    EXPECT_THAT(trace.Texts(400), ElementsAre(error.GetSummary().c_str()));
    EXPECT_EQ(text, "a\xc3\xa9");
}

// Two characters in three bytes: 2 is inside the bytes, but no character.
INSTANTIATE_TEST_SUITE_P(
    Starts,
    KStringReplaceErrorTest,
    testing::Values(2U, 3U, 4U, npos),
    testing::PrintToStringParamName()
);

} // namespace
} // namespace KTEST
