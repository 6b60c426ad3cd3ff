// SPDX-License-Identifier: MIT
#include "TerminalRig.h"

#include "../support/ForkOnTerminal.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace KTEST {

namespace {

constexpr auto patience = std::chrono::seconds(60);

} // namespace

TerminalTest::TerminalTest() {
    tree.Write(
        "kit/product.ini",
        "[product]\nname=Terminal Test\nserviceName=terminaltest\niniFile=tt.ini\n"
        "version=1.0\nbuildNumber=1\n"
    );
    tree.Write("kit/lib/svc", "program", 0755);
    tree.Write(
        "kit/install.ini",
        "[install]\ndefaultPath.$os$=" + tree.Path("product") +
            "\ndirectory=create,$pathTargetBin$\ndirectory=create,$pathTargetConfig$\n"
            "profile=put,$pathTargetConfig$$iniFile$,General,A,1\n"
            "file=copy,svc,$pathSource$lib,$pathTargetBin$\n"
            "directory=create,/etc/$serviceName$\n"
            "file=symlink,svc,$pathTargetBin$,/etc/$serviceName$,$serviceName$\n"
            "[remove]\nfile=delete,tt.ini,$pathTargetConfig$\n"
            "directory=delete,$pathTargetConfig$\ndirectory=delete,$pathTargetBin$\n"
            "directory=delete,$pathTargetLin$\ndirectory=delete,$pathTarget$\n"
            "file=delete,$serviceName$,/etc/$serviceName$\n"
            "directory=delete,/etc/$serviceName$\n"
    );
}

TerminalTest::~TerminalTest() {
    if (process > 0) {
        ::kill(process, SIGKILL);
        ::waitpid(process, nullptr, 0);
    }
    Close();
    std::filesystem::remove_all("/etc/terminaltest");
    std::filesystem::remove_all("/var/lib/ins++/terminaltest");
}

void TerminalTest::GivenLongCopy() {
    std::filesystem::resize_file(tree.Path("kit/lib/svc"), 4ULL << 30U);
}

std::string TerminalTest::Program() {
    return std::filesystem::canonical("/proc/self/exe").parent_path().string() + "/ins-setup";
}

void TerminalTest::StartCommand(
    const std::vector<std::string>& words, unsigned short columns, const char* type
) {
    std::vector<char*> pointers;
    for (const std::string& word : words) {
        pointers.push_back(const_cast<char*>(word.c_str())); // execvp(3) changes none
    }
    pointers.push_back(nullptr);
    process = ForkOnTerminal(terminal, columns);
    ASSERT_GE(process, 0);
    if (process == 0) {
        ::setenv("TERM", type, 1); // NOLINT(concurrency-mt-unsafe): a child with one thread
        ::execvp(pointers.front(), pointers.data());
        ::_exit(127);
    }
}

void TerminalTest::Start(const std::string& action, unsigned short columns, const char* type) {
    StartCommand({Program(), action, "--kit", tree.Path("kit")}, columns, type);
}

void TerminalTest::Resize(unsigned short columns) const {
    winsize size{};
    size.ws_row = 24;
    size.ws_col = columns;
    ASSERT_EQ(::ioctl(terminal, TIOCSWINSZ, &size), 0);
}

void TerminalTest::Press(const std::string& keys) const {
    ASSERT_EQ(::write(terminal, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
}

void TerminalTest::Close() {
    if (terminal >= 0) {
        ::close(terminal);
        terminal = -1;
    }
}

bool TerminalTest::IsAsUsual() const {
    constexpr tcflag_t usual = ECHO | ICANON | ISIG;
    termios modes{};
    EXPECT_EQ(::tcgetattr(terminal, &modes), 0);
    return (modes.c_lflag & usual) == usual;
}

bool TerminalTest::ReadUntil(const std::string& text) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (std::chrono::steady_clock::now() < end) {
        if (const std::size_t at = shown.find(text, seen); at != std::string::npos) {
            seen = at + text.size();
            return true;
        }
        pollfd ready{terminal, POLLIN, 0};
        char buffer[4096];
        if (::poll(&ready, 1, 100) > 0) {
            const ssize_t got = ::read(terminal, buffer, sizeof(buffer));
            if (got <= 0) { // the other side is closed
                return false;
            }
            shown.append(buffer, static_cast<std::size_t>(got));
        }
    }
    return false;
}

int TerminalTest::End() {
    int status = 0;
    const pid_t ended = ::waitpid(process, &status, 0);
    EXPECT_EQ(ended, process);
    process = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

int TerminalTest::RunToEnd() {
    ReadUntil("(what never comes)");
    return End();
}

std::vector<std::string> TerminalTest::Screen(std::size_t columns) const {
    TerminalScreen screen(columns);
    screen.Write(shown);
    return screen.GetLines();
}

} // namespace KTEST
