// SPDX-License-Identifier: MIT
#include "../../support/NameOfRow.h"
#include "Common.h"

#include <sup++/SvcCommandLine.h>
#include <sup++/SvcData.h>

#include <array>

namespace KTEST {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SvcCommandLineTest : public testing::Test {
  protected:
    ~SvcCommandLineTest() override { RestoreCommandLine(); }

    static void Given(const std::vector<std::string>& arguments) {
        std::vector<const char*> pointers;
        for (const std::string& argument : arguments) {
            pointers.push_back(argument.c_str());
        }
        EXPECT_EQ(SvcSetCommandLine(static_cast<unsigned>(pointers.size()), pointers.data()), 0U);
    }
    static unsigned Next(unsigned& cursor, std::string& value, unsigned size = 512) {
        std::vector<char> buffer(size + 1, '#');
        const unsigned status = SvcEnumerateStringFromCommandLine(
            0, SvcGetGlobalDataEx()->commandLine, "", "addProfileLine", size, &cursor, buffer.data()
        );
        EXPECT_EQ(buffer.back(), '#') << "nothing is written behind the buffer";
        value = status == 0 ? buffer.data() : "";
        return status;
    }
    /// Each value, or "!" and the status of an error, up to the end.
    static std::vector<std::string> Values(unsigned size = 512) {
        std::vector<std::string> values;
        unsigned cursor = 0;
        std::string value;
        unsigned status = 0;
        while ((status = Next(cursor, value, size)) != 64 && values.size() < 5000) {
            values.push_back(status == 0 ? value : "!" + std::to_string(status));
        }
        return values;
    }
};

struct OptionRow {
    const char* name;
    std::vector<std::string> arguments;
    std::vector<std::string> values;

