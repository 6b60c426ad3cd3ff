// SPDX-License-Identifier: MIT
#include "Common.h"

#include <sup++/KThread.h>
#include <sup++/SvcDispatch.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <future>
#include <memory>
#include <stdexcept>
#include <thread>
#include <type_traits>

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

namespace KTEST {
namespace {

using KSUP::KError;
using KSUP::KThread;

class KThreadTest : public testing::Test {
  protected:
    static void WaitForEnd(const KThread& thread) {
        while (thread.IsThreadActive()) {
            SvcPollingDispatch();
        }
    }
    /// Runs until it is asked to end.
    void StartLoop(KThread& thread) {
        thread.Start([this, &thread] {
            while (!thread.IsTerminated()) {
                std::this_thread::yield();
            }
            ended = true;
        });
    }

    const HangGuard guard;
    std::atomic<bool> ended{false};
};

TEST_F(KThreadTest, IsNotRunningUntilItIsStarted) {
    const KThread thread("worker");
    EXPECT_FALSE(thread.IsThreadActive());
    EXPECT_FALSE(thread.IsTerminated());
    EXPECT_NO_THROW(thread.CheckRunError());
    EXPECT_FALSE(std::is_copy_constructible_v<KThread>);
}

TEST_F(KThreadTest, RunsTheFunctionOnAThreadOfItsOwn) {
    KThread thread("worker");
    std::thread::id id;
    thread.Start([&] { id = std::this_thread::get_id(); });
    thread.Stop();
    EXPECT_NE(id, std::thread::id());
    EXPECT_NE(id, std::this_thread::get_id());
}

TEST_F(KThreadTest, IsActiveUntilTheFunctionHasReturned) {
    KThread thread("worker");
    std::promise<void> gate;
    thread.Start([&] { gate.get_future().wait(); });
    EXPECT_TRUE(thread.IsThreadActive());
    gate.set_value();
    WaitForEnd(thread);
    EXPECT_FALSE(thread.IsThreadActive());
    EXPECT_FALSE(thread.IsTerminated()) << "nobody asked it to end";
}

TEST_F(KThreadTest, IsActiveToItself) {
    KThread thread("worker");
    std::atomic<bool> active{false};
    thread.Start([&] { active = thread.IsThreadActive(); });
    thread.Stop();
    EXPECT_TRUE(active);
}

TEST_F(KThreadTest, StopRequestsAndWaits) {
    KThread thread("worker");
    StartLoop(thread);
    EXPECT_FALSE(thread.IsTerminated());
    thread.Stop();
    EXPECT_TRUE(ended);
    EXPECT_TRUE(thread.IsTerminated());
    EXPECT_FALSE(thread.IsThreadActive());
}

TEST_F(KThreadTest, StopWithoutWaitingOnlyRequests) {
    KThread thread("worker");
    std::promise<void> gate;
    thread.Start([&] { gate.get_future().wait(); });
    thread.Stop(false);
    EXPECT_TRUE(thread.IsTerminated());
    EXPECT_TRUE(thread.IsThreadActive());
    gate.set_value();
    thread.Stop(true);
    EXPECT_FALSE(thread.IsThreadActive());
}

TEST_F(KThreadTest, AStopBeforeTheStartIsRemembered) {
    KThread thread("worker");
    thread.Stop();
    EXPECT_TRUE(thread.IsTerminated());
    std::atomic<bool> terminated{false};
    thread.Start([&] { terminated = thread.IsTerminated(); });
    WaitForEnd(thread);
    EXPECT_TRUE(terminated);
}

TEST_F(KThreadTest, StopMayBeRepeatedAndComeFromSeveralThreads) {
    KThread thread("worker");
    StartLoop(thread);
    std::thread other([&] { thread.Stop(); });
    thread.Stop();
    other.join();
    thread.Stop();
    EXPECT_TRUE(ended);
}

TEST_F(KThreadTest, StopOnItsOwnThreadDoesNotWait) {
    KThread thread("worker");
    thread.Start([&] {
        thread.Stop();
        ended = thread.IsTerminated();
    });
    WaitForEnd(thread);
    EXPECT_TRUE(ended);
}

TEST_F(KThreadTest, PlainStopIsTheVirtualStopThatWaits) {
    struct Counting : KThread {
        Counting() : KThread("counting") {}
        using KThread::Stop;
        void Stop(bool wait) override { (wait ? waiting : requesting) += 1; }
        int waiting = 0;
        int requesting = 0;
    } thread;
    KThread& base = thread;
    base.Stop();
    base.Stop(false);
    EXPECT_EQ(thread.waiting, 1);
    EXPECT_EQ(thread.requesting, 1);
}

TEST_F(KThreadTest, TheDestructorRequestsAndWaits) {
    {
        KThread thread("worker");
        StartLoop(thread);
    }
    EXPECT_TRUE(ended);
}

TEST_F(KThreadTest, TheDestructorOnItsOwnThreadDoesNotWait) {
    auto thread = std::make_unique<KThread>("worker");
    std::promise<void> handedOver;
    std::promise<void> done;
    KThread* plain = thread.get();
    plain->Start([&] {
        handedOver.get_future().wait();
        thread.reset();
        done.set_value();
    });
    handedOver.set_value();
    done.get_future().wait();
    EXPECT_EQ(thread, nullptr);
}

TEST_F(KThreadTest, CanBeStartedAgainAfterItsEnd) {
    KThread thread("worker");
    std::atomic<int> runs{0};
    thread.Start([&] { ++runs; });
    WaitForEnd(thread);
    thread.Start([&] { ++runs; });
    WaitForEnd(thread);
    EXPECT_EQ(runs, 2);
}

TEST_F(KThreadTest, CannotBeStartedWhileItIsActive) {
    KThread thread("worker");
    StartLoop(thread);
    EXPECT_EQ(CodeOf([&] { thread.Start([] {}); }), 36U);
    EXPECT_TRUE(thread.IsThreadActive());
    EXPECT_FALSE(ended);
}

// What ended it

TEST_F(KThreadTest, RethrowsTheErrorEachTimeItIsAsked) {
    KThread thread("worker");
    thread.Start([] {
        KError error(48, 66, 3, 75, "ins/KSample", "Run", nullptr);
        error.SetInfo(KSUP::KVariant("info"));
        throw error;
    });
    WaitForEnd(thread);
    for (int question = 0; question < 3; ++question) {
        const KError error = ErrorOf([&] { thread.CheckRunError(); });
        EXPECT_EQ(error.GetCode(), 66U);
        EXPECT_EQ(error.GetLine(), 75U);
        EXPECT_EQ(error.GetInfo().GetString(), "info");
    }
}

TEST_F(KThreadTest, KeepsAnyExceptionWhole) {
    class Special : public std::runtime_error {
      public:
        Special() : std::runtime_error("special") {}
        int number = 42;
    };
    KThread thread("worker");
    thread.Start([] { throw Special(); });
    thread.Stop();
    try {
        thread.CheckRunError();
        FAIL() << "nothing was thrown";
    } catch (const Special& error) {
        EXPECT_EQ(error.number, 42);
        EXPECT_STREQ(error.what(), "special");
    }
    thread.Start([] { throw 7; });
    thread.Stop();
    EXPECT_THROW(thread.CheckRunError(), int);
}

TEST_F(KThreadTest, HasNoErrorWhileItRunsOrAfterACleanEnd) {
    KThread thread("worker");
    StartLoop(thread);
    EXPECT_NO_THROW(thread.CheckRunError());
    thread.Stop();
    EXPECT_NO_THROW(thread.CheckRunError());
}

TEST_F(KThreadTest, TheErrorIsThereWhenItIsNoLongerActive) {
    for (int round = 0; round < 300; ++round) {
        KThread thread("worker");
        thread.Start([] { throw KError(48, 66, 0, 1, "f", "g", nullptr); });
        while (thread.IsThreadActive()) {
        }
        ASSERT_EQ(CodeOf([&] { thread.CheckRunError(); }), 66U) << round;
    }
}

TEST_F(KThreadTest, SeveralThreadsMayAskForTheErrorAtOnce) {
    KThread thread("worker");
    thread.Start([] { throw KError(48, 66, 0, 1, "f", "g", nullptr); });
    std::vector<std::thread> askers;
    std::atomic<int> answers{0};
    for (int asker = 0; asker < 4; ++asker) {
        askers.emplace_back([&] {
            WaitForEnd(thread);
            for (int question = 0; question < 50; ++question) {
                answers += CodeOf([&] { thread.CheckRunError(); }) == 66U ? 1 : 0;
            }
        });
    }
    for (std::thread& asker : askers) {
        asker.join();
    }
    EXPECT_EQ(answers, 200);
}

// The system's thread

TEST_F(KThreadTest, TheSystemIsGivenFifteenBytesOfTheName) {
    KThread thread("Ins++ installation thread");
    std::array<char, 64> name{};
    thread.Start([&] { ::pthread_getname_np(::pthread_self(), name.data(), name.size()); });
    thread.Stop();
    EXPECT_STREQ(name.data(), "Ins++ installat");
    EXPECT_EQ(thread.GetName(), "Ins++ installation thread");
}

TEST_F(KThreadTest, SignalsAreLeftToTheOtherThreads) {
    KThread thread("worker");
    sigset_t blocked;
    ::sigemptyset(&blocked);
    thread.Start([&] { ::pthread_sigmask(SIG_BLOCK, nullptr, &blocked); });
    thread.Stop();
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGCHLD, SIGALRM, SIGUSR1}) {
        EXPECT_EQ(::sigismember(&blocked, signal), 1) << signal;
    }
    sigset_t own;
    ::sigemptyset(&own);
    ::pthread_sigmask(SIG_BLOCK, nullptr, &own);
    EXPECT_EQ(::sigismember(&own, SIGTERM), 0) << "of the thread that started it";
}

TEST_F(KThreadTest, AThreadThatCannotBeMadeIsAnError) {
    const int status = InChild([] {
        const rlimit none{0, 0};
        if (::setrlimit(RLIMIT_NPROC, &none) != 0) {
            return 1;
        }
        if (IsRoot() && (::setresgid(nobodyId, nobodyId, nobodyId) != 0 ||
                         ::setresuid(nobodyId, nobodyId, nobodyId) != 0)) {
            return 2;
        }
        KThread thread("worker");
        if (CodeOf([&] { thread.Start([] {}); }) != EAGAIN) {
            return 3;
        }
        return thread.IsThreadActive() ? 4 : 0;
    });
    EXPECT_EQ(status, 0);
}

} // namespace
} // namespace KTEST
