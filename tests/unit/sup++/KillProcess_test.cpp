// SPDX-License-Identifier: MIT
//
// KUtil::KillProcess. Every program here is a copy under a name that nothing else on the machine has,
// so that nothing else can be ended.
#include "../../support/TraceRecorder.h"
#include "ProcessFixture.h"

#include <sup++/KUtil.h>

#include <atomic>
#include <climits>
#include <csignal>
#include <filesystem>
#include <thread>

#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace KTEST {
namespace {

namespace fs = std::filesystem;
using KSUP::KError;
using KSUP::KUtil;
using std::chrono::milliseconds;

/// What a busy machine may add to a time that is kept.
constexpr milliseconds delay(15000);

class KillProcessTest : public ProcessTest {
  protected:
    /// All of these ended by SIGTERM.
    void ExpectTerminated(const std::vector<pid_t>& processes) {
        for (const pid_t process : processes) {
            EXPECT_FALSE(IsAlive(process));
            EndIfAlive(process);
            EXPECT_EQ(EndOf(process), 128 + SIGTERM);
        }
    }
    void ExpectSurvived(const std::vector<pid_t>& processes) {
        for (const pid_t process : processes) {
            EXPECT_TRUE(IsAlive(process));
            End(process);
        }
    }
    static void EndIfAlive(pid_t process) {
        if (IsAlive(process)) {
            ::kill(process, SIGKILL);
        }
    }
    /// A perl script's text run as a program of its own.
    pid_t StartPerl(const std::string& program, const std::string& text) {
        const pid_t process =
            Start(program, {"-e", text + "open(F, '>', '" + tree.Path("ready") + "'); sleep 1000"});
        WaitUntil([&] { return tree.Exists("ready"); });
        tree.Remove("ready");
        return process;
    }
};

TEST_F(KillProcessTest, AnEmptyTextIsError36) {
    const KError error = ErrorOf([] { KUtil::KillProcess("", longTime); });
    EXPECT_EQ(PlaceWithoutLine(error), R"(24 36.0 sup++/KUtil:? KillProcess "no program to stop")");
}

TEST_F(KillProcessTest, NothingToEndIsSuccess) {
    const TraceRecorder trace;
    const std::string program = GivenProgram("sleeper");
    KUtil::KillProcess(program, longTime);
    KUtil::KillProcess(NameOf(program), longTime);
    KUtil::KillProcess(tree.Path("missing"), longTime);
    KUtil::KillProcess(tree.Path("missing/program"), longTime);
    EXPECT_TRUE(trace.Messages().empty());
}

// Which processes: a path

TEST_F(KillProcessTest, APathEndsAllThatRunTheFile) {
    const std::string program = GivenProgram("sleeper");
    const std::string other = GivenProgram("sleeper");
    const std::vector<pid_t> wanted{
        Start(program), Start(program), StartAs(program, "x", {"1000"})};
    const pid_t spared = Start(other);
    const pid_t named = StartAs(other, program, {"1000"});
    KUtil::KillProcess(program, longTime);
    ExpectTerminated(wanted);
    ExpectSurvived({spared, named});
}

TEST_F(KillProcessTest, APathMeansItsFileNotItsName) {
    const std::string program = GivenProgram("sleeper");
    tree.Directory("other");
    const std::string sameName = tree.Path("other/" + NameOf(program));
    fs::copy_file(program, sameName);
    const pid_t wanted = Start(program);
    const pid_t spared = Start(sameName);
    KUtil::KillProcess(program, longTime);
    ExpectTerminated({wanted});
    ExpectSurvived({spared});
}

TEST_F(KillProcessTest, APathMayLeadThroughLinks) {
    const std::string program = GivenProgram("sleeper");
    tree.Link("link", NameOf(program));
    tree.Link("here", ".");
    tree.Directory("directory");
    for (const char* path : {"link", "here/link", "./directory/..//link"}) {
        const pid_t process = Start(program);
        KUtil::KillProcess(tree.Path() + "/" + path, longTime);
        ExpectTerminated({process});
    }
}

TEST_F(KillProcessTest, AProcessMayHaveBeenStartedThroughLinks) {
    const std::string program = GivenProgram("sleeper");
    tree.Link("link", NameOf(program));
    const pid_t process = Start(tree.Path("link"));
    KUtil::KillProcess(program, longTime);
    ExpectTerminated({process});
}

TEST_F(KillProcessTest, APathMayBeRelative) {
    const std::string program = GivenProgram("sleeper");
    const pid_t process = Start(program);
    EXPECT_EQ(
        InChild([&] {
            if (::chdir(tree.Path().c_str()) != 0) {
                return 1;
            }
            KUtil::KillProcess("./" + NameOf(program), longTime);
            return 0;
        }),
        0
    );
    ExpectTerminated({process});
}

// Which processes: a name

TEST_F(KillProcessTest, ANameEndsAllThatRunAFileOfThatName) {
    const std::string program = GivenProgram("sleeper");
    tree.Directory("other");
    const std::string sameName = tree.Path("other/" + NameOf(program));
    fs::copy_file(program, sameName);
    const std::vector<pid_t> wanted{Start(program), Start(sameName)};
    const pid_t called = StartAs(GivenProgram("sleeper"), NameOf(program), {"1000"});
    KUtil::KillProcess(NameOf(program), longTime);
    ExpectTerminated(wanted);
    ExpectSurvived({called});
}

/// The system keeps the first 15 bytes of a process's name.
TEST_F(KillProcessTest, NamesAreComparedBeyondTheirFifteenthByte) {
    const std::string program = GivenProgram("a-sleeper-with-a-long-name");
    const std::string other = GivenProgram("a-sleeper-with-a-long-name");
    ASSERT_EQ(NameOf(program).substr(0, 15), NameOf(other).substr(0, 15));
    const pid_t wanted = Start(program);
    const pid_t spared = Start(other);
    KUtil::KillProcess(NameOf(program).substr(0, 15), longTime);
    EXPECT_TRUE(IsAlive(wanted));
    KUtil::KillProcess(NameOf(program), longTime);
    ExpectTerminated({wanted});
    ExpectSurvived({spared});
}

TEST_F(KillProcessTest, NamesMayHoldWhatOthersSeparateBy) {
    const std::string program = GivenProgram("a) S 1 (b\n c");
    const pid_t process = Start(program);
    KUtil::KillProcess(NameOf(program), longTime);
    ExpectTerminated({process});
}

// Which processes: programs whose file is another by now

TEST_F(KillProcessTest, AProgramThatWasReplacedIsFoundByPathAndByName) {
    for (const bool byPath : {true, false}) {
        const std::string program = GivenProgram("sleeper");
        const pid_t old = Start(program);
        fs::rename(GivenProgram("sleeper"), program);
        const pid_t current = Start(program);
        KUtil::KillProcess(byPath ? program : NameOf(program), longTime);
        ExpectTerminated({old, current});
    }
}

TEST_F(KillProcessTest, AProgramThatWasDeletedIsFoundByPathAndByName) {
    tree.Link("here", ".");
    for (const int way : {0, 1, 2}) {
        const std::string program = GivenProgram("sleeper");
        const pid_t process = Start(program);
        fs::remove(program);
        KUtil::KillProcess(
            way == 0   ? program
            : way == 1 ? NameOf(program)
                       : tree.Path("here/" + NameOf(program)),
            longTime
        );
        ExpectTerminated({process});
    }
}

TEST_F(KillProcessTest, AProgramWhoseDirectoryWasDeletedIsFoundByItsPath) {
    tree.Directory("product/bin");
    fs::copy_file("/bin/sleep", tree.Path("product/bin/sleeper"));
    const pid_t process = Start(tree.Path("product/bin/sleeper"));
    tree.Remove("product");
    KUtil::KillProcess(tree.Path("product/bin/sleeper"), longTime);
    ExpectTerminated({process});
}

TEST_F(KillProcessTest, AFileWhoseNameLooksDeletedIsNot) {
    const std::string program = GivenProgram("sleeper");
    const std::string marked = program + " (deleted)";
    fs::copy_file(program, marked);
    const pid_t plain = Start(program);
    const pid_t looking = Start(marked);
    KUtil::KillProcess(NameOf(marked), longTime);
    ExpectTerminated({looking});
    const pid_t again = Start(marked);
    KUtil::KillProcess(NameOf(program), longTime);
    ExpectTerminated({plain});
    ExpectSurvived({again});
}

// Who is spared

/// A copy of this very program, so that other runs of it are not met: its child asks for the end of
/// all that run the copy, and only its own sibling may go.
TEST_F(KillProcessTest, TheCallerAndItsAncestorsAreSpared) {
    tree.Directory("bin");
    const fs::path self = fs::read_symlink("/proc/self/exe");
    fs::copy_file(self, tree.Path("bin/caller"));
    tree.Link("lib", (self.parent_path().parent_path() / "lib").string());
    const pid_t process = Start(
        tree.Path("bin/caller"),
        {"--gtest_filter=KillProcessTest.DISABLED_EndsItsSiblingOnly",
         "--gtest_also_run_disabled_tests",
         "--gtest_brief=1"}
    );
    EXPECT_EQ(EndOf(process), 0);
}

TEST_F(KillProcessTest, DISABLED_EndsItsSiblingOnly) {
    const std::string self = fs::read_symlink("/proc/self/exe").string();
    ASSERT_EQ(NameOf(self), "caller") << "to be run as a copy";
    const pid_t sibling = ::fork();
    if (sibling == 0) {
        ::pause();
        ::_exit(0);
    }
    EXPECT_EQ(
        InChild([&] {
            KUtil::KillProcess(self, longTime);
            return 5;
        }),
        5
    );
    EXPECT_FALSE(IsAlive(sibling));
    int status = 0;
    ::waitpid(sibling, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status));
}

