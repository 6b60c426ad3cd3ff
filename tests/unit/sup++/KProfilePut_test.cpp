// SPDX-License-Identifier: MIT
#include "../../support/NameOfRow.h"
#include "../../support/TraceRecorder.h"
#include "KProfileFixture.h"

namespace KTEST {
namespace {

using KSUP::KError;
using KSUP::KProfile;
using testing::ElementsAre;
using testing::StartsWith;

// Which lines a change touches

struct PutRow {
    const char* name;
    std::string before;
    const char* section;
    const char* key;
    const char* value;
    std::string after;

    friend void PrintTo(const PutRow& row, std::ostream* out) { *out << row.name; }
};

class KProfilePutTest : public KProfileTest, public testing::WithParamInterface<PutRow> {};

TEST_P(KProfilePutTest, ChangesOneLine) {
    const PutRow& row = GetParam();
    KProfile profile = Given(row.before);
    profile.PutString(row.section, row.key, row.value);
    EXPECT_EQ(Bytes(), row.after);
    EXPECT_EQ(profile.GetString(row.section, row.key, "(default)"), row.value);
    EXPECT_EQ(Reread(row.section, row.key), row.value);
}

INSTANTIATE_TEST_SUITE_P(
    Texts,
    KProfilePutTest,
    testing::ValuesIn(std::vector<PutRow>{
        {"IntoAnEmptyFile", "", "General", "LogLevel", "3", "[General]\nLogLevel=3\n"},
        {"ReplacesAValue", "[s]\na=1\nb=2\nc=3\n", "s", "b", "x", "[s]\na=1\nb=x\nc=3\n"},
        {"ReplacesByTheSame", "[s]\na=1\n", "s", "a", "1", "[s]\na=1\n"},
        {"ReplacesByNothing", "[s]\na=1\n", "s", "a", "", "[s]\na=\n"},
        {"ReplacesTheFirstOfDuplicates", "[s]\na=1\na=2\n", "s", "a", "x", "[s]\na=x\na=2\n"},
        {"ReplacesInTheLastLine", "[s]\na=1", "s", "a", "x", "[s]\na=x"},
        {"ReplacesALineWithoutEqualSign", "[s]\na\n", "s", "a", "x", "[s]\na=x\n"},
        {"ReplacesInALaterPiece",
         "[s]\na=1\n[t]\n[s]\nb=2\n",
         "s",
         "b",
         "x",
         "[s]\na=1\n[t]\n[s]\nb=x\n"},
        {"ReplacesBeforeTheFirstHeader", "a=1\n[s]\na=2\n", "", "a", "x", "a=x\n[s]\na=2\n"},
        {"ReplacesNotWhatIsCommented",
         "[s]\n;a=1\n# a=2\na=3\n",
         "s",
         "a",
         "x",
         "[s]\n;a=1\n# a=2\na=x\n"},
        {"KeepsCarriageReturns", "[s]\r\na=1\r\nb=2\r\n", "s", "a", "x", "[s]\r\na=x\r\nb=2\r\n"},
        {"KeepsEachLinesOwnEnd", "[s]\r\na=1\nb=2\r\n", "s", "a", "x", "[s]\r\na=x\nb=2\r\n"},
        {"AddsAtTheEndOfTheFile", "[s]\na=1\n", "s", "b", "2", "[s]\na=1\nb=2\n"},
        {"AddsToAnEmptySection", "[s]\n[t]\na=1\n", "s", "b", "2", "[s]\nb=2\n[t]\na=1\n"},
        {"AddsAtTheEndOfTheSection",
         "[s]\na=1\n[t]\nc=3\n",
         "s",
         "b",
         "2",
         "[s]\na=1\nb=2\n[t]\nc=3\n"},
        {"AddsBeforeTheFirstHeader", "[s]\na=1\n", "", "b", "2", "b=2\n[s]\na=1\n"},
        {"AddsBehindTheByteOrderMark",
         "\xef\xbb\xbf[s]\na=1\n",
         "",
         "b",
         "2",
         "\xef\xbb\xbf"
         "b=2\n[s]\na=1\n"},
        {"AddsBehindAnUnendedLine", "[s]\na=1", "s", "b", "2", "[s]\na=1\nb=2\n"},
        {"AddsToTheRightSection",
         "[install.x86]\n[install.x86_64]\n",
         "install.x86",
         "k",
         "v",
         "[install.x86]\nk=v\n[install.x86_64]\n"},
        {"PutsAnEmptyKey", "[s]\n", "s", "", "v", "[s]\n=v\n"},
        {"PutsWhatLooksLikeAComment", "[s]\n", "s", "k", "; v # w", "[s]\nk=; v # w\n"},
        {"PutsWhatLooksLikeASection", "[s]\n", "s", "k", "[t]", "[s]\nk=[t]\n"},
        {"PutsEqualSignsInAValue", "[s]\n", "s", "k", "=a=b", "[s]\nk==a=b\n"},
        {"PutsQuotes", "[s]\n", "s", "k", "\"a\"", "[s]\nk=\"a\"\n"},
        {"PutsInvalidBytes", "[s]\n", "s", "k\xff", "v\xc3", "[s]\nk\xff=v\xc3\n"},
    }),
    NameOfRow()
);

TEST_F(KProfileTest, PutsTwoValuesWithOneWriteAndAWalkMeetsBoth) {
    KProfile profile = Given("[s]\nb=1\n[t]\n");
    unsigned cursor = 0;
    profile.BeginKeyEnum("s", &cursor);
    ASSERT_TRUE(profile.EnumKey(&cursor, false));
    tree.Write("p.ini", "[s]\nb=1\n[t]\n# by others\n"); // positions are followed from here on
    profile.PutStrings("s", "x", "7", "y", "8");
    EXPECT_EQ(Bytes(), "[s]\nb=1\nx=7\ny=8\n[t]\n# by others\n");
    ASSERT_TRUE(profile.EnumKey(&cursor, false));
    EXPECT_EQ(profile.GetKeyName(), "x");
    ASSERT_TRUE(profile.EnumKey(&cursor, false));
    EXPECT_EQ(profile.GetKeyName(), "y");
    EXPECT_FALSE(profile.EnumKey(&cursor, false));
    profile.PutStrings("u", "b", "2", "a", "1"); // a section that was not there
    EXPECT_EQ(Reread("u", "a") + Reread("u", "b"), "12");
}

TEST_F(KProfileTest, TwoValuesOfWhichOneDoesNotReadBackChangeNothing) {
    KProfile profile = Given("[s]\na=1\n");
    EXPECT_THROW(profile.PutStrings("s", "a", "2", "b", "line\nline"), KError);
    EXPECT_EQ(Bytes(), "[s]\na=1\n");
}

TEST_F(KProfileTest, AddsASectionAtTheEndOfTheFile) {
    KProfile profile = Given("[s]\na=1\n");
    profile.PutString("t", "b", "2");
    EXPECT_THAT(Bytes(), StartsWith("[s]\na=1\n"));
    EXPECT_THAT(Bytes(), testing::EndsWith("[t]\nb=2\n"));
}

TEST_F(KProfileTest, TakesNamesAndValuesWithoutBlanksAroundThem) {
    KProfile profile = Given("[s]\na=1\n");
    profile.PutString(" s ", " a ", "  2 3 ");
    EXPECT_EQ(Bytes(), "[s]\na=2 3\n");
    EXPECT_EQ(profile.GetString("s", "a", ""), "2 3");
}

TEST_F(KProfileTest, AnEmptyKeyInTheEmptySectionReadsBackAndIsReplaced) {
    KProfile profile = Given("[s]\na=1\n");
    profile.PutString("", "", "");
    EXPECT_EQ(profile.GetString("", "", "(default)"), "");
    const std::string once = Bytes();
    profile.PutString("", "", "");
    EXPECT_EQ(Bytes(), once);
    profile.PutString("", "", "x");
    EXPECT_EQ(Reread("", ""), "x");
    EXPECT_EQ(Bytes(), "=x\n[s]\na=1\n");
}

const char* const busyProfile = "; top\r\n"
                                "\n"
                                "  # indented\n"
                                "first=1\n"
                                "[a] \n"
                                "x = 1 ; not a comment\n"
                                "\t\n"
                                ";commented=2\n"
                                "y=2\r\n"
                                "\n"
                                "[b]\n"
                                "no equal sign\n"
                                "z=\xff\xfe\n"
                                "[a]\n"
                                "x=3\n"
                                "# last";

TEST_F(KProfileTest, EverythingElseSurvivesManyChanges) {
    KProfile profile = Given(busyProfile);
    for (int round = 0; round < 3; ++round) {
        profile.PutString("a", "y", "changed");
        profile.PutString("b", "added", "v");
        profile.PutString("c", "new", "v");
        profile.DeleteKey("b", "added");
        profile.DeleteKey("c", "new");
        profile.PutString("a", "y", "2");
    }
    EXPECT_THAT(Bytes(), StartsWith(busyProfile));
}

// Deleting keys

struct DeleteRow {
    const char* name;
    std::string before;
    const char* section;
    const char* key;
    std::string after;

