// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <filesystem>

#include <spawn.h>
#include <sys/processes/ProgramRun.h>
#include <sys/processes/ProgramsInUse.h>
#include <sys/processes/Terminal.h>
#include <sys/wait.h>
#include <unistd.h>

namespace KTEST {
namespace {

class ProgramRunTest : public ::testing::Test {
  protected:
    unsigned Run(const std::vector<std::string>& words) {
        return KSYS::RunProgram(words, tree.Path(), "log", succeeded);
    }
    TemporaryTree tree;
    bool succeeded = false;
};

TEST_F(ProgramRunTest, RunsInItsDirectoryAndKeepsWhatIsWritten) {
    EXPECT_EQ(Run({"sh", "-c", "pwd; echo trouble >&2; wc -c"}), 0U);
    EXPECT_TRUE(succeeded);
    EXPECT_EQ(tree.Read("log"), tree.Path() + "\ntrouble\n0\n");
}

TEST_F(ProgramRunTest, TakesWhatAProgramWritesWithoutItsComplaints) {
    std::string output;
    EXPECT_EQ(KSYS::ReadProgram({"sh", "-c", "seq 20000; echo trouble >&2; exit 1"}, output), 0U);
    EXPECT_TRUE(output.starts_with("1\n2\n"));
    EXPECT_TRUE(output.ends_with("\n20000\n"));
    EXPECT_EQ(KSYS::ReadProgram({"no-program-of-this-name"}, output), unsigned{ENOENT});
}

TEST_F(ProgramRunTest, TellsOfAProgramThatFails) {
    EXPECT_EQ(Run({"sh", "-c", "exit 3"}), 0U);
    EXPECT_FALSE(succeeded);
}

TEST_F(ProgramRunTest, TellsOfAProgramThatDies) {
    EXPECT_EQ(Run({"sh", "-c", "kill -9 $$"}), 0U);
    EXPECT_FALSE(succeeded);
}

TEST_F(ProgramRunTest, AProgramDoesNotIgnoreWhatThisProcessDoes) {
    for (const int signal : {SIGPIPE, SIGXFSZ}) {
        const auto former = ::signal(signal, SIG_IGN);
        EXPECT_EQ(Run({"sh", "-c", "kill -" + std::to_string(signal) + " $$"}), 0U);
        EXPECT_FALSE(succeeded) << signal;
        ::signal(signal, former);
    }
}

TEST_F(ProgramRunTest, TellsOfAProgramThatIsMissing) {
    EXPECT_EQ(Run({"no-program-of-this-name"}), unsigned{ENOENT});
}

TEST_F(ProgramRunTest, AProgramThatRunsIsFoundByItsFile) {
    std::filesystem::copy_file("/bin/sleep", tree.Path("sleeper"));
    tree.Write("other", "");
    std::string program = tree.Path("sleeper");
    std::string time = "1000";
    char* arguments[] = {program.data(), time.data(), nullptr};
    pid_t process = 0;
    ASSERT_EQ(::posix_spawn(&process, program.c_str(), nullptr, nullptr, arguments, environ), 0);
    const auto found = KSYS::FindProgramsInUse({tree.Path("other"), program, tree.Path("missing")});
    ::kill(process, SIGKILL);
    ::waitpid(process, nullptr, 0);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].id, process);
    EXPECT_EQ(found[0].name, "sleeper");
    EXPECT_EQ(found[0].file, program);
}

TEST(TerminalTest, APipeIsNoneAndTellsWhenItsReaderGoes) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(::pipe(ends), 0);
    EXPECT_FALSE(KSYS::IsTerminal(ends[1]));
    EXPECT_EQ(KSYS::TerminalColumns(ends[1]), 0U);
    EXPECT_FALSE(KSYS::IsReaderGone(ends[1]));
    ::close(ends[0]);
    EXPECT_TRUE(KSYS::IsReaderGone(ends[1]));
    ::close(ends[1]);
}

} // namespace
} // namespace KTEST
