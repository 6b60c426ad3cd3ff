// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/safety/Preflight.h>
#include <sup++/KString.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace KSETUP;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class PreflightTest : public ::testing::Test {
  protected:
    KPlan PlanOf(const std::string& lines) {
        tree.Write("kit/install.ini", "[install]\n" + lines);
        const KScript script(KSUP::KString(tree.Path("kit/install.ini")));
        KPlannedTree planned(KPlannedTree::Below::Disk, tree.Path("kit"));
        return KPlan(
            script, "install", [](const KSUP::KString& text) { return text; }, planned
        );
    }
    /// The exit code and words of what is refused; 0 when nothing is.
    int CodeOf(const std::function<void()>& look) {
        try {
            look();
        } catch (const KSetupFailure& failure) {
            words = failure.what();
            return failure.GetExitCode();
        }
        return 0;
    }

    KTEST::TemporaryTree tree;
    std::string words;
};

TEST_F(PreflightTest, EnoughSpaceIsFine) {
    tree.Write("kit/a", "small");
    const KPlan plan = PlanOf("file=copy,a," + tree.Path("kit") + "," + tree.Path());
    EXPECT_EQ(CodeOf([&] { RequireSpace(plan); }), 0) << words;
}

TEST_F(PreflightTest, TooLittleSpaceIsRefusedWithTheAmounts) {
    tree.Write("kit/a", "");
    std::filesystem::resize_file(tree.Path("kit/a"), 1ULL << 43U); // sparse, 8 TiB
    const KPlan plan = PlanOf("file=copy,a," + tree.Path("kit") + "," + tree.Path());
    EXPECT_EQ(CodeOf([&] { RequireSpace(plan); }), ExitCode::cannotWrite);
    EXPECT_THAT(words, HasSubstr("too little space: 8.0 TiB needed, "));
    EXPECT_THAT(words, HasSubstr("Nothing was changed."));
}

TEST_F(PreflightTest, APlaceThatCanBeWrittenIsFine) {
    const KPlan plan = PlanOf("directory=create," + tree.Path("a/b/c"));
    EXPECT_EQ(CodeOf([&] { RequireWritable(plan); }), 0) << words;
}

TEST_F(PreflightTest, AFileInTheWayIsRefused) {
    tree.Write("a", "no directory");
    const KPlan plan = PlanOf("directory=create," + tree.Path("a/b"));
    EXPECT_EQ(CodeOf([&] { RequireWritable(plan); }), ExitCode::cannotWrite);
    EXPECT_THAT(words, HasSubstr(tree.Path("a") + " cannot be written to: it is no directory"));
}

TEST_F(PreflightTest, ServicesNeedAManagerOnlyWhereThereAreAny) {
    EXPECT_FALSE(NeedsServices(PlanOf("directory=create,/a")));
    EXPECT_TRUE(NeedsServices(PlanOf("service=start,dps")));
    EXPECT_EQ(CodeOf([&] { RequireServiceManager(PlanOf("directory=create,/a")); }), 0);
}

TEST_F(PreflightTest, ADowngradeIsRefusedAndSaysHowToDoIt) {
    EXPECT_EQ(CodeOf([] { RequireNoDowngrade("DPS", {"2.1", 7}, {"2.1", 7}); }), 0);
    EXPECT_EQ(CodeOf([] { RequireNoDowngrade("DPS", {"2.1", 7}, {"2.2", 1}); }), 0);
    EXPECT_EQ(CodeOf([] { RequireNoDowngrade("DPS", {"2.1", 8}, {"2.1", 7}); }), ExitCode::usage);
    EXPECT_THAT(
        words, HasSubstr("DPS 2.1 (build 8) is installed, which is newer than 2.1 (build 7)")
    );
    EXPECT_THAT(words, HasSubstr("--allow-downgrade"));
    EXPECT_EQ(CodeOf([] { RequireNoDowngrade("DPS", {"2.10", 1}, {"2.9", 7}); }), ExitCode::usage);
}

TEST_F(PreflightTest, ADirectoryOfRootsIsPrivate) {
    tree.Directory("kit");
    EXPECT_EQ(CodeOf([&] { RequirePrivate(tree.Path("kit")); }), 0) << words;
}

TEST_F(PreflightTest, ADirectoryThatOthersMayWriteIsRefused) {
    tree.Directory("kit", 0775);
    EXPECT_EQ(CodeOf([&] { RequirePrivate(tree.Path("kit")); }), ExitCode::noKit);
    EXPECT_THAT(words, HasSubstr(tree.Path("kit") + ": others than root can change it"));
    tree.Directory("kit", 01777); // sticky: new files can still be laid there
    EXPECT_EQ(CodeOf([&] { RequirePrivate(tree.Path("kit")); }), ExitCode::noKit);
}

