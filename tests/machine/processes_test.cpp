// SPDX-License-Identifier: MIT
//
// Commands and the ending of programs where they could meet the wrong process: numbers that are given
// to another one, containers, the machine's first process.
#include "../support/Processes.h"
#include "../support/TemporaryTree.h"

#include <sup++/KError.h>
#include <sup++/KShellCommand.h>
#include <sup++/KUtil.h>
#include <sup++/SvcDispatch.h>
#include <sup++/SvcProcess.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <linux/sched.h>
#include <sched.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using KSUP::KUtil;
using KTEST::EndOf;
using KTEST::IsAlive;
using KTEST::WaitUntil;
using std::chrono::milliseconds;

constexpr unsigned longTime = 20000; ///< longer than any of this takes

void Check(long result, const std::string& what) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

/// Runs `body` in a process of its own and returns what it returned, or 128 and a signal.
int InChild(const std::function<int()>& body) {
    const pid_t child = ::fork();
    Check(child, "fork");
    if (child == 0) {
        int status = 125;
        try {
            status = body();
        } catch (const std::exception& error) {
            std::fprintf(stderr, "child: %s\n", error.what());
        } catch (const KSUP::KError& error) {
            std::fprintf(stderr, "child: %s\n", error.GetSummary().c_str());
        }
        ::_exit(status);
    }
    return EndOf(child);
}

class ProcessesTest : public ::testing::Test {
  protected:
    ProcessesTest() { ::alarm(120); }
    ~ProcessesTest() override { ::alarm(0); }

    static void CopyProgram(const std::string& path) {
        fs::create_directories(fs::path(path).parent_path());
        fs::copy_file("/bin/sleep", path, fs::copy_options::overwrite_existing);
    }
    static pid_t Start(std::vector<std::string> words) {
        std::vector<char*> pointers;
        for (std::string& word : words) {
            pointers.push_back(word.data());
        }
        pointers.push_back(nullptr);
        pid_t process = 0;
        errno = ::posix_spawn(&process, pointers[0], nullptr, nullptr, pointers.data(), environ);
        Check(errno == 0 ? 0 : -1, words.front());
        return process;
    }
    static pid_t StartIgnoring(const std::string& path) {
        const auto former = std::signal(SIGTERM, SIG_IGN); // is inherited
        const pid_t process = Start({path, "1000"});
        std::signal(SIGTERM, former);
        return process;
    }
    /// Starts a program in a session of its own under the number of a process that is gone.
    static pid_t StartAsNumber(pid_t number, const std::string& path) {
        clone_args arguments{};
        arguments.exit_signal = SIGCHLD;
        arguments.set_tid = reinterpret_cast<std::uintptr_t>(&number);
        arguments.set_tid_size = 1;
        const long process = ::syscall(SYS_clone3, &arguments, sizeof(arguments));
        Check(process, "clone3");
        if (process == 0) {
            ::setsid();
            ::execl(path.c_str(), path.c_str(), "1000", nullptr);
            ::_exit(127);
        }
        WaitUntil([&] {
            return fs::read_symlink("/proc/" + std::to_string(number) + "/exe") == path;
        });
        return static_cast<pid_t>(process);
    }
    /// A process in a mount and process namespace of its own, in which `prepare` was run; "$1" is
    /// the root that it gets and "$2" its program.
    ///
    /// Returns  the shell that is the first process in there; the program is its child
    pid_t StartContainer(const std::string& prepare, const std::string& program) {
        const std::string root = tree.Path("root" + std::to_string(++containers));
        fs::create_directories(root);
        const pid_t shell = Start(
            {"/usr/bin/unshare",
             "--mount",
             "--pid",
             "--kill-child",
             "/bin/sh",
             "-ec",
             prepare + "; chroot \"$1\" \"$2\" 1000 & wait",
             "container",
             root,
             program}
        );
        return ProgramIn(shell, program);
    }
    /// The process below `shell` that runs the program.
    static pid_t ProgramIn(pid_t shell, const std::string& program) {
        pid_t found = 0;
        WaitUntil([&] {
            found = FindBelow(shell, fs::path(program).filename());
            return found != 0 || !IsAlive(shell);
        });
        if (found == 0) {
            throw std::runtime_error("the container did not start");
        }
        return found;
    }
    static pid_t FindBelow(pid_t parent, const std::string& name) {
        const std::string id = std::to_string(parent);
        std::ifstream children("/proc/" + id + "/task/" + id + "/children");
        for (pid_t child = 0; children >> child;) {
            std::error_code gone;
            const fs::path executable =
                fs::read_symlink("/proc/" + std::to_string(child) + "/exe", gone);
            const pid_t found = executable.filename() == name ? child : FindBelow(child, name);
            if (found != 0) {
                return found;
            }
        }
        return 0;
    }

