// SPDX-License-Identifier: MIT
#include "Processes.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>
#include <thread>

#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace KTEST {

namespace {

void Check(long result, const char* call) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), call);
    }
}

int KillRunningChildren() {
    std::ifstream children(
        "/proc/self/task/" + std::to_string(::syscall(SYS_gettid)) + "/children"
    );
    int count = 0;
    for (pid_t child = 0; children >> child; ++count) {
        ::kill(child, SIGKILL);
    }
    return count;
}

} // namespace

void WaitUntil(const std::function<bool()>& condition) {
    while (!condition()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

char StateOf(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    // By an inserter: an iterator throws where the process has ended since the file was opened.
    std::ostringstream content;
    content << file.rdbuf();
    const std::string text = content.str();
    const std::size_t nameEnd = text.rfind(')'); // the name in front may hold anything
    return nameEnd != std::string::npos && nameEnd + 2 < text.size() ? text[nameEnd + 2] : '\0';
}

bool IsAlive(pid_t process) {
    const char state = StateOf(process);
    return state != '\0' && state != 'Z' && state != 'X';
}

int EndOf(pid_t child) {
    int status = 0;
    Check(::waitpid(child, &status, 0), "waitpid");
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

LeftBehind::LeftBehind() {
    Check(::prctl(PR_SET_CHILD_SUBREAPER, 1), "prctl");
}

LeftBehind::~LeftBehind() {
    End();
    ::prctl(PR_SET_CHILD_SUBREAPER, 0);
}

int LeftBehind::End() {
    int alive = 0;
    siginfo_t child{};
    // One by one, because what the end of one leaves behind is the next.
    while (::waitid(P_ALL, 0, &child, WEXITED | WNOHANG | WNOWAIT) == 0) {
        if (child.si_pid == 0) { // none of them has ended
            alive += KillRunningChildren();
            Check(::waitid(P_ALL, 0, &child, WEXITED | WNOWAIT), "waitid");
        }
        ::waitpid(child.si_pid, nullptr, 0);
        child = {};
    }
    return alive;
}

} // namespace KTEST
