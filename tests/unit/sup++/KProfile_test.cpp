// SPDX-License-Identifier: MIT
//
// What a profile reads and answers, and which lines its changes touch. KProfileEnum_test.cpp has the
// enumeration, KProfileFile_test.cpp what happens to the file.
#include "../../support/TemporaryTree.h"
#include "../../support/TraceRecorder.h"
#include "Common.h"

#include <sup++/KProfile.h>

#include <cerrno>
#include <type_traits>

namespace KTEST {
namespace {

using KSUP::KError;
using KSUP::KProfile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class KProfileTest : public testing::Test {
  protected:
    KProfile Given(const std::string& bytes) {
        tree.Write("p.ini", bytes);
        return KProfile(Path());
    }
    KProfile Opened(const std::string& bytes) {
        tree.Write("p.ini", bytes);
        KProfile profile;
        profile.Open(Path());
        return profile;
    }
    std::string Path() const { return tree.Path("p.ini"); }
    std::string Bytes() const { return tree.Read("p.ini"); }
    /// As another object reads the file.
    std::string Reread(const std::string& section, const std::string& key) const {
        KProfile other;
        other.Open(Path());
        return other.GetString(section, key, "(default)").c_str();
    }

    TemporaryTree tree;
};

// Reading

struct ReadRow {
    const char* name;
    std::string bytes;
    const char* section;
    const char* key;
    const char* value;

