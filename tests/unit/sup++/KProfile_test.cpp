// SPDX-License-Identifier: MIT
//
// What a profile reads and answers. KProfilePut_test.cpp has the changes, KProfileEnum_test.cpp the
// enumeration, KProfileFile_test.cpp what happens to the file.
#include "../../support/NameOfRow.h"
#include "../../support/TraceRecorder.h"
#include "KProfileFixture.h"

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
    NameOfRow()
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
    NameOfRow()
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