TEST_F(KillProcessTest, ZombiesHaveEndedAlready) {
    const std::string program = GivenProgram("sleeper");
    const pid_t zombie = Start(program, {"0"});
    WaitUntil([&] { return !IsAlive(zombie); });
    EXPECT_LT(TimeOf([&] { KUtil::KillProcess(program, longTime); }), milliseconds(longTime));
    EXPECT_EQ(EndOf(zombie), 0);
}

TEST_F(KillProcessTest, AProcessWhoseFirstThreadHasEndedIsNoZombie) {
    tree.Directory("bin");
    const fs::path self = fs::read_symlink("/proc/self/exe");
    fs::copy_file(self, tree.Path("bin/headless"));
    tree.Link("lib", (self.parent_path().parent_path() / "lib").string());
    for (const bool byPath : {true, false}) {
        const pid_t process = Start(
            tree.Path("bin/headless"),
            {"--gtest_filter=KillProcessTest.DISABLED_EndsItsFirstThread",
             "--gtest_also_run_disabled_tests",
             "--gtest_brief=1"}
        );
        WaitUntil([&] { return !IsAlive(process); });
        KUtil::KillProcess(byPath ? tree.Path("bin/headless") : "headless", longTime);
        EXPECT_EQ(EndOf(process), 128 + SIGTERM);
    }
}