    friend void PrintTo(const ReadRow& row, std::ostream* out) { *out << row.name; }
};

class KProfileReadTest : public KProfileTest, public testing::WithParamInterface<ReadRow> {};

TEST_P(KProfileReadTest, GivesTheValue) {
    const ReadRow& row = GetParam();
    EXPECT_EQ(Opened(row.bytes).GetString(row.section, row.key, "(default)"), row.value);
}

TEST_P(KProfileReadTest, SurvivesAChangeByteForByte) {
    Given(GetParam().bytes).PutString("added section", "added key", "value");
    EXPECT_THAT(Bytes(), StartsWith(GetParam().bytes));
    EXPECT_EQ(Reread(GetParam().section, GetParam().key), GetParam().value);
    EXPECT_EQ(Reread("added section", "added key"), "value");
}

INSTANTIATE_TEST_SUITE_P(
    Syntax,
    KProfileReadTest,
    testing::ValuesIn(std::vector<ReadRow>{
        {"Plain", "[s]\nk=v\n", "s", "k", "v"},
        {"WithoutTheLastNewline", "[s]\nk=v", "s", "k", "v"},
        {"MissingKey", "[s]\nk=v\n", "s", "other", "(default)"},
        {"MissingSection", "[s]\nk=v\n", "t", "k", "(default)"},
        {"EmptyFile", "", "s", "k", "(default)"},
        {"BlanksAroundTheKey", "[s]\n \tk \t=v\n", "s", "k", "v"},
        {"BlanksAroundTheValue", "[s]\nk= \tv w\t \n", "s", "k", "v w"},
        {"BlanksInTheKey", "[s]\na key=v\n", "s", "a key", "v"},
        {"EmptyValue", "[s]\nk=\n", "s", "k", ""},
        {"ValueOfBlanks", "[s]\nk=   \n", "s", "k", ""},
        {"NoEqualSign", "[s]\nk\n", "s", "k", ""},
        {"EqualSignsInTheValue", "[s]\nk=a=b=c\n", "s", "k", "a=b=c"},
        {"EmptyKey", "[s]\n=v\n", "s", "", "v"},
        {"QuotesStay", "[s]\nk=\"v\"\n", "s", "k", "\"v\""},
        {"BackslashesStay", "[s]\nk=a\\=b\\n\\\n", "s", "k", "a\\=b\\n\\"},
        {"SemicolonInTheValue", "[s]\nk=v ; w\n", "s", "k", "v ; w"},
        {"HashInTheValue", "[s]\nk=v # w\n", "s", "k", "v # w"},
        {"SemicolonComment", "[s]\n;k=v\n", "s", "k", "(default)"},
        {"HashComment", "[s]\n#k=v\n", "s", "k", "(default)"},
        {"CommentIsNoKey", "[s]\n;k=v\n", "s", ";k", "(default)"},
        {"IndentedSemicolonComment", "[s]\n \t;k=v\n", "s", "k", "(default)"},
        {"IndentedHashComment", "[s]\n \t#k=v\n", "s", "k", "(default)"},
        {"CommentedSection", "[s]\n;[t]\nk=v\n", "s", "k", "v"},
        {"KeysMatchExactly", "[s]\nKey=v\n", "s", "key", "(default)"},
        {"SectionsMatchExactly", "[Install]\nk=v\n", "install", "k", "(default)"},
        {"ASectionIsNoPrefix", "[install.x86_64]\nk=v\n", "install.x86", "k", "(default)"},
        {"NorIsAPrefixTheSection",
         "[install.x86]\nk=v\n[install.x86_64]\nk=w\n",
         "install.x86_64",
         "k",
         "w"},
        {"AKeyIsNoPrefix", "[s]\nkey=v\n", "s", "ke", "(default)"},
        {"TheFirstOfDuplicates", "[s]\nk=1\nk=2\nk=3\n", "s", "k", "1"},
        {"SectionInPieces", "[s]\na=1\n[t]\nb=2\n[s]\nk=v\n", "s", "k", "v"},
        {"FirstPieceFirst", "[s]\nk=1\n[t]\nk=2\n[s]\nk=3\n", "s", "k", "1"},
        {"BeforeTheFirstHeader", "k=v\n[s]\nk=w\n", "", "k", "v"},
        {"NotBeforeTheFirstHeader", "[s]\nk=w\n", "", "k", "(default)"},
        {"CarriageReturns", "[s]\r\nk=v\r\nl=w\r\n", "s", "k", "v"},
        {"CarriageReturnAtTheEnd", "[s]\r\nk=v\r", "s", "k", "v"},
        {"CarriageReturnsWithoutValue", "[s]\r\nk=\r\n", "s", "k", ""},
        {"CarriageReturnsWithoutEqualSign", "[s]\r\nk\r\n", "s", "k", ""},
        {"MixedLineEnds", "[s]\nk=v\r\nl=w\n", "s", "l", "w"},
        {"ByteOrderMarkBeforeASection", "\xef\xbb\xbf[s]\nk=v\n", "s", "k", "v"},
        {"ByteOrderMarkBeforeAKey", "\xef\xbb\xbfk=v\n", "", "k", "v"},
        {"ByteOrderMarkAlone", "\xef\xbb\xbf", "s", "k", "(default)"},
        {"CharactersOfManyBytes",
         "[\xc3\xa9]\n\xe2\x82\xac=\xf0\x9f\x98\x80\n",
         "\xc3\xa9",
         "\xe2\x82\xac",
         "\xf0\x9f\x98\x80"},
        {"InvalidBytes", "[s\xff]\nk\xfe=v\xc3\n", "s\xff", "k\xfe", "v\xc3"},
        {"BytesBehindANul", std::string("[s]\nk=v\n;a\0b\nl=w\n", 17), "s", "l", "w"},
        {"EmptyLines", "\n\n[s]\n\n\nk=v\n\n", "s", "k", "v"},
        {"DollarsStay", "[s]\nk=$product$\n", "s", "k", "$product$"},
        {"CommasStay", "[install]\nfile=copy,*.so,lib\n", "install", "file", "copy,*.so,lib"},
    }),
    RowName()
);

TEST_F(KProfileTest, ReadsValuesOfAnyLength) {
    const std::string value(1000000, 'v');
    EXPECT_EQ(Opened("[s]\nk=" + value + "\nl=w\n").GetString("s", "k", ""), value);
    EXPECT_EQ(Reread("s", "l"), "w");
}

TEST_F(KProfileTest, ReadsKeysOfAnyLength) {
    const std::string key(100000, 'k');
    EXPECT_EQ(Opened("[" + key + "]\n" + key + "=v\n").GetString(key, key, ""), "v");
}

TEST_F(KProfileTest, AFileOfZeroBytesHasContent) {
    KProfile profile = Opened("");
    EXPECT_TRUE(profile.HasContent());
    EXPECT_EQ(profile.GetNumber<unsigned int>("s", "k", 9U), 9U);
    profile.PutNumber<unsigned int>("s", "k", 4U, false);
    EXPECT_EQ(Bytes(), "[s]\nk=4\n");
}

// Without content

class KProfileWithoutContentTest : public KProfileTest {
  protected:
    KProfile profile;
};

TEST_F(KProfileWithoutContentTest, AnswersWithDefaults) {
    EXPECT_FALSE(profile.HasContent());
    EXPECT_EQ(profile.GetString("s", "k", "unknown"), "unknown");
    EXPECT_EQ(profile.GetNumber<unsigned int>("s", "k", 7U), 7U);
}

TEST_F(KProfileWithoutContentTest, HasNothingToEnumerate) {
    profile.BeginKeyEnum("s", nullptr);
    EXPECT_FALSE(profile.EnumKey(nullptr, false));
    EXPECT_FALSE(profile.EnumKey(nullptr, false));
}

TEST_F(KProfileWithoutContentTest, PutStringChangesNothingAndSaysSo) {
    TraceRecorder trace;
    profile.PutString("s", "k", "v");
    EXPECT_FALSE(profile.HasContent());
    EXPECT_THAT(trace.Texts(24), testing::SizeIs(1));
    EXPECT_THAT(trace.Messages(), testing::SizeIs(1));
}

TEST_F(KProfileWithoutContentTest, PutNumberRaisesItsError) {
    TraceRecorder trace;
    const KError error = ErrorOf([&] {
        profile.PutNumber<unsigned int>("installControl", "buildNumber", 7U, false);
    });
    EXPECT_EQ(error.GetLevel(), 24U);
    EXPECT_EQ(error.GetCode(), 36U);
    EXPECT_EQ(error.GetSubCode(), 0U);
    EXPECT_EQ(error.GetLine(), 120U);
    EXPECT_STREQ(error.GetFile(), "sup++/KProfile");
    EXPECT_STREQ(error.GetFunction(), "PutNumber");
    EXPECT_THAT(trace.Texts(24), ElementsAre(error.GetSummary().c_str()));
}

TEST_F(KProfileWithoutContentTest, DeletingAKeyDoesNothing) {
    profile.DeleteKey("s", "k");
    EXPECT_FALSE(profile.HasContent());
}

TEST_F(KProfileWithoutContentTest, AFailedOpenIsAnErrorThatNamesTheFile) {
    const KError error = ErrorOf([&] { profile.Open(Path()); });
    EXPECT_EQ(error.GetCode(), unsigned{ENOENT});
    EXPECT_EQ(error.GetInfo().GetString(), SystemInfo(Path(), ENOENT));
    EXPECT_FALSE(profile.HasContent());
    EXPECT_FALSE(tree.Exists("p.ini"));
}

TEST_F(KProfileWithoutContentTest, AFailedOpenTakesAFormerContentAway) {
    tree.Write("p.ini", "[s]\nk=v\n");
    profile.Open(Path());
    EXPECT_NE(CodeOf([&] { profile.Open(tree.Path("missing")); }), 0U);
    EXPECT_FALSE(profile.HasContent());
    EXPECT_EQ(profile.GetString("s", "k", "default"), "default");
}

TEST_F(KProfileWithoutContentTest, ACopyHasNoneEither) {
    const KProfile copy(profile);
    EXPECT_FALSE(copy.HasContent());
}

// Numbers

struct NumberRow {
    const char* name;
    const char* value;
    unsigned number;

