// SPDX-License-Identifier: MIT
#include "TracedRun.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <system_error>

#include <fcntl.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

namespace KTEST {

namespace {

void Check(long result, const char* what) {
    if (result < 0) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

[[noreturn]] void BecomeTraced(const std::vector<std::string>& words) {
    const int nowhere = ::open("/dev/null", O_RDWR); // NOLINT(android-cloexec-open): inherited
    for (const int descriptor : {0, 1, 2}) {
        ::dup2(nowhere, descriptor);
    }
    std::vector<char*> arguments;
    for (const std::string& word : words) {
        arguments.push_back(const_cast<char*>(word.c_str())
        ); // NOLINT(cppcoreguidelines-pro-type-const-cast): as execv has it
    }
    arguments.push_back(nullptr);
    ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    ::raise(SIGSTOP);
    ::execv(arguments[0], arguments.data());
    ::_exit(127);
}

} // namespace

int RunTraced(const std::vector<std::string>& words, const CallWatcher& shallKill) {
    const pid_t first = ::fork();
    Check(first, "fork");
    if (first == 0) {
        BecomeTraced(words);
    }
    int status = 0;
    Check(::waitpid(first, &status, 0), "waitpid");
    constexpr int options = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL;
    Check(::ptrace(PTRACE_SETOPTIONS, first, nullptr, options), "ptrace options");
    Check(::ptrace(PTRACE_SYSCALL, first, nullptr, nullptr), "ptrace");
    for (;;) {
        int stopped = 0;
        const pid_t thread = ::waitpid(-1, &stopped, __WALL);
        Check(thread, "waitpid");
        if (!WIFSTOPPED(stopped)) {
            if (thread == first) {
                return stopped;
            }
            continue;
        }
        int signal = WSTOPSIG(stopped);
        if (signal == (SIGTRAP | 0x80)) {
            signal = 0;
            __ptrace_syscall_info call{};
            // Negative for a thread that was killed meanwhile.
            if (::ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof(call), &call) > 0 &&
                call.op == PTRACE_SYSCALL_INFO_ENTRY && shallKill(thread, call)) {
                ::kill(first, SIGKILL);
            }
        } else if (signal == SIGTRAP || signal == SIGSTOP) { // of tracing itself
            signal = 0;
        }
        ::ptrace(PTRACE_SYSCALL, thread, nullptr, signal);
    }
}

std::string ReadTracedText(pid_t thread, unsigned long long address) {
    std::array<char, 4096> bytes{};
    iovec here{bytes.data(), bytes.size() - 1};
    iovec there{
        reinterpret_cast<void*>(address),
        bytes.size() - 1}; // NOLINT(performance-no-int-to-ptr): another process's
    if (::process_vm_readv(thread, &here, 1, &there, 1, 0) < 0) {
        // Less than that may be there, up to the end of a page.
        constexpr unsigned long long page = 4096;
        here.iov_len = there.iov_len = page - address % page;
        Check(::process_vm_readv(thread, &here, 1, &there, 1, 0), "process_vm_readv");
    }
    return bytes.data();
}

} // namespace KTEST