TEST_F(KillProcessTest, DISABLED_EndsItsFirstThread) {
    ASSERT_EQ(NameOf(fs::read_symlink("/proc/self/exe").string()), "headless") << "a copy";
    std::thread([] {
        while (true) {
            ::pause();
        }
    }).detach();
    ::syscall(SYS_exit, 0); // of this thread; the process goes on
}

// How they end

TEST_F(KillProcessTest, IsOverWhenTheLastHasEnded) {
    const std::string program = GivenProgram("perl", "/usr/bin/perl");
    const pid_t quick = StartPerl(program, "");
    const pid_t slow =
        StartPerl(program, "$SIG{TERM} = sub { select(undef, undef, undef, 0.5); exit 7 };");
    const milliseconds time = TimeOf([&] { KUtil::KillProcess(program, longTime); });
    EXPECT_FALSE(IsAlive(slow));
    EXPECT_GE(time, milliseconds(500));
    EXPECT_LT(time, milliseconds(longTime));
    EXPECT_EQ(EndOf(slow), 7) << "it had the time to end by itself";
    ExpectTerminated({quick});
}

TEST_F(KillProcessTest, TheLongestTimeIsATimeToo) {
    const std::string program = GivenProgram("perl", "/usr/bin/perl");
    const pid_t process =
        StartPerl(program, "$SIG{TERM} = sub { select(undef, undef, undef, 0.3); exit 7 };");
    KUtil::KillProcess(program, UINT_MAX);
    EXPECT_EQ(EndOf(process), 7);
}

TEST_F(KillProcessTest, WhatIgnoresSigtermIsKilledAtTheTimeGiven) {
    const std::string program = GivenProgram("sleeper");
    const std::vector<pid_t> processes{StartIgnoring(program), StartIgnoring(program)};
    const pid_t willing = Start(program);
    const milliseconds time = TimeOf([&] { KUtil::KillProcess(program, 700); });
    EXPECT_GE(time, milliseconds(700));
    EXPECT_LT(time, milliseconds(1700) + delay) << "the time and one second";
    for (const pid_t process : processes) {
        EXPECT_FALSE(IsAlive(process));
        EXPECT_EQ(EndOf(process), 128 + SIGKILL);
    }
    ExpectTerminated({willing});
}

