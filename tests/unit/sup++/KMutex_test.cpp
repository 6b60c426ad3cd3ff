// SPDX-License-Identifier: MIT
#include "../../support/TraceRecorder.h"
#include "Common.h"

#include <sup++/KMutex.h>

#include <atomic>
#include <cerrno>
#include <stdexcept>
#include <thread>
#include <type_traits>

#include <dlfcn.h>

namespace {

std::atomic<unsigned> failWith{0};
std::atomic<const char*> nameGiven{nullptr};

} // namespace

// The library calls this one, because a program's definition stands before a library's: so the
// failure that a test asks for happens where it would.
unsigned SvcAllocateResourceLockEx(const char* name, SvcResourceLock** lock) noexcept {
    nameGiven = name;
    if (failWith != 0) {
        return failWith;
    }
    using Call = unsigned (*)(const char*, SvcResourceLock**);
    static const auto next = reinterpret_cast<Call>(
        ::dlsym(RTLD_NEXT, "_Z25SvcAllocateResourceLockExPKcPP15SvcResourceLock")
    );
    return next(name, lock);
}

namespace KTEST {
namespace {

using KSUP::KMutex;
using testing::ElementsAre;

class KMutexTest : public testing::Test {
  protected:
    /// This thread's hold count.
    unsigned Depth() const {
        unsigned depth = 0;
        SvcReWindResourceLockEx(mutex.GetResourceLock(), 0, &depth);
        SvcFastForwardResourceLockEx(mutex.GetResourceLock(), depth, nullptr);
        return depth;
    }

    const HangGuard guard;
    KMutex mutex;
};

TEST_F(KMutexTest, IsNotCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<KMutex>);
    EXPECT_FALSE(std::is_copy_constructible_v<KMutex::KLock>);
    EXPECT_FALSE(std::is_copy_constructible_v<KMutex::KRelease>);
}

TEST_F(KMutexTest, HasALockOfItsName) {
    EXPECT_NE(mutex.GetResourceLock(), nullptr);
    EXPECT_STREQ(nameGiven, "KMutex lock");
}

TEST_F(KMutexTest, ALockThatCannotBeMadeIsAnError) {
    TraceRecorder trace;
    failWith = ENOMEM;
    const KSUP::KError error = ErrorOf([] { KMutex another; });
    failWith = 0;
    EXPECT_EQ(error.GetLevel(), 400U);
    EXPECT_EQ(error.GetCode(), unsigned{ENOMEM});
    EXPECT_EQ(error.GetSubCode(), 0U);
    EXPECT_STREQ(error.GetFile(), "sup++/KMutex");
    EXPECT_STREQ(error.GetFunction(), "KMutex");
    EXPECT_THAT(trace.Texts(400), ElementsAre(error.GetSummary().c_str()));
}

TEST_F(KMutexTest, HoldsForAScope) {
    EXPECT_EQ(Depth(), 0U);
    {
        const KMutex::KLock hold(mutex);
        EXPECT_EQ(Depth(), 1U);
        {
            const KMutex::KLock again(mutex);
            EXPECT_EQ(Depth(), 2U);
        }
        EXPECT_EQ(Depth(), 1U);
    }
    EXPECT_EQ(Depth(), 0U);
}

TEST_F(KMutexTest, LetsGoWhenAnExceptionLeavesTheScope) {
    EXPECT_THROW(
        {
            const KMutex::KLock hold(mutex);
            throw std::runtime_error("x");
        },
        std::runtime_error
    );
    EXPECT_EQ(Depth(), 0U);
}

TEST_F(KMutexTest, ReleasesCompletelyForAScope) {
    const KMutex::KLock hold(mutex);
    const KMutex::KLock again(mutex);
    {
        const KMutex::KRelease release(mutex);
        EXPECT_EQ(Depth(), 0U);
        std::thread([&] { const KMutex::KLock other(mutex); }).join();
    }
    EXPECT_EQ(Depth(), 2U);
}

TEST_F(KMutexTest, ReturnsToItsDepthWhenAnExceptionLeavesTheScope) {
    const KMutex::KLock hold(mutex);
    const KMutex::KLock again(mutex);
    EXPECT_THROW(
        {
            const KMutex::KRelease release(mutex);
            throw 7;
        },
        int
    );
    EXPECT_EQ(Depth(), 2U);
}

TEST_F(KMutexTest, ReleasingWhatIsNotHeldChangesNothing) {
    { const KMutex::KRelease release(mutex); }
    EXPECT_EQ(Depth(), 0U);
}

TEST_F(KMutexTest, WaitsForTheLockAtTheEndOfARelease) {
    std::atomic<bool> otherHolds{false};
    std::atomic<bool> otherLetGo{false};
    std::thread other;
    {
        const KMutex::KLock hold(mutex);
        {
            const KMutex::KRelease release(mutex);
            other = std::thread([&] {
                const KMutex::KLock own(mutex);
                otherHolds = true;
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
                otherLetGo = true;
            });
            while (!otherHolds) {
                std::this_thread::yield();
            }
        }
        EXPECT_TRUE(otherLetGo);
    }
    other.join();
}

TEST_F(KMutexTest, GuardsWhatThreadsShare) {
    int count = 0; // guarded by the mutex
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&] {
            for (int step = 0; step < 2000; ++step) {
                const KMutex::KLock hold(mutex);
                ++count;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(count, 8000);
}

} // namespace
} // namespace KTEST