    friend void PrintTo(const DeleteRow& row, std::ostream* out) { *out << row.name; }
};

class KProfileDeleteTest : public KProfileTest, public testing::WithParamInterface<DeleteRow> {};

TEST_P(KProfileDeleteTest, RemovesOneLine) {
    Given(GetParam().before).DeleteKey(GetParam().section, GetParam().key);
    EXPECT_EQ(Bytes(), GetParam().after);
}

INSTANTIATE_TEST_SUITE_P(
    Keys,
    KProfileDeleteTest,
    testing::ValuesIn(std::vector<DeleteRow>{
        {"OnlyKey", "[s]\na=1\n", "s", "a", "[s]\n"},
        {"MiddleKey", "[s]\na=1\nb=2\nc=3\n", "s", "b", "[s]\na=1\nc=3\n"},
        {"LastLineWithoutNewline", "[s]\na=1\nb=2", "s", "b", "[s]\na=1\n"},
        {"FirstOfDuplicates", "[s]\na=1\na=2\n", "s", "a", "[s]\na=2\n"},
        {"InALaterPiece", "[s]\n[t]\na=1\n[s]\na=2\n", "s", "a", "[s]\n[t]\na=1\n[s]\n"},
        {"BeforeTheFirstHeader", "a=1\n[s]\na=2\n", "", "a", "[s]\na=2\n"},
        {"WithoutEqualSign", "[s]\na\nb=1\n", "s", "a", "[s]\nb=1\n"},
        {"CarriageReturns", "[s]\r\na=1\r\nb=2\r\n", "s", "a", "[s]\r\nb=2\r\n"},
        {"CommentsStay", "[s]\n; about a\na=1\n# a=1\n", "s", "a", "[s]\n; about a\n# a=1\n"},
        {"ByteOrderMarkStays",
         "\xef\xbb\xbf"
         "a=1\nb=2\n",
         "",
         "a",
         "\xef\xbb\xbf"
         "b=2\n"},
        {"EmptyKey", "[s]\n=1\na=2\n", "s", "", "[s]\na=2\n"},
        {"MissingKey", "[s]\na=1\n", "s", "b", "[s]\na=1\n"},
        {"MissingSection", "[s]\na=1\n", "t", "a", "[s]\na=1\n"},
        {"EmptyFile", "", "s", "a", ""},
    }),
    NameOfRow()
);

// What is refused

struct RefusedPutRow {
    const char* name;
    std::string section;
    std::string key;
    std::string value;