    friend void PrintTo(const OptionRow& row, std::ostream* out) { *out << row.name; }
};

class SvcOptionTest : public SvcCommandLineTest, public testing::WithParamInterface<OptionRow> {};

TEST_P(SvcOptionTest, GivesTheValuesInOrder) {
    Given(GetParam().arguments);
    EXPECT_EQ(Values(), GetParam().values);
}

const std::string longest(511, 'v');
const std::string tooLong(512, 'v');

INSTANTIATE_TEST_SUITE_P(
    Lines,
    SvcOptionTest,
    testing::ValuesIn(std::vector<OptionRow>{
        {"None", {"setup"}, {}},
        {"NoArgumentsAtAll", {}, {}},
        {"EqualSign", {"setup", "--addProfileLine=a,b,c"}, {"a,b,c"}},
        {"NextArgument", {"setup", "--addProfileLine", "a,b,c"}, {"a,b,c"}},
        {"OneDashEqualSign", {"setup", "-addProfileLine=a"}, {"a"}},
        {"OneDashNextArgument", {"setup", "-addProfileLine", "a"}, {"a"}},
        {"Several",
         {"setup", "--addProfileLine=1", "-addProfileLine", "2", "--addProfileLine=3"},
         {"1", "2", "3"}},
        {"AmongOthers",
         {"setup", "install", "--kit", "x", "--addProfileLine=1", "-v", "path"},
         {"1"}},
        {"ThreeDashes", {"setup", "---addProfileLine=1"}, {}},
        {"NoDash", {"setup", "addProfileLine=1"}, {}},
        {"ALongerName", {"setup", "--addProfileLines=1"}, {}},
        {"AShorterName", {"setup", "--addProfileLin=1"}, {}},
        {"AnotherCase", {"setup", "--addprofileline=1"}, {}},
        {"BlankInTheName", {"setup", "--addProfileLine =1"}, {}},
        {"TheProgramIsNotLookedAt", {"--addProfileLine=1"}, {}},
        {"TheProgramTakesNoValue", {"--addProfileLine", "--addProfileLine=1"}, {"1"}},
        {"NothingFollowsAnOptionThatTheEndCutsShort",
         {"setup", "--addProfileLine", "--", "--addProfileLine=1"},
         {"!36"}},
        {"TheProgramIsNoEndOfOptions", {"--", "--addProfileLine=1"}, {"1"}},
        {"BehindTheEndOfOptions",
         {"setup", "--addProfileLine=1", "--", "--addProfileLine=2"},
         {"1"}},
        {"TheEndOfOptionsIsNoValue", {"setup", "--addProfileLine", "--", "x"}, {"!36"}},
        {"AValueThatLooksLikeAnOption",
         {"setup", "--addProfileLine=--addProfileLine=x"},
         {"--addProfileLine=x"}},
        {"EmptyByEqualSign", {"setup", "--addProfileLine="}, {""}},
        {"EmptyArgument", {"setup", "--addProfileLine", ""}, {""}},
        {"EqualSignsInTheValue", {"setup", "--addProfileLine=a=b=c"}, {"a=b=c"}},
        {"Quotes",
         {"setup", "--addProfileLine=a\"b'c\\d", "--addProfileLine", "\"\"''\\\\"},
         {"a\"b'c\\d", "\"\"''\\\\"}},
        {"BlanksAndNewlines",
         {"setup", "--addProfileLine= a\tb\n c ", "--addProfileLine", "\n"},
         {" a\tb\n c ", "\n"}},
        {"OtherBytes", {"setup", "--addProfileLine=\xc3\xa9\xff$x$"}, {"\xc3\xa9\xff$x$"}},
        {"LongestValue", {"setup", "--addProfileLine=" + longest}, {longest}},
        {"LongestValueAsArgument", {"setup", "--addProfileLine", longest}, {longest}},
        {"TooLongIsAnErrorAndTheRestGoesOn",
         {"setup", "--addProfileLine=1", "--addProfileLine=" + tooLong, "--addProfileLine=3"},
         {"1", "!36", "3"}},
        {"TooLongAsArgument",
         {"setup", "--addProfileLine", tooLong, "--addProfileLine=3"},
         {"!36", "3"}},
        {"WithoutValue", {"setup", "--addProfileLine=1", "--addProfileLine"}, {"1", "!36"}},
    }),
    NameOfRow()
);

TEST_F(SvcCommandLineTest, AThousandOptionsAreGiven) {
    std::vector<std::string> arguments{"setup"};
    std::vector<std::string> values;
    for (int option = 0; option < 1000; ++option) {
        values.push_back("General,Key" + std::to_string(option) + ",value");
        arguments.push_back("--addProfileLine=" + values.back());
    }
    Given(arguments);
    EXPECT_EQ(Values(), values);
}

TEST_F(SvcCommandLineTest, TheEndIsReportedAgainAndAgain) {
    Given({"setup", "--addProfileLine=1"});
    unsigned cursor = 0;
    std::string value;
    EXPECT_EQ(Next(cursor, value), 0U);
    EXPECT_EQ(Next(cursor, value), 64U);
    EXPECT_EQ(Next(cursor, value), 64U);
}

TEST_F(SvcCommandLineTest, AValueFitsWithItsNul) {
    Given({"setup", "--addProfileLine=1234"});
    EXPECT_THAT(Values(5), ElementsAre("1234"));
    EXPECT_THAT(Values(4), ElementsAre("!36"));
    EXPECT_THAT(Values(1), ElementsAre("!36"));
}

TEST_F(SvcCommandLineTest, APrefixStandsBeforeTheName) {
    Given({"setup", "--addProfileLine=1", "--dps.addProfileLine=2"});
    unsigned cursor = 0;
    std::array<char, 16> buffer{};
    const char* line = SvcGetGlobalDataEx()->commandLine;
    EXPECT_EQ(
        SvcEnumerateStringFromCommandLine(
            0, line, "dps.", "addProfileLine", 16, &cursor, buffer.data()
        ),
        0U
    );
    EXPECT_STREQ(buffer.data(), "2");
}

TEST_F(SvcCommandLineTest, NoCommandLineHasNoValues) {
    unsigned cursor = 0;
    std::array<char, 16> buffer{};
    EXPECT_EQ(
        SvcEnumerateStringFromCommandLine(0, nullptr, "", "x", 16, &cursor, buffer.data()), 64U
    );
    EXPECT_EQ(SvcEnumerateStringFromCommandLine(0, "", "", "x", 16, &cursor, buffer.data()), 64U);
}

TEST_F(SvcCommandLineTest, ArgumentsThatCannotBeAreRefused) {
    Given({"setup", "--x=1"});
    const char* line = SvcGetGlobalDataEx()->commandLine;
    unsigned cursor = 0;
    std::array<char, 16> buffer{};
    EXPECT_EQ(
        SvcEnumerateStringFromCommandLine(0, line, "", nullptr, 16, &cursor, buffer.data()), 36U
    );
    EXPECT_EQ(SvcEnumerateStringFromCommandLine(0, line, "", "x", 16, nullptr, buffer.data()), 36U);
    EXPECT_EQ(SvcEnumerateStringFromCommandLine(0, line, "", "x", 16, &cursor, nullptr), 36U);
    EXPECT_EQ(SvcSetCommandLine(1, nullptr), 36U);
}

TEST_F(SvcCommandLineTest, ALineSavedLaterIsTheOneThatStands) {
    Given({"setup", "--addProfileLine=1"});
    Given({"setup", "--addProfileLine=2"});
    EXPECT_THAT(Values(), ElementsAre("2"));
    Given({"setup"});
    EXPECT_THAT(Values(), IsEmpty());
}

TEST_F(SvcCommandLineTest, SurvivesEveryByte) {
    std::string value;
    for (int byte = 1; byte < 256; ++byte) {
        value += static_cast<char>(byte);
    }
    Given({"setup", "--addProfileLine=" + value, "--addProfileLine", value});
    EXPECT_THAT(Values(), ElementsAre(value, value));
}

// Sections and keys

class SvcSectionOptionTest : public SvcCommandLineTest {
  protected:
    static std::string Value(const char* section, const char* key, unsigned size = 64) {
        std::array<char, 64> buffer{};
        buffer.fill('#');
        const unsigned status =
            SvcGetStringFromCommandLine(0, "test", section, key, size, buffer.data());
        return status == 0 ? buffer.data() : "!" + std::to_string(status);
    }
};

TEST_F(SvcSectionOptionTest, IsTheFirstOptionOfSectionAndKey) {
    Given({"setup", "--General.Other=1", "--General.LogLevel=2", "--General.LogLevel=3"});
    EXPECT_EQ(Value("General", "LogLevel"), "2");
    EXPECT_EQ(Value("General", "Other"), "1");
}

TEST_F(SvcSectionOptionTest, MatchesExactly) {
    Given({"setup", "--General.LogLevel=2", "--LogLevel=4"});
    EXPECT_EQ(Value("general", "LogLevel"), "!64");
    EXPECT_EQ(Value("General", "Log"), "!64");
    EXPECT_EQ(Value("Gen", "LogLevel"), "!64");
}

TEST_F(SvcSectionOptionTest, TakesTheNextArgumentToo) {
    Given({"setup", "-General.LogLevel", "2 3"});
    EXPECT_EQ(Value("General", "LogLevel"), "2 3");
}

TEST_F(SvcSectionOptionTest, IsNeverCut) {
    Given({"setup", "--s.k=1234"});
    EXPECT_EQ(Value("s", "k", 5), "1234");
    EXPECT_EQ(Value("s", "k", 4), "!36");
}

TEST_F(SvcSectionOptionTest, WithoutAValueIsAnError) {
    Given({"setup", "--s.k"});
    EXPECT_EQ(Value("s", "k"), "!36");
}

TEST_F(SvcSectionOptionTest, WithoutAContextThereIsNone) {
    Given({"setup", "--s.k=1"});
    std::array<char, 16> buffer{};
    EXPECT_EQ(SvcGetStringFromCommandLine(0, nullptr, "s", "k", 16, buffer.data()), 64U);
}

TEST_F(SvcSectionOptionTest, ArgumentsThatCannotBeAreRefused) {
    Given({"setup", "--s.k=1"});
    std::array<char, 16> buffer{};
    EXPECT_EQ(SvcGetStringFromCommandLine(0, "test", nullptr, "k", 16, buffer.data()), 36U);
    EXPECT_EQ(SvcGetStringFromCommandLine(0, "test", "s", nullptr, 16, buffer.data()), 36U);
    EXPECT_EQ(SvcGetStringFromCommandLine(0, "test", "s", "k", 16, nullptr), 36U);
}

// The process's own

TEST(SvcOwnCommandLineTest, StandsThereFromTheBeginning) {
    EXPECT_TRUE(PassesAlone(
        "SvcOwnCommandLineTest.DISABLED_HasWhatItWasStartedWith",
        "--addProfileLine=General,a b,\"c\""
    ));
}

/// Run by the test above, in a process that has saved no line before.
TEST(SvcOwnCommandLineTest, DISABLED_HasWhatItWasStartedWith) {
    unsigned cursor = 0;
    std::array<char, 512> buffer{};
    const char* line = SvcGetGlobalDataEx()->commandLine;
    ASSERT_EQ(
        SvcEnumerateStringFromCommandLine(
            0, line, "", "addProfileLine", 512, &cursor, buffer.data()
        ),
        0U
    );
    EXPECT_STREQ(buffer.data(), "General,a b,\"c\"");
}

} // namespace
} // namespace KTEST
