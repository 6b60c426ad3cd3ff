// SPDX-License-Identifier: MIT
//
// ins-setup on a terminal: the line that is drawn over, keys, and a terminal that changes or goes.
#include "../support/NameOfRow.h"
#include "SetupRig.h"
#include "TerminalRig.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

using ::testing::AllOf;
using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::Le;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;

constexpr auto patience = std::chrono::seconds(60); // with a command that is to begin

class TerminalTest : public KTEST::TerminalTest {
  protected:
    /// Each state of the line that tells the rule at work, without what clears the rest of it.
    std::vector<std::string> DrawnLines() const {
        std::vector<std::string> lines;
        for (std::size_t at = 0; (at = shown.find("\r\n[", at)) != std::string::npos;) {
            const std::size_t end = std::min(shown.find("\x1b[K", at), shown.size());
            lines.push_back(shown.substr(at + 2, end - at - 2));
            at = end;
        }
        return lines;
    }
};

TEST_F(TerminalTest, TheBarIsDrawnOverAndStaysWhole) {
    Start("install", 80);
    EXPECT_EQ(RunToEnd(), 0);
    ASSERT_FALSE(DrawnLines().empty());
    EXPECT_THAT(DrawnLines().back(), HasSubstr("[6/6] Making link /etc/terminaltest/terminaltest"));
    ASSERT_GE(Screen(80).size(), 4U);
    EXPECT_THAT(
        Screen(80)[0], StartsWith("<1>100%<0> [<32>####################<0>] 7 bytes of 7 bytes")
    );
    EXPECT_THAT(Screen(80)[1], StartsWith("<1;32>Terminal Test 1.0 (build 1) is installed in "));
}

TEST_F(TerminalTest, ANarrowTerminalGetsNarrowLines) {
    Start("install", 20);
    EXPECT_EQ(RunToEnd(), 0);
    ASSERT_FALSE(DrawnLines().empty());
    EXPECT_THAT(DrawnLines(), Each(SizeIs(Le(19U))));
}

TEST_F(TerminalTest, AWideTerminalGetsTheRuleBesideTheBar) {
    GivenLongCopy();
    Start("install", 200);
    ASSERT_TRUE(ReadUntil("Copying file "));
    ASSERT_TRUE(ReadUntil("svc\x1b[K"));
    EXPECT_THAT(
        Screen(200).at(0),
        AllOf(HasSubstr("] "), HasSubstr(" of 4.0 GiB"), HasSubstr("[4/6] Copying file "))
    );
}

TEST_F(TerminalTest, TheLinesFollowATerminalThatChangesItsWidth) {
    GivenLongCopy();
    Start("install", 80);
    ASSERT_TRUE(ReadUntil("[4/6] Copying file "));
    Resize(20);
    EXPECT_TRUE(ReadUntil("\r\n[4/6] Copying fi...\x1b[K"));
}

TEST_F(TerminalTest, ADumbTerminalGetsPlainLines) {
    Start("install", 80, "dumb");
    EXPECT_EQ(RunToEnd(), 0);
    EXPECT_THAT(
        shown,
        AllOf(HasSubstr("[4/6] Copying file "), Not(HasSubstr("\x1b")), Not(HasSubstr("% [")))
    );
}

TEST_F(TerminalTest, TheBarIsDrawnAtMostTenTimesASecond) {
    GivenLongCopy();
    const auto start = std::chrono::steady_clock::now();
    Start("install", 80);
    RunToEnd();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    // The last state, and those of rules that end within the first tenth, come on top.
    EXPECT_LE(static_cast<double>(DrawnLines().size()), took.count() * 10 + 3);
}

TEST_F(TerminalTest, CtrlCStopsAndSaysWhatBecameOfTheFile) {
    GivenLongCopy();
    Start("install", 80);
    ASSERT_TRUE(ReadUntil("Copying file "));
    Press("\x03");
    ASSERT_TRUE(ReadUntil("Stopping."));
    EXPECT_EQ(RunToEnd(), 130);
    EXPECT_THAT(shown, HasSubstr("Waiting for: Copying file"));
    EXPECT_THAT(
        shown,
        HasSubstr("The file that was being copied was taken away:\r\n" + tree.Path("product/lin/"))
    );
    EXPECT_FALSE(tree.Exists("product/lin/x86_64/svc"));
    // A copy that is called off reports all of it.
    EXPECT_THAT(shown.substr(shown.find("Stopping.")), Not(HasSubstr("% [")));
}