    friend void PrintTo(const NumberRow& row, std::ostream* out) { *out << row.name; }
};

class KProfileNumberTest : public KProfileTest, public testing::WithParamInterface<NumberRow> {};

TEST_P(KProfileNumberTest, IsReadOrDefault) {
    const KProfile profile = Opened("[s]\nk=" + std::string(GetParam().value) + "\n");
    EXPECT_EQ(profile.GetNumber<unsigned int>("s", "k", 99U), GetParam().number);
}

INSTANTIATE_TEST_SUITE_P(
    Values,
    KProfileNumberTest,
    testing::ValuesIn(std::vector<NumberRow>{
        {"Decimal", "42", 42},
        {"Blanks", "  42  ", 42},
        {"Hexadecimal", "0x1F", 31},
        {"Largest", "4294967295", 4294967295U},
        {"WhatFollowsIsIgnored", "12abc", 12},
        {"MinusWrapsAround", "-1", 4294967295U},
        {"SplitAtTheFirstEqualSign", "5=6", 5},
        {"Letters", "abc", 99},
        {"Empty", "", 99},
        {"TooLarge", "4294967296", 99},
    }),
    RowName()
);

TEST_F(KProfileTest, AMissingNumberIsTheDefault) {
    const KProfile profile = Opened("[s]\nk=1\n");
    EXPECT_EQ(profile.GetNumber<unsigned int>("s", "other", 5U), 5U);
    EXPECT_EQ(profile.GetNumber<unsigned int>("t", "k", 6U), 6U);
}

TEST_F(KProfileTest, PutsNumbersInBothForms) {
    KProfile profile = Given("[s]\nold=1\n");
    profile.PutNumber<unsigned int>("s", "old", 4294967295U, false);
    profile.PutNumber<unsigned int>("s", "new", 255U, true);
    EXPECT_EQ(Bytes(), "[s]\nold=4294967295\nnew=0x00000ff\n");
    EXPECT_EQ(profile.GetNumber<unsigned int>("s", "old", 0U), 4294967295U);
    EXPECT_EQ(profile.GetNumber<unsigned int>("s", "new", 0U), 255U);
}

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
    RowName()
);

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
    RowName()
);

