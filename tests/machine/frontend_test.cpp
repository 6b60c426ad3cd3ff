// SPDX-License-Identifier: MIT
//
// examples/frontend, as somebody sits before it: another face for ins-setup, on a terminal.
#include "TerminalRig.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::Le;
using ::testing::Not;
using ::testing::SizeIs;

class FrontendTest : public KTEST::TerminalTest {
  protected:
    void StartFrontend(std::vector<std::string> words, unsigned short columns) {
        words.insert(words.begin(), {"python3", INSPP_EXAMPLES "/frontend/frontend.py"});
        StartCommand(words, columns);
    }
    /// With the kit of this test.
    void InstallByFrontend(unsigned short columns) {
        StartFrontend({Program(), "install", "--kit", tree.Path("kit")}, columns);
    }

    /// Every text that was put into a line, without what clears the rest of it.
    std::vector<std::string> Lines() const {
        std::vector<std::string> lines;
        std::string line;
        for (std::size_t at = 0; at < shown.size(); ++at) {
            if (shown.compare(at, 2, "\x1b[") == 0) {
                at = shown.find_first_not_of("0123456789", at + 2);
            } else if (shown[at] == '\r' || shown[at] == '\n') {
                lines.push_back(line);
                line.clear();
            } else {
                line += shown[at];
            }
        }
        return lines;
    }
};

TEST_F(FrontendTest, TheExampleProductIsInstalledUpToTheLastPercent) {
    const std::string setup =
        std::filesystem::path(Program()).parent_path() / "../kits/dps-2.1/ins-setup";
    StartFrontend({setup, "install"}, 80);
    EXPECT_EQ(RunToEnd(), 0);
    const std::vector<std::string> screen = Screen(80);
    ASSERT_EQ(screen.size(), 9U) << shown; // the bar, the pane, the rule at work, the end
    EXPECT_EQ(screen[0], "100% [" + std::string(72, '#') + "]");
    EXPECT_THAT(screen[6], HasSubstr("service"));
    EXPECT_THAT(screen[8], HasSubstr("Done: DPS 2.1"));
    EXPECT_TRUE(std::filesystem::exists("/opt/dps/config/dps.ini"));
    StartFrontend({setup, "remove", "--purge"}, 80);
    EXPECT_EQ(RunToEnd(), 0);
    EXPECT_FALSE(std::filesystem::exists("/opt/dps"));
}

TEST_F(FrontendTest, AKeyCancelsWhatTakesLong) {
    GivenLongCopy();
    InstallByFrontend(80);
    ASSERT_TRUE(ReadUntil("Copying file "));
    EXPECT_FALSE(IsAsUsual());
    Press("q");
    EXPECT_EQ(RunToEnd(), 130);
    EXPECT_THAT(shown, AllOf(HasSubstr("Stopping."), HasSubstr("\r\nCancelled: ")));
    EXPECT_TRUE(IsAsUsual());
    EXPECT_FALSE(tree.Exists("product/lin/x86_64/svc"));
}

TEST_F(FrontendTest, CtrlCIsAKeyThatCancelsOnce) {
    GivenLongCopy();
    InstallByFrontend(80);
    ASSERT_TRUE(ReadUntil("Copying file "));
    Press("\x03");
    EXPECT_EQ(RunToEnd(), 130);
    EXPECT_THAT(shown, HasSubstr("\r\nCancelled: "));
    EXPECT_TRUE(IsAsUsual());
}

/// It begins as Escape does.
TEST_F(FrontendTest, AnArrowCancelsNothing) {
    InstallByFrontend(80);
    Press("\x1b[A");
    EXPECT_EQ(RunToEnd(), 0);
    EXPECT_THAT(shown, Not(HasSubstr("Stopping.")));
}

TEST_F(FrontendTest, AProgramThatIsNotThereIsNamed) {
    StartFrontend({tree.Path("none"), "install"}, 80);
    EXPECT_EQ(RunToEnd(), 1);
    EXPECT_THAT(shown, HasSubstr(tree.Path("none") + ": No such file or directory"));
    EXPECT_THAT(shown, Not(HasSubstr("Traceback")));
}

TEST_F(FrontendTest, ANarrowTerminalGetsNarrowLines) {
    InstallByFrontend(40);
    EXPECT_EQ(RunToEnd(), 0);
    EXPECT_THAT(Lines(), Each(SizeIs(Le(39U))));
    EXPECT_THAT(Lines(), Contains(SizeIs(39U))); // a path that was longer
    EXPECT_EQ(Screen(40).at(0), "100% [" + std::string(32, '#') + "]");
}

TEST_F(FrontendTest, ARefusalIsToldWithItsReasonAndExitCode) {
    StartFrontend({Program(), "install", "--kit", tree.Path("nowhere")}, 80);
    EXPECT_EQ(RunToEnd(), 66);
    EXPECT_THAT(shown, AllOf(HasSubstr("Refused: "), HasSubstr(tree.Path("nowhere"))));
    EXPECT_TRUE(IsAsUsual());
}

TEST_F(FrontendTest, AProgramThatTellsNoResultIsToldOf) {
    tree.Write("none", "#!/bin/sh\necho what it said >&2\nkill -9 $$\n", 0755);
    StartFrontend({tree.Path("none"), "install"}, 80);
    EXPECT_EQ(RunToEnd(), 137);
    EXPECT_THAT(shown, HasSubstr("ins-setup told no result. what it said"));
}

TEST_F(FrontendTest, NothingIsStartedWhereThereIsNoTerminal) {
    const std::string command = "python3 " INSPP_EXAMPLES "/frontend/frontend.py " + Program() +
                                " install --kit " + tree.Path("kit") + " < /dev/null 2> " +
                                tree.Path("said");
    EXPECT_NE(std::system(command.c_str()), 0); // NOLINT(concurrency-mt-unsafe): one thread
    EXPECT_THAT(tree.Read("said"), HasSubstr("have to be a terminal"));
    EXPECT_FALSE(tree.Exists("product"));
}

} // namespace
