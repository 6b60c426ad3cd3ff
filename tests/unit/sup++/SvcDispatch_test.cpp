// SPDX-License-Identifier: MIT
#include "Common.h"

#include <sup++/KThread.h>
#include <sup++/SvcDispatch.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <thread>

namespace KTEST {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

std::chrono::nanoseconds ProcessorTime() {
    std::timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

/// The best of many rounds: a busy machine delays some, a wait of 10 ms delays all.
template <class Round>
Clock::duration Fastest(int rounds, Round&& round) {
    Clock::duration fastest = 1h;
    for (int count = 0; count < rounds; ++count) {
        const Clock::time_point start = Clock::now();
        round();
        fastest = std::min(fastest, Clock::now() - start);
    }
    return fastest;
}

TEST(SvcDispatchTest, ReportsSuccess) {
    EXPECT_EQ(SvcPollingDispatch(), 0U);
}

TEST(SvcDispatchTest, WaitsAboutTenMillisecondsWithoutBurningAProcessor) {
    SvcPollingDispatch(); // what ended before this test is past
    const Clock::time_point start = Clock::now();
    const auto processorStart = ProcessorTime();
    for (int pass = 0; pass < 20; ++pass) {
        SvcPollingDispatch();
    }
    EXPECT_GE(Clock::now() - start, 150ms);
    EXPECT_LT(ProcessorTime() - processorStart, 50ms);
    EXPECT_LE(Fastest(30, [] { SvcPollingDispatch(); }), 15ms);
}

TEST(SvcDispatchTest, ReturnsAtOnceWhenAThreadEnds) {
    const auto fastest = Fastest(60, [] {
        KSUP::KThread thread("worker");
        thread.Start([] {});
        while (thread.IsThreadActive()) {
            SvcPollingDispatch();
        }
    });
    EXPECT_LT(fastest, 5ms);
}

TEST(SvcDispatchTest, ReturnsWhileItWaitsWhenAThreadEnds) {
    const auto fastest = Fastest(40, [] {
        KSUP::KThread thread("worker");
        thread.Start([] { std::this_thread::sleep_for(2ms); });
        while (thread.IsThreadActive()) {
            SvcPollingDispatch();
        }
    });
    EXPECT_GE(fastest, 2ms);
    EXPECT_LT(fastest, 8ms);
}

TEST(SvcDispatchTest, ReturnsWhileItWaitsWhenAnEndIsRequested) {
    KSUP::KThread asked("asked");
    Clock::duration fastest = 1h;
    for (int round = 0; round < 40; ++round) {
        SvcPollingDispatch(); // what happened before is past
        const Clock::time_point start = Clock::now();
        std::thread other([&] { asked.Stop(false); });
        SvcPollingDispatch();
        fastest = std::min(fastest, Clock::now() - start);
        other.join();
    }
    EXPECT_LT(fastest, 5ms);
}

TEST(SvcDispatchTest, RemembersAnEventSinceTheLastCall) {
    KSUP::KThread asked("asked");
    SvcPollingDispatch();
    const auto fastest = Fastest(10, [&] {
        asked.Stop(false);
        SvcPollingDispatch();
    });
    EXPECT_LT(fastest, 5ms);
}

TEST(SvcDispatchTest, AnEventIsForEveryThreadThatWaits) {
    const HangGuard guard;
    KSUP::KThread asked("asked");
    std::atomic<bool> ended{false};
    std::thread other([&] {
        while (!ended) {
            SvcPollingDispatch();
        }
    });
    const auto fastest = Fastest(30, [&] {
        asked.Stop(false);
        SvcPollingDispatch();
    });
    ended = true;
    other.join();
    EXPECT_LT(fastest, 5ms);
}

} // namespace
} // namespace KTEST