    KTEST::TemporaryTree tree;
    const KTEST::LeftBehind leftBehind;
    int containers = 0;
    /// A root like the machine's own, but with files of its own in /opt/it.
    const std::string ownRoot = "mount --make-rprivate /; mount --bind / \"$1\"; "
                                "mount -t proc proc \"$1/proc\"; mkdir -p /opt/it; "
                                "mount -t tmpfs own \"$1/opt/it\"; cp /bin/sleep \"$1$2\"";
};

// Numbers that are given to another process

TEST_F(ProcessesTest, TheNextProcessOfANumberIsNotKilledInThePlaceOfTheOneThatEnded) {
    const std::string program = tree.Path("wanted");
    const std::string other = tree.Path("stranger");
    CopyProgram(program);
    CopyProgram(other);
    const pid_t willing = Start({program, "1000"});
    const pid_t deaf = StartIgnoring(program); // keeps the call busy until the time is up
    std::thread killer([&] { KUtil::KillProcess(program, 1500); });
    WaitUntil([&] { return !IsAlive(willing); });
    EXPECT_EQ(EndOf(willing), 128 + SIGTERM);
    const pid_t stranger = StartAsNumber(willing, other);
    EXPECT_EQ(stranger, willing);
    killer.join();
    EXPECT_EQ(EndOf(deaf), 128 + SIGKILL);
    EXPECT_TRUE(IsAlive(stranger));
}

TEST_F(ProcessesTest, TheNextGroupOfANumberIsNotStoppedInThePlaceOfTheCommandThatEnded) {
    const std::string other = tree.Path("stranger");
    CopyProgram(other);
    ASSERT_EQ(SvcSetCommandOutput(tree.Path("output").c_str()), 0U);
    pid_t stranger = 0;
    {
        KSUP::KShellCommand command;
        command.Execute("echo $$");
        while (command.IsThreadActive()) {
            SvcPollingDispatch();
        }
        const pid_t shell = std::stoi(tree.Read("output"));
        stranger = StartAsNumber(shell, other);
        EXPECT_EQ(stranger, shell);
        EXPECT_EQ(::getpgid(stranger), shell);
        command.Stop();
    }
    EXPECT_TRUE(IsAlive(stranger));
    static_cast<void>(SvcSetCommandOutput(nullptr)); // cannot fail
}

// Containers

TEST_F(ProcessesTest, APathIsNotThatOfAContainer) {
    CopyProgram("/opt/it/program");
    const pid_t own = Start({"/opt/it/program", "1000"});
    const pid_t first = StartContainer(ownRoot, "/opt/it/program");
    const pid_t second = StartContainer(ownRoot, "/opt/it/program");
    KUtil::KillProcess("/opt/it/program", longTime);
    EXPECT_EQ(EndOf(own), 128 + SIGTERM);
    EXPECT_TRUE(IsAlive(first));
    EXPECT_TRUE(IsAlive(second));
}

