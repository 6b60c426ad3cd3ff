// SPDX-License-Identifier: MIT
#include "Common.h"

#include <sup++/SvcLock.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fstream>
#include <string>
#include <thread>

#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace KTEST {
namespace {

using namespace std::chrono_literals;

/// Returns when the system has put the thread to sleep for a while, with nothing else to wait for
/// than the lock, or it no longer has to wait.
void AwaitSleep(const std::atomic<long>& thread, const std::atomic<bool>& hasCome) {
    for (int asleep = 0; asleep < 3 && !hasCome; std::this_thread::sleep_for(2ms)) {
        std::ifstream file("/proc/self/task/" + std::to_string(thread.load()) + "/stat");
        std::string text;
        std::getline(file, text);
        const std::size_t state = text.rfind(") ");
        asleep = state != std::string::npos && text[state + 2] == 'S' ? asleep + 1 : 0;
    }
}

class SvcLockTest : public testing::Test {
  protected:
    SvcLockTest() { EXPECT_EQ(SvcAllocateResourceLockEx("test lock", &lock), 0U); }
    ~SvcLockTest() override { EXPECT_EQ(SvcReleaseResourceLockEx(lock), 0U); }

    void Lock(int times = 1) {
        for (int time = 0; time < times; ++time) {
            EXPECT_EQ(SvcLockResourceEx(lock), 0U);
        }
    }
    void Unlock(int times = 1) {
        for (int time = 0; time < times; ++time) {
            EXPECT_EQ(SvcUnlockResourceEx(lock), 0U);
        }
    }
    /// Whether another thread gets the lock without waiting for this one.
    bool IsFree() {
        std::atomic<bool> taken{false};
        std::atomic<long> id{0};
        std::thread other([&] {
            id = ::syscall(SYS_gettid);
            SvcLockResourceEx(lock);
            taken = true;
            SvcUnlockResourceEx(lock);
        });
        AwaitSleep(id, taken);
        const bool free = taken;
        unsigned depth = 0;
        SvcReWindResourceLockEx(lock, 0, &depth);
        other.join();
        SvcFastForwardResourceLockEx(lock, depth, nullptr);
        return free;
    }

