// SPDX-License-Identifier: MIT
#include "../GivenPlan.h"

#include <setup/plan/NeededPrograms.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace {

using ::testing::HasSubstr;

/// On this system, which has a shell; roots without one are in whole runs.
class NeededProgramsTest : public KTEST::GivenPlan {
  protected:
    /// What is missing for these rules; empty for nothing.
    std::string Missing(const std::string& lines) {
        const auto missing = KSETUP::FindMissingProgram(PlanOf(lines), "S");
        return missing ? missing->words.English() : "";
    }
};

TEST_F(NeededProgramsTest, AProgramThatIsMissingIsToldWithItsRule) {
    EXPECT_EQ(
        Missing("command=run,/bin/true\n").append(Missing("\ncommand=run,no-such-program a b\n")),
        "S:3: command=run,no-such-program a b would fail: there is no program no-such-program that "
        "can be run"
    );
    EXPECT_THAT(Missing("command=run,/no/such a\n"), HasSubstr("no program /no/such that"));
    EXPECT_THAT(Missing("command=run,'no such' a\n"), HasSubstr("no program no such that"));
}

TEST_F(NeededProgramsTest, AFileThatCannotBeRunIsNoProgram) {
    tree.Write("file", "#!/bin/sh\n", 0644);
    const std::string rule = "command=run," + tree.Path("file") + "\n";
    EXPECT_THAT(Missing(rule), HasSubstr("there is no program " + tree.Path("file")));
    tree.SetMode("file", 0755);
    EXPECT_EQ(Missing(rule), "");
}

TEST_F(NeededProgramsTest, WhatTheShellItselfDoesNeedsNoProgram) {
    EXPECT_EQ(Missing("command=run,cd /\n"), "");
    EXPECT_EQ(Missing("command=run,A=1 no-such-program\n"), "");
    EXPECT_EQ(Missing("command=run,$(echo no)-such-program\n"), "");
}

TEST_F(NeededProgramsTest, ALineThatMayGoWellWithoutItsProgramIsLeftToTheRun) {
    EXPECT_EQ(Missing("command=run,no-such-program || true\n"), "");
    EXPECT_EQ(Missing("command=run,no-such-program; true\n"), "");
    EXPECT_EQ(Missing("process=start,no-such-program\n"), "");
}

TEST_F(NeededProgramsTest, WhatIsInstalledBeforeIsThere) {
    tree.Write("kit/program", "#!/bin/sh\n", 0755);
    tree.Directory("real");
    tree.Link("to", "real");
    const std::string copy =
        "file=copy,program," + tree.Path("kit") + "," + tree.Path("real") + "\n";
    EXPECT_EQ(Missing(copy + "command=run," + tree.Path("real/program") + "\n"), "");
    EXPECT_EQ(Missing(copy + "command=run," + tree.Path("to/program") + "\n"), "");
    EXPECT_EQ(
        Missing("file=copy,program," + tree.Path("kit") + ",/usr/bin\ncommand=run,program\n"), ""
    );
    EXPECT_NE(Missing("command=run," + tree.Path("real/program") + "\n" + copy), "");
}

TEST_F(NeededProgramsTest, BehindACommandNothingIsKnown) {
    EXPECT_EQ(Missing("command=run,true\ncommand=run,no-such-program\n"), "");
    EXPECT_EQ(Missing("process=start,true\ncommand=run,no-such-program\n"), "");
}

TEST_F(NeededProgramsTest, BehindAUserAllIsKnown) {
    EXPECT_THAT(
        Missing("user=create,app,/var/lib/app,App\ncommand=run,no-such-program\n"),
        HasSubstr("no program no-such-program")
    );
}

} // namespace
