// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <csignal>
#include <functional>

#include <sys/processes/KHeldSignals.h>
#include <sys/processes/PrivateRoot.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// Starts a child that does this and ends with what it answers. What is held stays so in the child.
pid_t Start(const std::function<int()>& work) {
    pid_t child = 0;
    if (KSYS::ForkProcess(child) == 0 && child == 0) {
        ::_exit(work());
    }
    return child;
}

/// In a child: signals that are held stay so for a process.
int ExitCodeOf(const std::function<int()>& work) {
    int status = 0;
    const pid_t child = Start(work);
    return ::waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(KHeldSignalsTest, TellsHowTheChildEndedAndReapsOthersMeanwhile) {
    const int code = ExitCodeOf([] {
        KSYS::KHeldSignals signals;
        const pid_t other = Start([] { return 1; });
        siginfo_t ended{};
        ::waitid(P_PID, static_cast<id_t>(other), &ended, WEXITED | WNOWAIT); // it is first
        int status = 0;
        signals.WaitFor(Start([] { return 7; }), status);
        const bool isReaped = ::waitpid(other, nullptr, WNOHANG) < 0;
        return WIFEXITED(status) && isReaped ? WEXITSTATUS(status) : -1;
    });
    EXPECT_EQ(code, 7);
}

TEST(KHeldSignalsTest, PassesOnWhatAProcessSendsToAChildThatHasItsSignalsAgain) {
    const int code = ExitCodeOf([] {
        KSYS::KHeldSignals signals;
        const pid_t child = Start([&] {
            signals.Release();
            for (;;) {
                ::pause();
            }
            return 0;
        });
        ::kill(::getpid(), SIGTERM); // held, and passed on
        int status = 0;
        signals.WaitFor(child, status);
        return WIFSIGNALED(status) ? WTERMSIG(status) : -1;
    });
    EXPECT_EQ(code, SIGTERM);
}

} // namespace
