// SPDX-License-Identifier: MIT
#include "GivenKit.h"

#include <gmock/gmock.h>

namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::StartsWith;

using SuppressionsTest = KTEST::GivenKit;

constexpr char aWarningLine[] = "\nfile=delete, old,$pathTarget$";

TEST_F(SuppressionsTest, ACommentSilencesTheWarningOfTheNextLine) {
    Install(std::string("; check: allow blank-after-comma") + aWarningLine);
    EXPECT_THAT(Check().findings, IsEmpty());
}

TEST_F(SuppressionsTest, ItSilencesOneLineOnly) {
    Install(std::string("; check: allow blank-after-comma") + aWarningLine + aWarningLine);
    EXPECT_THAT(TheFinding("blank-after-comma"), StartsWith("install.ini:4:13 warning"));
}

TEST_F(SuppressionsTest, ItSilencesNoLineBeforeItAndNoneBehindAnother) {
    Install(
        std::string("; first") + aWarningLine + "\n; check: allow blank-after-comma\n" +
        aWarningLine
    );
    EXPECT_THAT(
        Findings("blank-after-comma"),
        ElementsAre(StartsWith("install.ini:3:"), StartsWith("install.ini:6:"))
    );
}

TEST_F(SuppressionsTest, ItSilencesNoOtherWarningOfTheLine) {
    Install("; check: allow secret\nprofile=put,/opt/svc/a.ini,Database, Password,hunter2");
    EXPECT_FALSE(Finds("secret"));
    EXPECT_TRUE(Finds("blank-after-comma"));
}

TEST_F(SuppressionsTest, ItMayNameSeveral) {
    Install("  #check: allow secret, blank-after-comma\nprofile=put,/opt/svc/a.ini,Database, "
            "Password,hunter2");
    EXPECT_FALSE(Finds("secret"));
    EXPECT_FALSE(Finds("blank-after-comma"));
    EXPECT_FALSE(Finds("wrong-suppression"));
}

TEST_F(SuppressionsTest, AnErrorCannotBeAllowed) {
    Install("; check: allow unknown-type\nFile=delete,old,$pathTarget$");
    EXPECT_TRUE(Finds("unknown-type"));
    EXPECT_EQ(
        TheFinding("wrong-suppression"),
        "install.ini:2:16 warning [unknown-type] \"unknown-type\" is an error, which nothing "
        "allows; "
        "fix the line instead"
    );
}

TEST_F(SuppressionsTest, AMisspeltNameIsAWarningAndSilencesNothing) {
    Install(std::string("; check: allow blank-after-coma") + aWarningLine);
    EXPECT_TRUE(Finds("blank-after-comma"));
    EXPECT_EQ(
        TheFinding("wrong-suppression"),
        "install.ini:2:16 warning [blank-after-coma] \"blank-after-coma\" is no warning of the "
        "check; write \"blank-after-comma\""
    );
}

TEST_F(SuppressionsTest, AnUnknownNameIsAWarning) {
    Install("; check: allow everything");
    EXPECT_THAT(
        TheFinding("wrong-suppression"), EndsWith("; write the name that stands behind the warning")
    );
}

TEST_F(SuppressionsTest, ACommentWithoutANameIsAWarning) {
    Install(std::string("; check: allow") + aWarningLine);
    EXPECT_TRUE(Finds("blank-after-comma"));
    EXPECT_THAT(
        TheFinding("wrong-suppression"),
        StartsWith("install.ini:2:10 warning [] this comment allows no warning")
    );
}

TEST_F(SuppressionsTest, OtherCommentsMeanNothing) {
    Install(
        std::string("; check: this allows blank-after-comma\n; allow blank-after-comma") +
        aWarningLine
    );
    EXPECT_TRUE(Finds("blank-after-comma"));
    EXPECT_FALSE(Finds("wrong-suppression"));
}

TEST_F(SuppressionsTest, ARuleThatReadsSoIsNone) {
    Install(std::string("check: allow blank-after-comma") + aWarningLine);
    EXPECT_TRUE(Finds("blank-after-comma"));
}

} // namespace
