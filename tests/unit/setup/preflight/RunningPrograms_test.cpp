// SPDX-License-Identifier: MIT
#include "../GivenPlan.h"

#include <setup/preflight/RunningPrograms.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <string>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace KSETUP;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

using RunningProgramsTest = KTEST::GivenPlan;

TEST_F(RunningProgramsTest, AProgramThatWasStartedByALinkIsNamed) {
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

TEST_F(RunningProgramsTest, AProgramThatRunsIsNamed) {
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