    const HangGuard guard;
    SvcResourceLock* lock = nullptr;
};

TEST_F(SvcLockTest, IsMade) {
    EXPECT_NE(lock, nullptr);
    EXPECT_EQ(SvcAllocateResourceLockEx("x", nullptr), 36U);
}

TEST_F(SvcLockTest, KeepsOthersOutUntilItIsGivenBack) {
    EXPECT_TRUE(IsFree());
    Lock();
    EXPECT_FALSE(IsFree());
    Unlock();
    EXPECT_TRUE(IsFree());
}

TEST_F(SvcLockTest, IsTakenAgainByItsHolder) {
    Lock(3);
    Unlock(2);
    EXPECT_FALSE(IsFree());
    Unlock();
    EXPECT_TRUE(IsFree());
}

TEST_F(SvcLockTest, IsGivenBackByItsHolderOnly) {
    EXPECT_EQ(SvcUnlockResourceEx(lock), unsigned{EPERM});
    Lock();
    unsigned status = 0;
    std::thread([&] { status = SvcUnlockResourceEx(lock); }).join();
    EXPECT_EQ(status, unsigned{EPERM});
    Unlock();
    EXPECT_EQ(SvcUnlockResourceEx(lock), unsigned{EPERM});
}

TEST_F(SvcLockTest, NullLocksAreRefused) {
    EXPECT_EQ(SvcLockResourceEx(nullptr), 36U);
    EXPECT_EQ(SvcUnlockResourceEx(nullptr), 36U);
    EXPECT_EQ(SvcReWindResourceLockEx(nullptr, 0, nullptr), 36U);
    EXPECT_EQ(SvcFastForwardResourceLockEx(nullptr, 0, nullptr), 36U);
    EXPECT_EQ(SvcReleaseResourceLockEx(nullptr), 36U);
}

TEST_F(SvcLockTest, IsNotFreedWhileItIsHeld) {
    Lock();
    EXPECT_EQ(SvcReleaseResourceLockEx(lock), unsigned{EBUSY});
    Unlock();
}

// Rewind and fast-forward

using DepthCall = unsigned (*)(SvcResourceLock*, unsigned, unsigned*);

class SvcLockDepthTest : public SvcLockTest,
                         public testing::WithParamInterface<std::pair<DepthCall, DepthCall>> {
  protected:
    unsigned Down(unsigned count, unsigned* previous) {
        return GetParam().first(lock, count, previous);
    }
    unsigned Up(unsigned count, unsigned* previous) {
        return GetParam().second(lock, count, previous);
    }
};

TEST_P(SvcLockDepthTest, ReleasesCompletelyAndReturnsToTheCount) {
    Lock(3);
    unsigned previous = 99;
    EXPECT_EQ(Down(0, &previous), 0U);
    EXPECT_EQ(previous, 3U);
    EXPECT_TRUE(IsFree());
    EXPECT_EQ(Up(previous, &previous), 0U);
    EXPECT_EQ(previous, 0U);
    EXPECT_FALSE(IsFree());
    Unlock(3);
    EXPECT_EQ(SvcUnlockResourceEx(lock), unsigned{EPERM});
}

TEST_P(SvcLockDepthTest, GoesToAnyCountWhileItIsHeld) {
    Lock(1);
    unsigned previous = 0;
    EXPECT_EQ(Up(5, &previous), 0U);
    EXPECT_EQ(previous, 1U);
    EXPECT_EQ(Down(2, &previous), 0U);
    EXPECT_EQ(previous, 5U);
    EXPECT_FALSE(IsFree());
    EXPECT_EQ(Up(2, &previous), 0U);
    EXPECT_EQ(previous, 2U);
    Unlock(2);
    EXPECT_TRUE(IsFree());
}

TEST_P(SvcLockDepthTest, TakesTheLockWhereItWasNotHeld) {
    unsigned previous = 99;
    EXPECT_EQ(Up(2, &previous), 0U);
    EXPECT_EQ(previous, 0U);
    EXPECT_FALSE(IsFree());
    Unlock(2);
}

TEST_P(SvcLockDepthTest, NeedsNoPlaceForTheFormerCount) {
    Lock(2);
    EXPECT_EQ(Down(0, nullptr), 0U);
    EXPECT_EQ(Up(1, nullptr), 0U);
    Unlock(1);
}

TEST_P(SvcLockDepthTest, WaitsWhileAnotherHoldsIt) {
    Lock();
    std::atomic<bool> taken{false};
    std::atomic<long> id{0};
    std::thread other([&] {
        id = ::syscall(SYS_gettid);
        EXPECT_EQ(Up(2, nullptr), 0U);
        taken = true;
        EXPECT_EQ(Down(0, nullptr), 0U);
    });
    AwaitSleep(id, taken);
    EXPECT_FALSE(taken);
    Unlock();
    other.join();
    EXPECT_TRUE(taken);
}

// Both names are the same operation, so each stands in for the other.
INSTANTIATE_TEST_SUITE_P(
    Calls,
    SvcLockDepthTest,
    testing::Values(
        std::pair<DepthCall, DepthCall>{&SvcReWindResourceLockEx, &SvcFastForwardResourceLockEx},
        std::pair<DepthCall, DepthCall>{&SvcFastForwardResourceLockEx, &SvcReWindResourceLockEx}
    ),
    [](const auto& call) { return call.index == 0 ? "RewindFirst" : "FastForwardFirst"; }
);

// Waiting

TEST_F(SvcLockTest, HandsOverInTheOrderOfWaiting) {
    constexpr int waiters = 5;
    std::vector<int> order;
    std::vector<std::thread> threads;
    Lock();
    for (int waiter = 0; waiter < waiters; ++waiter) {
        std::atomic<long> id{0};
        threads.emplace_back([this, &id, &order, waiter] {
            id = ::syscall(SYS_gettid);
            Lock();
            order.push_back(waiter); // guarded by the lock itself
            Unlock();
        });
        AwaitSleep(id, false);
    }
    Unlock();
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(order, testing::ElementsAre(0, 1, 2, 3, 4));
}

TEST_F(SvcLockTest, AGetterWaitsForOneStepOfAWorkerThatNeverPauses) {
    std::atomic<bool> ended{false};
    std::atomic<int> steps{0};
    std::thread worker([&] {
        while (!ended) {
            Lock();
            std::this_thread::sleep_for(1ms);
            ++steps;
            Unlock();
        }
    });
    int prompt = 0;
    for (int getter = 0; getter < 40; ++getter) {
        std::this_thread::sleep_for(500us);
        const int before = steps;
        Lock();
        prompt += steps - before <= 2 ? 1 : 0;
        Unlock();
    }
    ended = true;
    worker.join();
    // Without the order of waiting the worker would take the lock again and again, and none came
    // soon. A busy machine delays some before they wait.
    EXPECT_GE(prompt, 10) << "of 40";
}

TEST_F(SvcLockTest, AWorkerThatReleasesForItsWorkLetsAGetterIn) {
    std::atomic<bool> ended{false};
    std::thread worker([&] {
        Lock(2);
        while (!ended) {
            SvcReWindResourceLockEx(lock, 0, nullptr);
            SvcFastForwardResourceLockEx(lock, 2, nullptr);
        }
        Unlock(2);
    });
    for (int getter = 0; getter < 1000; ++getter) {
        Lock();
        Unlock();
    }
    ended = true;
    worker.join();
}

TEST_F(SvcLockTest, KeepsACountRightBetweenThreads) {
    int count = 0; // guarded by the lock
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&, thread] {
            for (int step = 0; step < 5000; ++step) {
                Lock(1 + thread % 2);
                ++count;
                Unlock(1 + thread % 2);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(count, 20000);
}

TEST_F(SvcLockTest, CostsNoSystemCallWhileItIsFree) {
    if (isSanitized) {
        GTEST_SKIP() << "NOT TESTED here: a sanitizer makes system calls of its own";
    }
    const int status = InChild([&] {
        Lock();
        Unlock();
        // From here on the system ends the process at any call but read, write and exit.
        if (::prctl(PR_SET_SECCOMP, SECCOMP_MODE_STRICT) != 0) {
            return 1;
        }
        for (int step = 0; step < 1000; ++step) {
            SvcLockResourceEx(lock);
            SvcLockResourceEx(lock);
            unsigned depth = 0;
            SvcReWindResourceLockEx(lock, 0, &depth);
            SvcFastForwardResourceLockEx(lock, depth, nullptr);
            SvcUnlockResourceEx(lock);
            SvcUnlockResourceEx(lock);
        }
        ::syscall(SYS_exit, 0);
        return 2;
    });
    EXPECT_EQ(status, 0) << (status == 128 + SIGKILL ? "a system call was made" : "");
}

} // namespace
} // namespace KTEST