TEST_F(TerminalTest, ASecondCtrlCIsAnsweredToo) {
    // A command is given two seconds to end when it ignores the request.
    const std::string script = tree.Read("kit/install.ini");
    tree.Write(
        "kit/install.ini",
        "[install]\nprocess=start,trap '' TERM; touch " + tree.Path("started") +
            "; while :; do sleep 0.1; done\n" + script
    );
    Start("install", 80);
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!tree.Exists("started") && std::chrono::steady_clock::now() < end) {
        ::usleep(10000);
    }
    Press("\x03");
    ASSERT_TRUE(ReadUntil("Stopping."));
    Press("\x03");
    ASSERT_TRUE(ReadUntil("Still stopping."));
    EXPECT_TRUE(ReadUntil("Waiting for: Starting process"));
    EXPECT_EQ(RunToEnd(), 130);
}

TEST_F(TerminalTest, ATerminalThatGoesStopsTheRun) {
    GivenLongCopy();
    Start("install", 80);
    ASSERT_TRUE(ReadUntil("Copying file "));
    Close();
    EXPECT_EQ(End(), 129);
    EXPECT_FALSE(tree.Exists("product/lin/x86_64/svc"));
}

TEST_F(TerminalTest, ARemovalIsAskedForAndNoIsNo) {
    Start("install", 80);
    ASSERT_EQ(RunToEnd(), 0);
    Start("remove", 80);
    ASSERT_TRUE(ReadUntil("Remove Terminal Test 1.0 from "));
    ASSERT_TRUE(ReadUntil("[y/N] "));
    Press("n\n");
    EXPECT_EQ(RunToEnd(), 130);
    EXPECT_THAT(shown, HasSubstr("Nothing was removed."));
    EXPECT_TRUE(tree.Exists("product/lin/x86_64/svc"));
}

/// What happens while a removal asks whether it shall begin.
struct NoAnswer {
    const char* name;
    int exitCode;
    const char* keys; ///< ^C and ^D are the terminal's own
    int signal;       ///< besides; 0 for none
};

std::ostream& operator<<(std::ostream& out, const NoAnswer& row) {
    return out << row.name;
}

class UnansweredTest : public KTEST::TerminalTest,
                       public ::testing::WithParamInterface<NoAnswer> {};

TEST_P(UnansweredTest, RemovesNothing) {
    Start("install", 80);
    ASSERT_EQ(RunToEnd(), 0);
    const std::vector<std::string> before = KTEST::WholeMachine({tree.Path("product")});
    Start("remove", 80);
    ASSERT_TRUE(ReadUntil("[y/N] "));
    Press(GetParam().keys);
    if (GetParam().signal != 0) {
        ASSERT_EQ(::kill(process, GetParam().signal), 0);
    }
    ASSERT_TRUE(ReadUntil("\r\n\x1b[1;31mins-setup:\x1b[0m Nothing was removed.\r\n"));
    EXPECT_EQ(RunToEnd(), GetParam().exitCode);
    EXPECT_THAT(
        KTEST::Changes(before, KTEST::WholeMachine({tree.Path("product")})), ::testing::IsEmpty()
    );
}

INSTANTIATE_TEST_SUITE_P(
    Ends,
    UnansweredTest,
    ::testing::Values(
        NoAnswer{"CtrlC", 130, "\x03", 0},
        NoAnswer{"CtrlCBeforeAYes", 130, "\x03y\n", 0},
        NoAnswer{"CtrlCBehindAYes", 130, "y\x03", 0},
        NoAnswer{"EndOfInput", 130, "\x04", 0},
        NoAnswer{"EndOfInputBehindAYes", 130, "y\x04\x04", 0},
        NoAnswer{"Terminate", 143, "", SIGTERM},
        NoAnswer{"HangUp", 129, "", SIGHUP}
    ),
    KTEST::NameOfRow()
);

TEST_F(TerminalTest, ATerminalThatGoesIsNoAnswer) {
    Start("install", 80);
    ASSERT_EQ(RunToEnd(), 0);
    Start("remove", 80);
    ASSERT_TRUE(ReadUntil("[y/N] "));
    Close();
    EXPECT_EQ(End(), 129);
    EXPECT_TRUE(tree.Exists("product/lin/x86_64/svc"));
}

TEST_F(TerminalTest, ARemovalGoesOnWithYes) {
    Start("install", 80);
    ASSERT_EQ(RunToEnd(), 0);
    Start("remove", 80);
    ASSERT_TRUE(ReadUntil("[y/N] "));
    Press("y\n");
    EXPECT_EQ(RunToEnd(), 0);
    EXPECT_FALSE(tree.Exists("product"));
}

} // namespace
