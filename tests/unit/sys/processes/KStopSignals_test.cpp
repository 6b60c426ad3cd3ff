// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <csignal>
#include <iterator>
#include <optional>
#include <string_view>
#include <thread>

#include <fcntl.h>
#include <pthread.h>
#include <sys/processes/KStopSignals.h>
#include <unistd.h>

namespace {

/// Signals, and a pipe to read from. The program's own handlers are back after each test.
class KStopSignalsTest : public ::testing::Test {
  protected:
    KStopSignalsTest() {
        for (std::size_t at = 0; at < std::size(taken); ++at) {
            ::sigaction(taken[at], nullptr, &former[at]);
        }
        EXPECT_EQ(::pipe(ends), 0);
    }
    ~KStopSignalsTest() override {
        for (std::size_t at = 0; at < std::size(taken); ++at) {
            ::sigaction(taken[at], &former[at], nullptr);
        }
        CloseInput();
        ::close(ends[0]);
    }
    void Write(std::string_view text) const {
        ASSERT_EQ(::write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }
    void CloseInput() {
        if (ends[1] >= 0) {
            ::close(ends[1]);
            ends[1] = -1;
        }
    }

    static constexpr int taken[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};
    struct sigaction former[std::size(taken)]{};
    int ends[2] = {-1, -1};
};

TEST_F(KStopSignalsTest, ALineIsReadWithoutItsEndAndNoFurther) {
    KSYS::KStopSignals signals;
    Write("yes\n\nn");
    EXPECT_EQ(signals.ReadLine(ends[0]), "yes");
    EXPECT_EQ(signals.ReadLine(ends[0]), "");
    CloseInput();
    EXPECT_EQ(signals.ReadLine(ends[0]), std::nullopt);
    const int directory = ::open("/", O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(signals.ReadLine(directory), std::nullopt); // cannot be read, but waits for nothing
    ::close(directory);
    EXPECT_EQ(signals.GetFirst(), 0);
}

TEST_F(KStopSignalsTest, ASignalThatCameBeforeALineCounts) {
    KSYS::KStopSignals signals;
    Write("y\n");
    ::raise(SIGTERM);
    EXPECT_EQ(signals.ReadLine(ends[0]), std::nullopt);
    EXPECT_EQ(signals.GetFirst(), SIGTERM);
    EXPECT_EQ(signals.ReadLine(ends[0]), std::nullopt); // also when it was taken note of
}

TEST_F(KStopSignalsTest, ASignalEndsTheWaitForALine) {
    KSYS::KStopSignals signals;
    Write("y");
    std::thread sender([reader = ::pthread_self()] {
        ::usleep(100000);
        ::pthread_kill(reader, SIGINT);
    });
    EXPECT_EQ(signals.ReadLine(ends[0]), std::nullopt);
    sender.join();
    EXPECT_EQ(signals.GetFirst(), SIGINT);
    sigset_t blocked{};
    ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    EXPECT_EQ(::sigismember(&blocked, SIGINT), 0);
}

} // namespace
