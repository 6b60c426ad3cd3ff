// SPDX-License-Identifier: MIT
//
// What systemd makes of these texts is tested against it, in tests/machine.
#include "../../../support/NameOfRow.h"
#include "../../../support/ServiceErrors.h"
#include "../../sup++/Common.h"

#include <sys/services/UnitText.h>

namespace KTEST {
namespace {

using namespace KSYS;
using testing::ElementsAre;
using testing::IsEmpty;

// Names

struct TextRow {
    const char* name;
    std::string text;
};

class SysServiceNameTest : public testing::TestWithParam<TextRow> {};

TEST_P(SysServiceNameTest, IsTaken) {
    EXPECT_EQ(WhyNotAServiceName(GetParam().text), "");
}

INSTANTIATE_TEST_SUITE_P(
    ThatIs,
    SysServiceNameTest,
    testing::Values(
        TextRow{"AWord", "dps"},
        TextRow{"OneLetter", "d"},
        TextRow{"OfEveryKindOfCharacter", "aZ09:-_.\\x2d@b"},
        TextRow{"ADigit", "7"},
        TextRow{"AnInstance", "dps@one"},
        TextRow{"WithAMinusBehind", "dps-"},
        TextRow{"TheLongest", std::string(247, 'a')}
    ),
    NameOfRow()
);

class SysServiceNameRefusalTest : public testing::TestWithParam<TextRow> {};

TEST_P(SysServiceNameRefusalTest, IsRefusedWithAReason) {
    EXPECT_NE(WhyNotAServiceName(GetParam().text), "");
}

INSTANTIATE_TEST_SUITE_P(
    ThatIs,
    SysServiceNameRefusalTest,
    testing::Values(
        TextRow{"Empty", ""},
        TextRow{"APath", "/etc/passwd"},
        TextRow{"ARelativePath", "a/b"},
        TextRow{"AParent", ".."},
        TextRow{"Hidden", ".dps"},
        TextRow{"AnOption", "-dps"},
        TextRow{"WithABlank", "d ps"},
        TextRow{"WithALineBreak", "dps\n"},
        TextRow{"WithADollar", "$dps"},
        TextRow{"WithAPercent", "d%n"},
        TextRow{"WithAStar", "d*"},
        TextRow{"NotAscii", "dpß"},
        TextRow{"WithANul", std::string("d\0s", 3)},
        TextRow{"ATemplate", "dps@"},
        TextRow{"AnInstanceOfNothing", "@dps"},
        TextRow{"TooLongWithItsEnding", std::string(248, 'a')},
        TextRow{"Of256Bytes", std::string(256, 'a')}
    ),
    NameOfRow()
);

TEST(UnitTextTest, AUnitIsCalledAfterItsServiceWhateverThatIsCalled) {
    EXPECT_EQ(UnitName("dps"), "dps.service");
    EXPECT_EQ(UnitName("dps.service"), "dps.service.service");
}

// Arguments

struct ArgumentsRow {
    const char* name;
    std::string text;
    std::vector<std::string> arguments;
};

class SysArgumentsTest : public testing::TestWithParam<ArgumentsRow> {};

TEST_P(SysArgumentsTest, AreSplit) {
    EXPECT_EQ(SplitArguments(GetParam().text), GetParam().arguments);
}

INSTANTIATE_TEST_SUITE_P(
    Of,
    SysArgumentsTest,
    testing::Values(
        ArgumentsRow{"Nothing", "", {}},
        ArgumentsRow{"BlanksOnly", " \t ", {}},
        ArgumentsRow{"OneWord", "-v", {"-v"}},
        ArgumentsRow{"WordsAndBlanks", "  -c  /etc/a\t-v ", {"-c", "/etc/a", "-v"}},
        ArgumentsRow{"DoubleQuotes", "-n \"our server\"", {"-n", "our server"}},
        ArgumentsRow{"SingleQuotes", "-n 'our \"server\" \\'", {"-n", "our \"server\" \\"}},
        ArgumentsRow{"QuotesInAWord", "--name=\"our server\"'s'x", {"--name=our serversx"}},
        ArgumentsRow{"EmptyQuotes", "a \"\" ''", {"a", "", ""}},
        ArgumentsRow{"AnEscapedQuote", "\\\"a \"b\\\"c\"", {"\"a", "b\"c"}},
        ArgumentsRow{"AnEscapedBlank", "our\\ server", {"our server"}},
        ArgumentsRow{"Backslashes", "a\\\\b \"c\\\\d\" \"e\\f\"", {"a\\b", "c\\d", "e\\f"}},
        ArgumentsRow{"ABackslashAtTheEnd", "a\\", {"a\\"}},
        ArgumentsRow{
            "WhatOthersExpand",
            "$HOME ${X} %n 50% ; * ~",
            {"$HOME", "${X}", "%n", "50%", ";", "*", "~"}},
        ArgumentsRow{"OtherLetters", "größe=\"ü ö\"", {"größe=ü ö"}}
    ),
    NameOfRow()
);

TEST(UnitTextTest, AQuoteThatIsNotClosedIsRefused) {
    EXPECT_EQ(StatusOf([] { SplitArguments("a \"b"); }), 36U);
    EXPECT_EQ(StatusOf([] { SplitArguments("it's"); }), 36U);
}

struct QuotedRow {
    const char* name;
    std::string argument;
    std::string quoted;
};

class SysQuotedTest : public testing::TestWithParam<QuotedRow> {};

TEST_P(SysQuotedTest, StandsAsSystemdReadsIt) {
    EXPECT_EQ(QuoteArgument(GetParam().argument), GetParam().quoted);
}

INSTANTIATE_TEST_SUITE_P(
    Argument,
    SysQuotedTest,
    testing::Values(
        QuotedRow{"Plain", "--level=3,/a_b.c:d+e", "--level=3,/a_b.c:d+e"},
        QuotedRow{"Empty", "", "\"\""},
        QuotedRow{"WithABlank", "a b", "\"a b\""},
        QuotedRow{"WithAPercent", "50%n", "\"50%%n\""},
        QuotedRow{"WithADollar", "$HOME", "\"$$HOME\""},
        QuotedRow{"WithQuotes", "\"'", "\"\\\"'\""},
        QuotedRow{"WithABackslash", "a\\n", "\"a\\\\n\""},
        QuotedRow{"ThatIsASemicolon", ";", "\";\""},
        QuotedRow{"WithALineBreak", "a\nb\t\x7f", "\"a\\x0ab\\x09\\x7f\""},
        QuotedRow{"InOtherLetters", "ü", "\"ü\""}
    ),
    NameOfRow()
);

// The file

TEST(UnitTextTest, TheFileIsThis) {
    EXPECT_EQ(
        UnitText("DPS 100%", "/opt/dps/dpsd", "-c \"/etc/d p\""),
        "# Installed by Ins++. An upgrade replaces this file and a removal deletes it: put "
        "changes\n"
        "# into a drop-in, as \"systemctl edit\" does.\n"
        "\n"
        "[Unit]\n"
        "Description=DPS 100%%\n"
        "After=network.target\n"
        "\n"
        "[Service]\n"
        "Type=exec\n"
        "ExecStart=/opt/dps/dpsd -c \"/etc/d p\"\n"
        "Restart=on-failure\n"
        "\n"
        "[Install]\n"
        "WantedBy=multi-user.target\n"
    );
}

TEST(UnitTextTest, WithoutADisplayNameThereIsNoDescription) {
    EXPECT_THAT(UnitValues(UnitText("", "/a", ""), "Unit", "Description"), IsEmpty());
    EXPECT_THAT(UnitValues(UnitText("", "/a", ""), "Service", "ExecStart"), ElementsAre("/a"));
}

TEST(UnitTextTest, AProgramWithADollarGetsItsOwnPathAsFirstArgument) {
    EXPECT_THAT(
        UnitValues(UnitText("", "/a ${B}%/c", "d"), "Service", "ExecStart"),
        ElementsAre("\"@/a ${B}%%/c\" \"/a $${B}%%/c\" d")
    );
}

struct RefusedRow {
    const char* name;
    std::string displayName;
    std::string program;
    std::string arguments;
};

class UnitTextRefusalTest : public testing::TestWithParam<RefusedRow> {};

TEST_P(UnitTextRefusalTest, IsError36WithAReason) {
    const RefusedRow& row = GetParam();
    const KSYS::KServiceError error =
        ServiceErrorOf([&] { UnitText(row.displayName, row.program, row.arguments); });
    EXPECT_EQ(error.GetStatus(), 36U);
    EXPECT_STRNE(error.what(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Of,
    UnitTextRefusalTest,
    testing::Values(
        RefusedRow{"NoProgram", "", "", ""},
        RefusedRow{"ARelativeProgram", "", "bin/dps", ""},
        RefusedRow{"ADirectory", "", "/opt/dps/", ""},
        RefusedRow{"AProgramWithAQuote", "", "/opt/\"dps", ""},
        RefusedRow{"AProgramWithASingleQuote", "", "/opt/d'ps", ""},
        RefusedRow{"AProgramWithABackslash", "", "/opt/d\\ps", ""},
        RefusedRow{"AProgramWithALineBreak", "", "/opt/d\nps", ""},
        RefusedRow{"AProgramThatIsNotUtf8", "", "/opt/\xff", ""},
        RefusedRow{"AProgramThatIsTooLong", "", '/' + std::string(4095, 'a'), ""},
        RefusedRow{"ADisplayNameWithALineBreak", "a\n[Service]\nUser=x", "/a", ""},
        RefusedRow{"ADisplayNameThatContinues", "a\\", "/a", ""},
        RefusedRow{"ADisplayNameThatIsNotUtf8", "\xc3", "/a", ""},
        RefusedRow{"ArgumentsThatAreNotUtf8", "", "/a", "\xff"},
        RefusedRow{"ArgumentsWithAnOpenQuote", "", "/a", "'"}
    ),
    NameOfRow()
);

TEST(UnitTextTest, OnlyOurFilesAreOurs) {
    EXPECT_TRUE(IsOurUnitText(UnitText("", "/a", "")));
    EXPECT_FALSE(IsOurUnitText(""));
    EXPECT_FALSE(IsOurUnitText("[Unit]\n# Installed by Ins++\n"));
    EXPECT_FALSE(IsOurUnitText("# Installed by somebody\n"));
}

TEST(UnitTextTest, ValuesAreReadAsSystemdDoes) {
    constexpr const char* text =
        "Key=before\n[A]\n Key = one \n;Key=no\n#Key=no\\\nKey=\n[B]\nKey=no\n"
        "[A]\nKey=two \\\n# a comment\n three\nOther=Key=x\nKey";
    EXPECT_THAT(UnitValues(text, "A", "Key"), ElementsAre("one", "", "two   three"));
    EXPECT_THAT(UnitValues(text, "A", "Other"), ElementsAre("Key=x"));
    EXPECT_THAT(UnitValues(text, "C", "Key"), IsEmpty());
}

} // namespace
} // namespace KTEST