// What is refused

struct RefusedRow {
    const char* name;
    std::string section;
    std::string key;
    std::string value;

    friend void PrintTo(const RefusedRow& row, std::ostream* out) { *out << row.name; }
};

class KProfileRefusedTest : public KProfileTest, public testing::WithParamInterface<RefusedRow> {};

TEST_P(KProfileRefusedTest, IsAnErrorAndChangesNothing) {
    const RefusedRow& row = GetParam();
    KProfile profile = Given("[s]\na=1\n");
    const auto inode = tree.Status("p.ini").st_ino;
    EXPECT_EQ(CodeOf([&] { profile.PutString(row.section, row.key, row.value); }), 36U);
    EXPECT_EQ(Bytes(), "[s]\na=1\n");
    EXPECT_EQ(tree.Status("p.ini").st_ino, inode);
}

INSTANTIATE_TEST_SUITE_P(
    Texts,
    KProfileRefusedTest,
    testing::ValuesIn(std::vector<RefusedRow>{
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
    RowName()
);

class KProfileOddTest : public KProfileTest, public testing::WithParamInterface<RefusedRow> {};

TEST_P(KProfileOddTest, ReadsBackAsItWasOrIsRefused) {
    const RefusedRow& row = GetParam();
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
    testing::ValuesIn(std::vector<RefusedRow>{
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
    RowName()
);

TEST_F(KProfileTest, ARefusalIsSaidWithItsSource) {
    TraceRecorder trace;
    KProfile profile = Given("");
    const KError error = ErrorOf([&] { profile.PutString("s", "k", "a\nb"); });
    EXPECT_EQ(error.GetLevel(), 24U);
    EXPECT_EQ(std::string(error.GetFile()).substr(0, 6), "sup++/");
    EXPECT_THAT(trace.Texts(24), ElementsAre(error.GetSummary().c_str()));
}

// Copies

TEST_F(KProfileTest, CopiesShareTheContent) {
    EXPECT_TRUE(std::is_nothrow_copy_constructible_v<KProfile>);
    KProfile original = Given("[s]\na=1\n");
    KProfile copy(original);
    KProfile assigned;
    assigned = original;
    original.PutString("s", "a", "2");
    EXPECT_EQ(copy.GetString("s", "a", ""), "2");
    copy.PutString("s", "b", "3");
    EXPECT_EQ(original.GetString("s", "b", ""), "3");
    EXPECT_EQ(assigned.GetString("s", "b", ""), "3");
}

TEST_F(KProfileTest, ACopyThatOpensAnotherFileLeavesTheOriginal) {
    const KProfile original = Given("[s]\na=1\n");
    tree.Write("q.ini", "[s]\na=2\n");
    KProfile copy(original);
    copy.Open(tree.Path("q.ini"));
    EXPECT_EQ(original.GetString("s", "a", ""), "1");
    EXPECT_EQ(copy.GetString("s", "a", ""), "2");
}

TEST_F(KProfileTest, ACopyOutlivesTheOriginal) {
    KProfile copy;
    {
        const KProfile original = Given("[s]\na=1\n");
        copy = original;
    }
    EXPECT_EQ(copy.GetString("s", "a", ""), "1");
}

TEST_F(KProfileTest, SurvivesAssignmentToItself) {
    KProfile profile = Given("[s]\na=1\n");
    const KProfile& same = profile;
    profile = same;
    EXPECT_EQ(profile.GetString("s", "a", ""), "1");
}

} // namespace
} // namespace KTEST