TEST_F(ProcessesTest, APathIsNotThatOfAContainerWhoseProgramWasDeleted) {
    CopyProgram("/opt/it/program");
    const pid_t own = Start({"/opt/it/program", "1000"});
    const pid_t other = StartContainer(ownRoot, "/opt/it/program");
    fs::remove("/opt/it/program");
    fs::remove("/proc/" + std::to_string(other) + "/root/opt/it/program");
    KUtil::KillProcess("/opt/it/program", longTime);
    EXPECT_EQ(EndOf(own), 128 + SIGTERM);
    EXPECT_TRUE(IsAlive(other));
}

/// The same root, but another file system at one place of it.
TEST_F(ProcessesTest, APathIsNotThatOfAnotherFileSystemInItsPlace) {
    CopyProgram("/opt/it/program");
    const pid_t own = Start({"/opt/it/program", "1000"});
    const pid_t other = StartContainer(
        "mount --make-rprivate /; mount -t tmpfs own /opt/it; cp /bin/sleep \"$2\"; set -- / "
        "\"$2\"",
        "/opt/it/program"
    );
    fs::remove("/opt/it/program");
    fs::remove("/proc/" + std::to_string(other) + "/root/opt/it/program");
    KUtil::KillProcess("/opt/it/program", longTime);
    EXPECT_EQ(EndOf(own), 128 + SIGTERM);
    EXPECT_TRUE(IsAlive(other));
}

/// As a service with a /tmp of its own, whose program an upgrade replaced.
TEST_F(ProcessesTest, AProgramInANamespaceWithTheSameFilesIsFoundAlsoWhenItWasReplaced) {
    CopyProgram("/opt/it/program");
    const std::string prepare = "mount --make-rprivate /; mount -t tmpfs own /mnt; set -- / \"$2\"";
    const pid_t plain = StartContainer(prepare, "/opt/it/program");
    KUtil::KillProcess("/opt/it/program", longTime);
    WaitUntil([&] { return !IsAlive(plain); });
    const pid_t replaced = StartContainer(prepare, "/opt/it/program");
    CopyProgram("/opt/it/new");
    fs::rename("/opt/it/new", "/opt/it/program");
    KUtil::KillProcess("/opt/it/program", longTime);
    WaitUntil([&] { return !IsAlive(replaced); });
}

TEST_F(ProcessesTest, WithinAContainerAPathIsItsOwn) {
    CopyProgram("/opt/it/program");
    const pid_t outside = Start({"/opt/it/program", "1000"});
    const pid_t first = StartContainer(ownRoot, "/opt/it/program");
    const pid_t second = StartContainer(ownRoot, "/opt/it/program");
    const std::string proc = "/proc/" + std::to_string(first);
    // The first process of a namespace takes all in it with it, perhaps before the child can say 0.
    EXPECT_THAT(
        InChild([&] {
            const int root = ::open((proc + "/root").c_str(), O_RDONLY | O_CLOEXEC);
            const int processes = ::open((proc + "/ns/pid").c_str(), O_RDONLY | O_CLOEXEC);
            Check(::setns(processes, CLONE_NEWPID), "setns");
            Check(::fchdir(root), "fchdir");
            Check(::chroot("."), "chroot");
            return InChild([] { // the first that is in there
                KUtil::KillProcess("/opt/it/program", longTime);
                return 0;
            });
        }),
        ::testing::AnyOf(0, 128 + SIGKILL)
    );
    WaitUntil([&] { return !IsAlive(first); });
    EXPECT_FALSE(IsAlive(first));
    EXPECT_TRUE(IsAlive(second));
    EXPECT_TRUE(IsAlive(outside));
}

// The machine's first process

TEST_F(ProcessesTest, TheFirstProcessIsSpared) {
    const fs::path manager = fs::read_symlink("/proc/1/exe");
    ASSERT_EQ(manager.filename(), "systemd");
    // Nothing else runs it here. Process 1 would outlive the signals and be an error.
    KUtil::KillProcess(manager.string(), 0);
    EXPECT_EQ(fs::read_symlink("/proc/1/exe"), manager);
}

} // namespace
