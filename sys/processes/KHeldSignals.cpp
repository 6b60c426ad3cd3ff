// SPDX-License-Identifier: MIT
#include <cerrno>
#include <cstdlib>

#include <spawn.h>
#include <sys/Retry.h>
#include <sys/processes/KHeldSignals.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace KSYS {

namespace {

std::vector<char*> PointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

} // namespace

KHeldSignals::KHeldSignals() noexcept {
    sigemptyset(&held);
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGCHLD}) {
        sigaddset(&held, signal);
    }
    ::pthread_sigmask(SIG_BLOCK, &held, &former);
    // Children of a process that ignores it are reaped by the kernel, and their status is lost.
    struct sigaction usual {};
    usual.sa_handler = SIG_DFL;
    ::sigaction(SIGCHLD, &usual, nullptr);
}

int KHeldSignals::Take() noexcept {
    sigset_t ending = held;
    sigdelset(&ending, SIGCHLD);
    constexpr timespec noTime{};
    const int signal = Retry([&] { return ::sigtimedwait(&ending, nullptr, &noTime); });
    return signal > 0 ? signal : 0;
}

unsigned KHeldSignals::Run(
    std::vector<std::string> words,
    std::vector<std::string> environment,
    const std::vector<int>& kept,
    int& status
) {
    const std::vector<char*> pointers = PointersTo(words);
    const std::vector<char*> variables = PointersTo(environment);
    posix_spawnattr_t attributes;
    ::posix_spawnattr_init(&attributes);
    ::posix_spawnattr_setsigmask(&attributes, &former);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    for (const int each : kept) {
        if (each >= 0) {
            ::posix_spawn_file_actions_adddup2(&actions, each, each); // which keeps it open
        }
    }
    pid_t child = 0;
    const int error = ::posix_spawn(
        &child, pointers[0], &actions, &attributes, pointers.data() + 1, variables.data()
    );
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&actions);
    if (error == 0) {
        WaitFor(child, status);
    }
    return static_cast<unsigned>(error);
}

void KHeldSignals::WaitFor(pid_t child, int& status) noexcept {
    for (;;) {
        int how = 0;
        const pid_t ended = ::waitpid(-1, &how, WNOHANG);
        if (ended == child) {
            status = how;
            return;
        }
        if (ended > 0) {
            continue;
        }
        siginfo_t signal{};
        const int number = Retry([&] { return ::sigwaitinfo(&held, &signal); });
        if (number > 0 && number != SIGCHLD && signal.si_code <= 0) { // sent by a process
            ::kill(child, number); // which is there: nobody has waited for it
        }
    }
}

void KHeldSignals::Release() noexcept {
    ::pthread_sigmask(SIG_SETMASK, &former, nullptr);
}

void EndAs(int status) noexcept {
    if (WIFSIGNALED(status)) {
        const int signal = WTERMSIG(status);
        constexpr rlimit none{};
        ::setrlimit(RLIMIT_CORE, &none);
        ::signal(signal, SIG_DFL);
        sigset_t one;
        sigemptyset(&one);
        sigaddset(&one, signal);
        ::raise(signal);
        ::pthread_sigmask(SIG_UNBLOCK, &one, nullptr);
        std::_Exit(128 + signal); // for one that does not end a program
    }
    std::_Exit(WEXITSTATUS(status));
}

} // namespace KSYS
