// SPDX-License-Identifier: MIT
#include "../../../support/NameOfRow.h"
#include "../../../support/TemporaryTree.h"

#include <setup/KSetupFailure.h>
#include <setup/preflight/ValuesFile.h>
#include <sup++/KProfile.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

namespace {

using KSETUP::ParseValues;
using ::testing::HasSubstr;
using ::testing::Not;

std::vector<std::string> Options(const std::string& text) {
    std::vector<std::string> lines;
    for (const KSETUP::KAddedOption& option : ParseValues(text, "f")) {
        lines.push_back("[" + option.section + "]" + option.key + "=" + option.value);
    }
    return lines;
}

std::string RefusalOf(const std::string& text) {
    try {
        ParseValues(text, "f");
    } catch (const KSETUP::KSetupFailure& failure) {
        return failure.what();
    }
    return "";
}

TEST(ValuesFileTest, ATextIsReadAsAProfileIs) {
    const std::string text =
        "\xEF\xBB\xBF; a comment\n[ Data Base ]\r\n Password = a,b$pathTarget$%= c \r\n"
        "\n#Level=1\nEmpty=\n[Other]\n[Data Base]\nlast=x";
    EXPECT_THAT(
        Options(text),
        ::testing::ElementsAre(
            "[Data Base]Password=a,b$pathTarget$%= c", "[Data Base]Empty=", "[Data Base]last=x"
        )
    );
    KTEST::TemporaryTree tree;
    tree.Write("p", text);
    KSUP::KProfile profile;
    profile.Open(tree.Path("p"));
    std::vector<std::string> read;
    profile.BeginKeyEnum("Data Base", nullptr);
    while (profile.EnumKey(nullptr, false)) {
        read.push_back(
            std::string("[Data Base]") + profile.GetKeyName().c_str() + "=" +
            profile.GetKeyValue().c_str()
        );
    }
    EXPECT_EQ(Options(text), read);
}

struct Row {
    const char* name;
    const char* text;
    const char* why;

    friend void PrintTo(const Row& row, std::ostream* out) { *out << row.name; }
};

class InvalidValuesTest : public ::testing::TestWithParam<Row> {};

TEST_P(InvalidValuesTest, AreRefusedWithTheirLineAndWithoutTheirText) {
    const std::string why = RefusalOf(GetParam().text);
    EXPECT_THAT(why, HasSubstr(GetParam().why));
    EXPECT_THAT(why, Not(HasSubstr("hunter2")));
}

INSTANTIATE_TEST_SUITE_P(
    Texts,
    InvalidValuesTest,
    ::testing::Values(
        Row{"NoSection", "Password=hunter2", "f:1: the line stands in front of the first section"},
        Row{"NoOption", "[S]\n\nhunter2", "f:3: the line is no KEY=VALUE"},
        Row{"NoKey", "[S]\n = hunter2", "f:2: the line has no key"},
        Row{"HalfASection", "[S]\n[hunter2=", "f:2: the line has no key"},
        Row{"ByteOrderMark",
            "[S]\n\xEF\xBB\xBFPassword=hunter2",
            "f:2: the line begins with a byte order mark"},
        Row{"Tab", "[S]\nPassword=hun\thunter2", "f:2: the line has a control character"}
    ),
    KTEST::NameOfRow()
);

} // namespace