TEST_F(KillProcessTest, WithoutTimeItIsKilledAtOnce) {
    const std::string program = GivenProgram("sleeper");
    const pid_t process = StartIgnoring(program);
    KUtil::KillProcess(program, 0);
    EXPECT_EQ(EndOf(process), 128 + SIGKILL);
}

TEST_F(KillProcessTest, AProcessThatIsHeldUpIsKilledAtTheTimeGiven) {
    const std::string program = GivenProgram("sleeper");
    const pid_t process = Start(program);
    ::kill(process, SIGSTOP);
    WaitUntil([&] { return StateOf(process) == 'T'; });
    KUtil::KillProcess(program, 100);
    EXPECT_EQ(EndOf(process), 128 + SIGKILL);
}

TEST_F(KillProcessTest, LeavesNoDescriptor) {
    const std::string program = GivenProgram("sleeper");
    const std::vector<int> before = OpenDescriptors();
    Start(program);
    KUtil::KillProcess(program, longTime);
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST_F(KillProcessTest, SeveralThreadsMayEndTheSame) {
    const std::string program = GivenProgram("sleeper");
    std::vector<pid_t> processes;
    for (int number = 0; number < 10; ++number) {
        processes.push_back(Start(program));
    }
    std::atomic<unsigned> codes{0};
    const auto end = [&] { codes += CodeOf([&] { KUtil::KillProcess(program, longTime); }); };
    std::thread other(end);
    end();
    other.join();
    EXPECT_EQ(codes, 0U);
    ExpectTerminated(processes);
}

// What fails

/// A signal that the kernel refuses, and one that seems sent and never comes: of a process that is
/// stuck in the kernel there is none to be had.
TEST_F(KillProcessTest, AProcessThatDoesNotEndIsNamed) {
    const std::string program = GivenProgram("sleeper");
    const pid_t process = Start(program);
    for (const int errorNumber : {EPERM, 0}) {
        EXPECT_EQ(
            InChild([&] {
                RefuseCall(SYS_pidfd_send_signal, errorNumber);
                unsigned code = 0;
                std::string info;
                const milliseconds time = TimeOf([&] {
                    const KError error = ErrorOf([&] { KUtil::KillProcess(program, 300); });
                    code = error.GetCode();
                    info = error.GetInfo().GetString().c_str();
                });
                const std::string name =
                    "process " + std::to_string(process) + " (" + program + ")";
                const bool isTold = errorNumber == 0
                                        ? code == ETIMEDOUT && info == name + ": did not end"
                                        : code == EPERM && info == SystemInfo(name, EPERM);
                return isTold && time >= milliseconds(1300) && time < milliseconds(1300) + delay
                           ? 0
                           : 1;
            }),
            0
        ) << errorNumber;
    }
    ExpectSurvived({process});
}

TEST_F(KillProcessTest, ProcessesThatCannotBeHeldAreAnErrorAndNothingEnds) {
    const std::string program = GivenProgram("sleeper");
    const pid_t process = Start(program);
    EXPECT_EQ(
        InChild([&] {
            RefuseCall(SYS_pidfd_open, ENOSYS);
            const KError error = ErrorOf([&] { KUtil::KillProcess(program, 100); });
            return error.GetInfo().GetString() == SystemInfo("/proc", ENOSYS).c_str() ? 0 : 1;
        }),
        0
    );
    ExpectSurvived({process});
}

TEST_F(KillProcessTest, AMachineThatTellsOfNoProcessesIsAnError) {
    SKIP_UNLESS_ROOT("change the root directory");
    for (const char* root : {"empty", "blind"}) {
        tree.Directory("empty");
        tree.Directory("blind/proc");
        EXPECT_EQ(
            InChild([&] {
                if (::chroot(tree.Path(root).c_str()) != 0) {
                    return 1;
                }
                const KError error = ErrorOf([&] { KUtil::KillProcess("sleeper", 100); });
                return error.GetInfo().GetString() == SystemInfo("/proc", ENOENT).c_str() ? 0 : 2;
            }),
            0
        );
    }
}

} // namespace
} // namespace KTEST
