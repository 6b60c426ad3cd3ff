// SPDX-License-Identifier: MIT
#include "ProcessFixture.h"

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <system_error>
#include <thread>

#include <linux/filter.h>
#include <linux/sched.h>
#include <linux/seccomp.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace KTEST {

namespace {

void CheckCall(long result, const char* call) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), call);
    }
}

template <std::size_t Count>
void Install(sock_filter (&filter)[Count]) {
    const sock_fprog program{static_cast<unsigned short>(Count), filter};
    CheckCall(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), "prctl");
    CheckCall(::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program), "seccomp");
}

constexpr unsigned offsetOfNumber = offsetof(seccomp_data, nr);
constexpr unsigned offsetOfFlags = offsetof(seccomp_data, args); // the low half, little endian

std::string NextName(const std::string& name) {
    static int count = 0;
    return name + '-' + std::to_string(::getpid()) + '-' + std::to_string(++count);
}

} // namespace

std::chrono::milliseconds TimeOf(const boost::function<void()>& action) {
    const auto start = Clock::now();
    action();
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
}

void RefuseCall(long number, int errorNumber) {
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetOfNumber),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(number), 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned>(errorNumber)),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    Install(filter);
}

void RefuseThreads() {
    RefuseCall(SYS_clone3, ENOSYS); // whose flags cannot be looked at
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetOfNumber),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_clone, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetOfFlags),
        BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, CLONE_THREAD, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EAGAIN),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    Install(filter);
}

std::string NameOf(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

void ProcessTest::TearDown() {
    while (!started.empty()) {
        End(started.back());
    }
    EXPECT_EQ(LeftBehind::End(), 0) << "processes were left behind";
}

std::string ProcessTest::GivenProgram(const std::string& name, const std::string& original) {
    const std::string path = tree.Path(NextName(name));
    std::filesystem::copy_file(original, path);
    return path;
}

pid_t ProcessTest::Start(const std::string& path, const std::vector<std::string>& arguments) {
    return StartAs(path, path, arguments);
}

pid_t ProcessTest::StartAs(
    const std::string& path, const std::string& calledAs, std::vector<std::string> arguments
) {
    arguments.insert(arguments.begin(), calledAs);
    std::vector<char*> pointers;
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);
    pid_t process = 0;
    errno = ::posix_spawn(&process, path.c_str(), nullptr, nullptr, pointers.data(), environ);
    CheckCall(errno == 0 ? 0 : -1, "posix_spawn");
    started.push_back(process);
    return process;
}

pid_t ProcessTest::StartIgnoring(const std::string& path) {
    // What is ignored stays so in the program that is started.
    const auto former = std::signal(SIGTERM, SIG_IGN);
    const pid_t process = Start(path);
    std::signal(SIGTERM, former);
    return process;
}

int ProcessTest::EndOf(pid_t process) {
    std::erase(started, process);
    return KTEST::EndOf(process);
}

void ProcessTest::End(pid_t process) {
    ::kill(process, SIGKILL);
    EndOf(process);
}

namespace {

class ProcessFixtureTest : public ProcessTest {};

TEST_F(ProcessFixtureTest, AProcessIsAliveUntilItHasEndedNotUntilItIsReaped) {
    const pid_t process = Start(GivenProgram("sleeper"));
    EXPECT_TRUE(IsAlive(process));
    ::kill(process, SIGTERM);
    WaitUntil([&] { return !IsAlive(process); });
    EXPECT_EQ(EndOf(process), 128 + SIGTERM);
    EXPECT_FALSE(IsAlive(process));
}

TEST_F(ProcessFixtureTest, OneThatIgnoresSigtermDoes) {
    const pid_t process = StartIgnoring(GivenProgram("sleeper"));
    ::kill(process, SIGTERM);
    ::kill(process, SIGKILL);
    EXPECT_EQ(EndOf(process), 128 + SIGKILL);
}

TEST_F(ProcessFixtureTest, WhatIsLeftBehindIsCountedAndEnded) {
    const std::string program = GivenProgram("sleeper");
    const pid_t parent =
        Start("/bin/sh", {"-c", program + " 1000 & : >" + tree.Path("forked") + "; wait"});
    WaitUntil([&] { return tree.Exists("forked"); });
    ::kill(parent, SIGKILL);
    EndOf(parent);
    EXPECT_EQ(LeftBehind::End(), 1);
    EXPECT_EQ(LeftBehind::End(), 0);
}

TEST_F(ProcessFixtureTest, ARefusedCallFailsAndOnlyThat) {
    EXPECT_EQ(
        InChild([] {
            RefuseCall(SYS_getppid, EPERM);
            return ::syscall(SYS_getppid) == -1 && errno == EPERM && ::getpid() > 0 ? 0 : 1;
        }),
        0
    );
}

TEST_F(ProcessFixtureTest, WithoutThreadsThereAreStillProcesses) {
    EXPECT_EQ(
        InChild([] {
            RefuseThreads();
            const int child = InChild([] { return 7; });
            try {
                std::thread([] {}).join();
            } catch (const std::system_error& error) {
                return error.code().value() == EAGAIN && child == 7 ? 0 : 1;
            }
            return 2;
        }),
        0
    );
}

} // namespace

} // namespace KTEST