TEST_F(PreflightTest, ADirectoryBelowOneThatOthersMayWriteIsRefused) {
    tree.Directory("open", 0777);
    tree.Directory("open/kit");
    EXPECT_EQ(CodeOf([&] { RequirePrivate(tree.Path("open/kit")); }), ExitCode::noKit);
    EXPECT_THAT(words, HasSubstr(tree.Path("open") + ": others"));
}

TEST_F(PreflightTest, AnothersDirectoryIsRefusedUnlessTheyCalledSudo) {
    tree.Directory("kit");
    tree.SetOwner("kit", 1234, 1234);
    EXPECT_EQ(CodeOf([&] { RequirePrivate(tree.Path("kit")); }), ExitCode::noKit);
    ::setenv("SUDO_UID", "1234", 1); // NOLINT: one thread
    EXPECT_EQ(CodeOf([&] { RequirePrivate(tree.Path("kit")); }), 0) << words;
    ::setenv("SUDO_UID", "1235", 1); // NOLINT: one thread
    EXPECT_EQ(CodeOf([&] { RequirePrivate(tree.Path("kit")); }), ExitCode::noKit);
    ::unsetenv("SUDO_UID"); // NOLINT: one thread
}

TEST_F(PreflightTest, WhatIsInTheDirectoryCountsToo) {
    tree.Write("kit/lib/a", "A", 0664);
    EXPECT_EQ(CodeOf([&] { RequirePrivate(tree.Path("kit")); }), ExitCode::noKit);
    EXPECT_THAT(words, HasSubstr(tree.Path("kit/lib/a") + ": others"));
    tree.SetMode("kit/lib/a", 0644);
    tree.Link("kit/lib/b", "a"); // a link has no rights of its own
    EXPECT_EQ(CodeOf([&] { RequirePrivate(tree.Path("kit")); }), 0) << words;
}

TEST_F(PreflightTest, ADirectoryOfLogsMayBeAGroups) {
    tree.Directory("log", 0775);
    EXPECT_EQ(CodeOf([&] { RequireSafeLogDirectory(tree.Path("log")); }), 0) << words;
    tree.SetMode("log", 0777);
    EXPECT_EQ(CodeOf([&] { RequireSafeLogDirectory(tree.Path("log")); }), ExitCode::cannotWrite);
    tree.SetMode("log", 0755);
    tree.SetOwner("log", 1234, 1234);
    EXPECT_EQ(CodeOf([&] { RequireSafeLogDirectory(tree.Path("log")); }), ExitCode::cannotWrite);
}

TEST_F(PreflightTest, AProgramThatWasStartedByALinkIsNamed) {
    std::filesystem::copy_file("/bin/sleep", tree.Path("sleeper"));
    tree.Link("link", tree.Path());
    tree.Write("kit/sleeper", "new");
    std::string program = tree.Path("link/sleeper");
    std::string time = "1000";
    char* arguments[] = {program.data(), time.data(), nullptr};
    pid_t process = 0;
    ASSERT_EQ(::posix_spawn(&process, program.c_str(), nullptr, nullptr, arguments, environ), 0);
    EXPECT_THAT(
        FindRunningPrograms(
            PlanOf("file=copy,sleeper," + tree.Path("kit") + "," + tree.Path("link"))
        ),
        ::testing::SizeIs(1)
    );
    ::kill(process, SIGKILL);
    ::waitpid(process, nullptr, 0);
}

TEST_F(PreflightTest, AProgramThatRunsIsNamed) {
    std::filesystem::copy_file("/bin/sleep", tree.Path("sleeper"));
    tree.Write("kit/sleeper", "new");
    std::string program = tree.Path("sleeper");
    std::string time = "1000";
    char* arguments[] = {program.data(), time.data(), nullptr};
    pid_t process = 0;
    ASSERT_EQ(::posix_spawn(&process, program.c_str(), nullptr, nullptr, arguments, environ), 0);
    const KPlan replacing = PlanOf("file=copy,sleeper," + tree.Path("kit") + "," + tree.Path());
    EXPECT_THAT(
        FindRunningPrograms(replacing),
        ElementsAre("sleeper (" + std::to_string(process) + "), " + program)
    );
    const KPlan deleting = PlanOf("file=delete,sleeper," + tree.Path());
    EXPECT_THAT(FindRunningPrograms(deleting), ::testing::SizeIs(1));
    const KPlan other = PlanOf("file=copy,sleeper," + tree.Path("kit") + "," + tree.Path("kit/x"));
    EXPECT_THAT(FindRunningPrograms(other), IsEmpty());
    ::kill(process, SIGKILL);
    ::waitpid(process, nullptr, 0);
}

} // namespace
