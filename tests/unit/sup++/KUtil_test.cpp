// SPDX-License-Identifier: MIT
#include "../../support/NameOfRow.h"
#include "../../support/TraceRecorder.h"
#include "Common.h"

#include <sup++/KErrorCode.h>
#include <sup++/KList.h>
#include <sup++/KUtil.h>

#include <array>
#include <atomic>
#include <locale>
#include <map>
#include <thread>

#include <unistd.h>

namespace KINS {

// As the engine's classes are named.
class KImaginaryRule {
  public:
    virtual ~KImaginaryRule() = default;
};

class KDerivedRule : public KImaginaryRule {};

template <class T>
class KImaginaryList {};

} // namespace KINS

namespace KTEST {
namespace {

using KSUP::KString;
using KSUP::KUtil;
using testing::ElementsAre;

// Paths

struct PathRow {
    const char* name;
    const char* path;
    const char* result;

    friend void PrintTo(const PathRow& row, std::ostream* out) { *out << row.name; }
};

class KUtilAppendTest : public testing::TestWithParam<PathRow> {};
TEST_P(KUtilAppendTest, LeavesOneSeparatorAtTheEnd) {
    EXPECT_EQ(KUtil::AppendPathSep(GetParam().path, "/"), GetParam().result);
}
INSTANTIATE_TEST_SUITE_P(
    Paths,
    KUtilAppendTest,
    testing::ValuesIn(std::vector<PathRow>{
        {"WithoutOne", "/opt/p", "/opt/p/"},
        {"WithOne", "/opt/p/", "/opt/p/"},
        {"WithThree", "/opt/p///", "/opt/p/"},
        {"Root", "/", "/"},
        {"Empty", "", "/"},
        {"Relative", "lin", "lin/"},
        {"InsideStays", "/opt//p", "/opt//p/"},
        {"CharactersOfManyBytes", "/\xc3\xa9", "/\xc3\xa9/"},
    }),
    NameOfRow()
);

class KUtilRemoveTest : public testing::TestWithParam<PathRow> {};
TEST_P(KUtilRemoveTest, LeavesNoSeparatorAtTheEnd) {
    EXPECT_EQ(KUtil::RemovePathSep(GetParam().path, "/"), GetParam().result);
}
INSTANTIATE_TEST_SUITE_P(
    Paths,
    KUtilRemoveTest,
    testing::ValuesIn(std::vector<PathRow>{
        {"WithoutOne", "/opt/p", "/opt/p"},
        {"WithOne", "/opt/p/", "/opt/p"},
        {"WithThree", "/opt/p///", "/opt/p"},
        {"Root", "/", ""},
        {"OnlySeparators", "///", ""},
        {"Empty", "", ""},
        {"Relative", "lin/", "lin"},
    }),
    NameOfRow()
);

class KUtilFileTest : public testing::TestWithParam<PathRow> {};
TEST_P(KUtilFileTest, IsTheLastComponent) {
    EXPECT_EQ(KUtil::GetFileFromPath(GetParam().path, "/"), GetParam().result);
}
INSTANTIATE_TEST_SUITE_P(
    Paths,
    KUtilFileTest,
    testing::ValuesIn(std::vector<PathRow>{
        {"Absolute", "/opt/p/lib/core.so", "core.so"},
        {"InRoot", "/a", "a"},
        {"Bare", "core.so", "core.so"},
        {"EndsInASeparator", "/opt/p/", ""},
        {"Empty", "", ""},
        {"Root", "/", ""},
        {"Pattern", "/opt/p/*.so", "*.so"},
        {"StrangeName", "/opt/a\n\xff", "a\n\xff"},
    }),
    NameOfRow()
);

class KUtilDirectoryTest : public testing::TestWithParam<PathRow> {};
TEST_P(KUtilDirectoryTest, IsThePathWithoutTheLastComponent) {
    EXPECT_EQ(KUtil::RemoveFileFromPath(GetParam().path, "/"), GetParam().result);
}
INSTANTIATE_TEST_SUITE_P(
    Paths,
    KUtilDirectoryTest,
    testing::ValuesIn(std::vector<PathRow>{
        {"Absolute", "/opt/p/lin", "/opt/p"},
        {"InRoot", "/a", "/"},
        {"Bare", "a", ""},
        {"Relative", "a/b", "a"},
        {"Empty", "", ""},
        {"Root", "/", "/"},
    }),
    NameOfRow()
);

TEST(KUtilTest, ARecordLinkLosesThreeComponents) {
    KString path("/opt/p/lin/x86/svc");
    for (int component = 0; component < 3; ++component) {
        path = KUtil::RemoveFileFromPath(KUtil::RemovePathSep(path, "/"), "/");
    }
    EXPECT_EQ(path, "/opt/p");
}

TEST(KUtilTest, ARecordLinkWithFewerComponentsGivesNoPath) {
    for (const char* link : {"/", "/svc", "/x86/svc"}) {
        KString path(link);
        for (int component = 0; component < 3; ++component) {
            path = KUtil::RemoveFileFromPath(KUtil::RemovePathSep(path, "/"), "/");
        }
        EXPECT_EQ(path, "") << link;
    }
}

TEST(KUtilTest, SeparatorsAreWhatTheCallerSays) {
    EXPECT_EQ(KUtil::AppendPathSep("a\\b", "\\"), "a\\b\\");
    EXPECT_EQ(KUtil::RemovePathSep("a\\b\\", "\\"), "a\\b");
    EXPECT_EQ(KUtil::GetFileFromPath("a\\b/c", "\\"), "b/c");
    EXPECT_EQ(KUtil::RemoveFileFromPath("a\\b/c", "\\"), "a");
}

// The path map

class KUtilPathMapTest : public testing::Test {
  protected:
    ~KUtilPathMapTest() override {
        for (const auto& [id, path] : former) {
            KUtil::SetPathMap(id, path);
        }
    }
    void Set(unsigned id, const KString& path) {
        former.emplace(id, KUtil::GetPathMap(id));
        KUtil::SetPathMap(id, path);
    }
    std::map<unsigned, KString> former;
};

TEST_F(KUtilPathMapTest, TheSourceRootBeginsAsTheDirectoryOfTheProgram) {
    std::array<char, 4096> program{};
    ASSERT_GT(::readlink("/proc/self/exe", program.data(), program.size() - 1), 0);
    const KString expected = KUtil::RemoveFileFromPath(program.data(), "/");
    EXPECT_EQ(KUtil::RemovePathSep(KUtil::GetPathMap(2), "/"), expected);
}

TEST_F(KUtilPathMapTest, TheLogDirectoryBeginsAsVarLog) {
    EXPECT_EQ(KUtil::GetPathMap(19), "/var/log/");
}

TEST_F(KUtilPathMapTest, AnEntryThatIsNotSetIsEmpty) {
    EXPECT_EQ(KUtil::GetPathMap(1000), "");
}

TEST_F(KUtilPathMapTest, AnEntryIsWhatWasSetLast) {
    Set(39, "/src/win/x86/");
    Set(44, "/opt/p/lin");
    EXPECT_EQ(KUtil::GetPathMap(39), "/src/win/x86/");
    EXPECT_EQ(KUtil::GetPathMap(44), "/opt/p/lin");
    Set(44, "/opt/q/lin");
    EXPECT_EQ(KUtil::GetPathMap(44), "/opt/q/lin");
    EXPECT_EQ(KUtil::GetPathMap(39), "/src/win/x86/");
}

TEST_F(KUtilPathMapTest, TakesAnyNumber) {
    Set(4294967295U, "/far");
    EXPECT_EQ(KUtil::GetPathMap(4294967295U), "/far");
}

TEST_F(KUtilPathMapTest, NamesAFileInTheDirectoryOfAnEntry) {
    Set(55, "/opt/p/config/");
    EXPECT_EQ(KUtil::GetPathName(55, "dps.ini"), "/opt/p/config/dps.ini");
    Set(44, "/opt/p/lin");
    EXPECT_EQ(KUtil::GetPathName(44, "x"), "/opt/p/lin/x");
}

TEST_F(KUtilPathMapTest, IsReadAndSetFromSeveralThreads) {
    Set(60, "/a/a/a/a/a/a/a/a/a/a/a/a/");
    std::atomic<bool> torn{false};
    std::thread writer([] {
        for (int step = 0; step < 2000; ++step) {
            KUtil::SetPathMap(60, std::string(static_cast<std::size_t>(step % 60 + 1), 'b'));
        }
    });
    for (int step = 0; step < 2000; ++step) {
        const std::string path = KUtil::GetPathMap(60).c_str();
        torn = torn || (path.find('a') != std::string::npos && path.find('b') != std::string::npos);
    }
    writer.join();
    EXPECT_FALSE(torn);
}

// Numbers

struct WrittenNumberRow {
    const char* name;
    const char* text;
    bool hex;
    unsigned value;

