// SPDX-License-Identifier: MIT
#include "../../../support/NameOfRow.h"

#include <setup/script/KSetupRuleLine.h>
#include <setup/script/UsersFile.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using KSETUP::KSetupField;
using KSETUP::KSetupOperation;
using KSETUP::KSetupRuleLine;

KSUP::KString ExpandedText(const KSUP::KString& text) {
    KSUP::KString result(text);
    static_cast<void>(result.Replace("$pathTarget$", "/opt/p/", 0, 0, true));
    static_cast<void>(result.Replace("$empty$", "", 0, 0, true));
    return result;
}

KSetupRuleLine Read(const std::string& keyword, const std::string& value) {
    return KSetupRuleLine::Read(keyword, value, ExpandedText);
}

TEST(KSetupRuleLineTest, AConfigurationIsCopiedToItsNameOrANewOne) {
    const KSetupRuleLine line = Read("config", "copy,a%2Cb,/kit,$pathTarget$etc");
    EXPECT_EQ(line.GetOperation(), KSetupOperation::CopyConfig);
    EXPECT_EQ(line.GetSource(), "/kit/a,b");
    EXPECT_EQ(line.GetTarget(), "/opt/p/etc/a,b");
    EXPECT_FALSE(line.IsPattern());
    EXPECT_EQ(Read("config", "replace,a,/kit,/etc/p,b").GetTarget(), "/etc/p/b");
}

TEST(KSetupRuleLineTest, OnlyAWildcardThatIsNotEscapedMakesAPattern) {
    EXPECT_TRUE(Read("config", "copy,*.conf,/kit,/etc/p").IsPattern());
    EXPECT_FALSE(Read("config", "copy,%2A.conf,/kit,/etc/p").IsPattern());
    EXPECT_EQ(Read("config", "copy,%2A.conf,/kit,/etc/p").GetSource(), "/kit/*.conf");
}

TEST(KSetupRuleLineTest, ALinkKeepsItsText) {
    const KSetupRuleLine line = Read("link", "create,../a//b/,$pathTarget$x");
    EXPECT_EQ(line.GetOperation(), KSetupOperation::CreateLink);
    EXPECT_EQ(line.Get(KSetupField::LinkTarget), "../a//b/");
    EXPECT_EQ(line.Get(KSetupField::Path), "/opt/p/x");
}

TEST(KSetupRuleLineTest, AModeHasOwnerAndGroupIfTheyAreWritten) {
    const KSetupRuleLine line = Read("mode", "set,$pathTarget$x,2755,app,65534");
    EXPECT_EQ(line.GetMode(), 02755U);
    EXPECT_EQ(line.Get(KSetupField::Owner), "app");
    EXPECT_EQ(line.Get(KSetupField::Group), "65534");
    EXPECT_FALSE(Read("mode", "set,/opt/x,640").Has(KSetupField::Owner));
}

TEST(KSetupRuleLineTest, ACommandGoesToTheEndOfTheLine) {
    const KSetupRuleLine line = Read("command", "run,printf '%s,%2C' a, b $pathTarget$");
    EXPECT_EQ(line.GetOperation(), KSetupOperation::RunCommand);
    EXPECT_EQ(line.Get(KSetupField::Command), "printf '%s,%2C' a, b /opt/p/");
}

TEST(KSetupRuleLineTest, AUserBecomesALineOfSysusers) {
    EXPECT_EQ(KSETUP::UsersFileLine(Read("user", "create,app")), "u app - - -\n");
    EXPECT_EQ(
        KSETUP::UsersFileLine(Read("user", "create,app,/var/lib/app,The app%2C 100%25")),
        "u app - \"The app, 100%%\" \"/var/lib/app\"\n"
    );
    EXPECT_EQ(KSETUP::UsersFileLine(Read("user", "create,app,-,App")), "u app - \"App\" -\n");
}

TEST(KSetupRuleLineTest, TypesOfTheEngineAreNotOurs) {
    for (const char* const type : {"file", "directory", "Config", "", "conf"}) {
        EXPECT_FALSE(KSetupRuleLine::IsType(type)) << type;
    }
    EXPECT_TRUE(KSetupRuleLine::IsType("mode"));
}

struct BadLine {
    const char* name;
    const char* type;
    const char* value;
    const char* problem; ///< a part of it
};

class KSetupRuleLineProblemTest : public ::testing::TestWithParam<BadLine> {};

TEST_P(KSetupRuleLineProblemTest, IsTold) {
    const KSetupRuleLine line = Read(GetParam().type, GetParam().value);
    EXPECT_EQ(line.GetOperation(), KSetupOperation::None);
    EXPECT_NE(line.GetProblemText().English().find(GetParam().problem), std::string::npos)
        << line.GetProblemText();
}

INSTANTIATE_TEST_SUITE_P(
    Lines,
    KSetupRuleLineProblemTest,
    ::testing::Values(
        BadLine{
            "UnknownWord",
            "mode",
            "Set,/a,0755",
            "\"Set\" is no operation of a mode rule; write mode=set"},
        BadLine{"EmptyLine", "link", "", "\"\" is no operation"},
        BadLine{"TooFewFields", "link", "create,x", "this line has 2 fields; write link=create"},
        BadLine{"TooManyFields", "entry", "delete,/a,/b", "this line has 3 fields"},
        BadLine{"EmptyField", "mode", "set,,0755", "field 2 is empty"},
        BadLine{"EmptyMacro", "mode", "set,$empty$,0755", "field 2 is empty"},
        BadLine{"EmptyFieldAtTheEnd", "mode", "set,/a,0755,", "field 4 is empty"},
        BadLine{"NoCommand", "command", "run,", "field 2 is empty"},
        BadLine{"NoDigits", "mode", "set,/a,rwx", "\"rwx\" is no mode"},
        BadLine{"NotOctal", "mode", "set,/a,0789", "is no mode"},
        BadLine{"TooManyDigits", "mode", "set,/a,00755", "is no mode"},
        BadLine{"TooFewDigits", "mode", "set,/a,75", "is no mode"},
        BadLine{"OwnerWithColon", "mode", "set,/a,0755,u:g", "no name or number"},
        BadLine{"RelativePath", "mode", "set,a,0755", "\"a\" is relative"},
        BadLine{"RelativeTarget", "config", "copy,a,/kit,etc", "\"etc\" is relative"},
        BadLine{"OpenEscape", "entry", "delete,/a%", "percent sign"},
        BadLine{"NameWithBlank", "user", "create,my app", "no name for a user"},
        BadLine{"NameOfDigits", "user", "create,1000", "no name for a user"},
        BadLine{
            "NameTooLong", "user", "create,a23456789b123456789c123456789d12", "no name for a user"},
        BadLine{"RelativeHome", "user", "create,app,home", "no home directory"},
        BadLine{"DescriptionWithColon", "user", "create,app,-,a:b", "description"},
        BadLine{"PatternWithNewName", "config", "copy,*,/kit,/etc/p,x", "keep their names"},
        BadLine{"PatternWithEscape", "config", "copy,*%3F,/kit,/etc/p", "escaped"}
    ),
    KTEST::NameOfRow()
);

} // namespace
