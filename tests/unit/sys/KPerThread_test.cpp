// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <atomic>
#include <new>
#include <thread>

#include <sys/KPerThread.h>

namespace {

std::atomic<int> living = 0;

struct Counted {
    Counted() { ++living; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
    ~Counted() { --living; }
    int value = 0;
};

KSYS::KPerThread<Counted>& TheCounted() {
    static KSYS::KPerThread<Counted> counted;
    return counted;
}

TEST(KPerThreadTest, AThreadHasItsOwn) {
    TheCounted().Get().value = 1;
    int inThread = -1;
    std::thread([&] { inThread = TheCounted().Get().value; }).join();
    EXPECT_EQ(inThread, 0);
    EXPECT_EQ(TheCounted().Get().value, 1);
}

TEST(KPerThreadTest, AThreadsGoesWithTheThread) {
    TheCounted().Get();
    const int before = living;
    int meanwhile = 0;
    std::thread([&] {
        TheCounted().Get();
        TheCounted().Get();
        meanwhile = living;
    }).join();
    EXPECT_EQ(meanwhile, before + 1);
    EXPECT_EQ(living, before);
}

struct Refused {
    Refused() { throw std::bad_alloc(); }
};

TEST(KPerThreadTest, TellsThatThereIsNoMemory) {
    static KSYS::KPerThread<Refused> refused;
    EXPECT_THROW(refused.Get(), std::bad_alloc);
    EXPECT_THROW(refused.Get(), std::bad_alloc);
}

} // namespace