    friend void PrintTo(const WrittenNumberRow& row, std::ostream* out) { *out << row.name; }
};

class KUtilNumberTest : public testing::TestWithParam<WrittenNumberRow> {};
TEST_P(KUtilNumberTest, IsRead) {
    EXPECT_EQ(
        KUtil::StringToNumber<unsigned int>(GetParam().text, GetParam().hex), GetParam().value
    );
}
INSTANTIATE_TEST_SUITE_P(
    Texts,
    KUtilNumberTest,
    testing::ValuesIn(std::vector<WrittenNumberRow>{
        {"Zero", "0", false, 0},
        {"Decimal", "42", false, 42},
        {"LeadingBlanks", "   42", false, 42},
        {"LeadingWhiteSpace", "\t\n\v\f\r 42", false, 42},
        {"WhatFollowsIsIgnored", "12abc", false, 12},
        {"ABlankEnds", "12 34", false, 12},
        {"ADotEnds", "12.9", false, 12},
        {"ACommaEnds", "1,000", false, 1},
        {"LeadingZerosAreDecimal", "010", false, 10},
        {"Plus", "+5", false, 5},
        {"Largest", "4294967295", false, 4294967295U},
        {"MinusWrapsAround", "-1", false, 4294967295U},
        {"LargestMinusWrapsAround", "-4294967295", false, 1},
        {"Prefix", "0x1f", false, 31},
        {"UpperPrefix", "0X1f", false, 31},
        {"UpperPrefixWithHex", "0X1f", true, 31},
        {"UpperDigits", "0x1F", false, 31},
        {"PrefixBehindABlankIsNone", " 0x1f", false, 0},
        {"Hex", "1f", true, 31},
        {"HexDigitsOnly", "10", true, 16},
        {"HexEndsAtTheFirstOther", "1fg", true, 31},
        {"LargestHex", "0xffffffff", false, 4294967295U},
        {"BlankBehindThePrefix", "0x 1f", false, 31},
    }),
    NameOfRow()
);

class KUtilNoNumberTest : public testing::TestWithParam<WrittenNumberRow> {};
TEST_P(KUtilNoNumberTest, IsAnErrorWithTheText) {
    TraceRecorder trace;
    const KSUP::KError error =
        ErrorOf([] { KUtil::StringToNumber<unsigned int>(GetParam().text, GetParam().hex); });
    EXPECT_EQ(error.GetCode(), 176U);
    EXPECT_EQ(error.GetLevel(), 24U);
    EXPECT_EQ(error.GetSubCode(), 0U);
    EXPECT_STREQ(error.GetFile(), "sup++/KUtil");
    EXPECT_STREQ(error.GetFunction(), "StringToNumber");
    EXPECT_EQ(error.GetInfo().GetType(), 4U);
    EXPECT_EQ(error.GetInfo().GetString(), GetParam().text);
    EXPECT_THAT(trace.Texts(24), ElementsAre(error.GetSummary().c_str()));
}
INSTANTIATE_TEST_SUITE_P(
    Texts,
    KUtilNoNumberTest,
    testing::ValuesIn(std::vector<WrittenNumberRow>{
        {"Empty", "", false, 0},
        {"Blanks", "   ", false, 0},
        {"Letters", "abc", false, 0},
        {"OnlyThePrefix", "0x", false, 0},
        {"PrefixAndOther", "0xzz", false, 0},
        {"OnlyMinus", "-", false, 0},
        {"TwoSigns", "--1", false, 0},
        {"TooLarge", "4294967296", false, 0},
        {"MuchTooLarge", "99999999999999999999999999", false, 0},
        {"MinusTooLarge", "-4294967296", false, 0},
        {"HexTooLarge", "0x100000000", false, 0},
        {"OtherWithHex", "xyz", true, 0},
        {"DigitsOfOtherScripts", "\xef\xbc\x91", false, 0},
    }),
    NameOfRow()
);

TEST(KUtilTest, WritesWholeNumbers) {
    EXPECT_EQ(KUtil::NumberToString(0U, false), "0");
    EXPECT_EQ(KUtil::NumberToString(255U, false), "255");
    EXPECT_EQ(KUtil::NumberToString(4294967295U, false), "4294967295");
}

TEST(KUtilTest, WritesHexadecimalsWithSevenDigitsAtLeast) {
    EXPECT_EQ(KUtil::NumberToString(255U, true), "0x00000ff");
    EXPECT_EQ(KUtil::NumberToString(0U, true), "0x0000000");
    EXPECT_EQ(KUtil::NumberToString(0xABCDEFU, true), "0x0abcdef");
    EXPECT_EQ(KUtil::NumberToString(4294967295U, true), "0xffffffff");
}

struct RealRow {
    const char* name;
    double value;
    bool hex;
    const char* text;