    friend void PrintTo(const RefusedPutRow& row, std::ostream* out) { *out << row.name; }
};

class KProfileRefusedTest : public KProfileTest,
                            public testing::WithParamInterface<RefusedPutRow> {};

TEST_P(KProfileRefusedTest, IsAnErrorAndChangesNothing) {
    const RefusedPutRow& row = GetParam();
    KProfile profile = Given("[s]\na=1\n");
    const auto inode = tree.Status("p.ini").st_ino;
    EXPECT_EQ(CodeOf([&] { profile.PutString(row.section, row.key, row.value); }), 36U);
    EXPECT_EQ(Bytes(), "[s]\na=1\n");
    EXPECT_EQ(tree.Status("p.ini").st_ino, inode);
}

INSTANTIATE_TEST_SUITE_P(
    Texts,
    KProfileRefusedTest,
    testing::ValuesIn(std::vector<RefusedPutRow>{
        {"NewlineInTheSection", "a\nb", "k", "v"},
        {"NewlineInTheKey", "s", "a\nb", "v"},
        {"NewlineInTheValue", "s", "k", "a\nb"},
        {"NewlineAtTheEndOfTheValue", "s", "k", "a\n"},
        {"CarriageReturnInTheValue", "s", "k", "a\rb"},
        {"CarriageReturnAtTheEndOfTheValue", "s", "k", "a\r"},
        {"TabInTheValue", "s", "k", "a\tb"},
        {"EscapeInTheValue", "s", "k", "a\x1b[0m"},
        {"LowestControlInTheKey", "s", "a\x01", "v"},
        {"DeleteInTheValue", "s", "k", "a\x7f"},
        {"EqualSignInTheKey", "s", "a=b", "v"},
        {"KeyThatIsASemicolonComment", "s", ";a", "v"},
        {"KeyThatIsAHashComment", "s", "#a", "v"},
        {"KeyThatIsASection", "s", "[a]", "v"},
    }),
    NameOfRow()
);

class KProfileOddTest : public KProfileTest, public testing::WithParamInterface<RefusedPutRow> {};

TEST_P(KProfileOddTest, ReadsBackAsItWasOrIsRefused) {
    const RefusedPutRow& row = GetParam();
    for (const char* before : {"", "a=1\n[s]\nb=2\n"}) {
        KProfile profile = Given(before);
        if (CodeOf([&] { profile.PutString(row.section, row.key, row.value); }) == 36U) {
            EXPECT_EQ(Bytes(), before);
            continue;
        }
        EXPECT_EQ(Reread(row.section, row.key), row.value) << TemporaryTree::Escaped(Bytes());
    }
}

INSTANTIATE_TEST_SUITE_P(
    Texts,
    KProfileOddTest,
    testing::ValuesIn(std::vector<RefusedPutRow>{
        {"BracketInTheSection", "a]b", "k", "v"},
        {"BracketAtTheEndOfTheSection", "a]", "k", "v"},
        {"SectionThatIsABracket", "]", "k", "v"},
        {"OpenBracketInTheSection", "[a", "k", "v"},
        {"SectionThatIsAComment", ";a", "k", "v"},
        {"SectionWithEqualSign", "a=b", "k", "v"},
        {"ByteOrderMarkInTheKey",
         "",
         "\xef\xbb\xbf"
         "k",
         "v"},
        {"KeyThatIsAByteOrderMark", "", "\xef\xbb\xbf", "v"},
        {"BracketBehindAByteOrderMark", "", "\xef\xbb\xbf[k]", "v"},
        {"BracketInTheKey", "s", "k]", "v"},
        {"EmptyKeyAndValueInASection", "s", "", ""},
        {"NextLineInTheValue",
         "s",
         "k",
         "a\xc2\x85"
         "b"},
        {"LineSeparatorInTheValue",
         "s",
         "k",
         "a\xe2\x80\xa8"
         "b"},
    }),
    NameOfRow()
);

TEST_F(KProfileTest, ARefusalIsSaidWithItsSource) {
    TraceRecorder trace;
    KProfile profile = Given("");
    const KError error = ErrorOf([&] { profile.PutString("s", "k", "a\nb"); });
    EXPECT_EQ(error.GetLevel(), 24U);
    EXPECT_EQ(std::string(error.GetFile()).substr(0, 6), "sup++/");
    EXPECT_THAT(trace.Texts(24), ElementsAre(error.GetSummary().c_str()));
}

} // namespace
} // namespace KTEST