    friend void PrintTo(const RealRow& row, std::ostream* out) { *out << row.name; }
};

class KUtilRealTest : public testing::TestWithParam<RealRow> {};
TEST_P(KUtilRealTest, IsWritten) {
    EXPECT_EQ(KUtil::NumberToString(GetParam().value, GetParam().hex), GetParam().text);
}
INSTANTIATE_TEST_SUITE_P(
    Values,
    KUtilRealTest,
    testing::ValuesIn(std::vector<RealRow>{
        {"Half", 0.5, false, "0.5"},
        {"Whole", 42.0, false, "42"},
        {"Hundred", 100.0, false, "100"},
        {"Zero", 0.0, false, "0"},
        {"Chunk", 65536.0 / 200000.0 * 100.0, false, "32.768"},
        {"SixDigits", 1.0 / 3.0, false, "0.333333"},
        {"SixDigitsRounded", 2.0 / 3.0, false, "0.666667"},
        {"Minus", -1.5, false, "-1.5"},
        {"Large", 123456789.0, false, "1.23457e+08"},
        {"Million", 1000000.0, false, "1e+06"},
        {"BelowAMillion", 999999.0, false, "999999"},
        {"Small", 0.00001, false, "1e-05"},
        {"NoPercentage", 4294967295.0, false, "4.29497e+09"},
        {"FilledWithZeros", 0.5, true, "0x000000000.5"},
        {"WholeFilledWithZeros", 42.0, true, "0x00000000042"},
    }),
    NameOfRow()
);

class GroupingDigits : public std::numpunct<char> {
  protected:
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

class KUtilLocaleTest : public testing::Test {
  protected:
    KUtilLocaleTest()
        : former(std::locale::global(std::locale(std::locale::classic(), new GroupingDigits))) {}
    ~KUtilLocaleTest() override { std::locale::global(former); }
    std::locale former;
};

TEST_F(KUtilLocaleTest, NumbersAreThoseOfTheClassicLocale) {
    EXPECT_EQ(KUtil::NumberToString(1234567U, false), "1234567");
    EXPECT_EQ(KUtil::NumberToString(0.5, false), "0.5");
    EXPECT_EQ(KUtil::StringToNumber<unsigned int>("1.234", false), 1U);
}

// Names

TEST(KUtilTest, LowerifyLowersACopy) {
    const KString text("CREATE \xc3\x89");
    EXPECT_EQ(KUtil::Lowerify(text), "create \xc3\x89");
    EXPECT_EQ(text, "CREATE \xc3\x89");
}

TEST(KUtilTest, NamesClassesForTheLog) {
    EXPECT_EQ(
        KUtil::GetClassNameFromTypeInfo(typeid(KINS::KImaginaryRule)), "KINS::KImaginaryRule:"
    );
    EXPECT_EQ(KUtil::GetClassNameFromTypeInfo(typeid(KString)), "KString:");
    EXPECT_EQ(KUtil::GetClassNameFromTypeInfo(typeid(int)), "int:");
}

TEST(KUtilTest, NamesTheClassOfTheObjectItself) {
    const KINS::KDerivedRule derived;
    const KINS::KImaginaryRule& rule = derived;
    EXPECT_EQ(KUtil::GetClassNameFromTypeInfo(typeid(rule)), "KINS::KDerivedRule:");
}

TEST(KUtilTest, RemovesTheLibrarysNamespaceEverywhereAndCutsAtABlank) {
    EXPECT_EQ(
        KUtil::GetClassNameFromTypeInfo(typeid(KINS::KImaginaryList<KString>)),
        "KINS::KImaginaryList<KString>:"
    );
    EXPECT_EQ(
        KUtil::GetClassNameFromTypeInfo(typeid(KINS::KImaginaryList<KSUP::KList<KString>>)),
        "KINS::KImaginaryList<KList<KString>:"
    );
    EXPECT_EQ(KUtil::GetClassNameFromTypeInfo(typeid(std::pair<int, KString>)), "std::pair<int,:");
    EXPECT_EQ(KUtil::GetClassNameFromTypeInfo(typeid(unsigned int)), "unsigned:");
}

} // namespace
} // namespace KTEST
