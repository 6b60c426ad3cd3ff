// SPDX-License-Identifier: MIT
#include <setup/output/KProgressRate.h>

#include <gtest/gtest.h>

#include <chrono>
#include <optional>

namespace {

using KSETUP::KProgressRate;
using std::chrono::milliseconds;
using std::chrono::seconds;

class KProgressRateTest : public ::testing::Test {
  protected:
    void After(seconds time, unsigned bytes) { rate.Note(begin + time, bytes); }

    KProgressRate rate;
    const KProgressRate::Clock::time_point begin{seconds(1000)};
};

TEST_F(KProgressRateTest, IsNotKnownBeforeTheFirstSecondIsOver) {
    After(seconds(0), 0);
    rate.Note(begin + milliseconds(999), 500);
    EXPECT_EQ(rate.Get(), std::nullopt);
    After(seconds(1), 1000);
    EXPECT_EQ(rate.Get(), 1000.0);
}

TEST_F(KProgressRateTest, TellsTheTimeLeftOnceThreeSecondsWereAlike) {
    After(seconds(0), 0);
    After(seconds(1), 1000);
    After(seconds(2), 2000);
    EXPECT_EQ(rate.GetTimeFor(5000), std::nullopt);
    After(seconds(3), 3000);
    EXPECT_EQ(rate.GetTimeFor(5000), seconds(5));
    EXPECT_EQ(rate.GetTimeFor(5001), seconds(6));
}

TEST_F(KProgressRateTest, TellsNoTimeWhileSecondsDiffer) {
    After(seconds(0), 0);
    After(seconds(1), 1000);
    After(seconds(2), 1100);
    After(seconds(3), 3000);
    EXPECT_EQ(rate.Get(), 1000.0);
    EXPECT_EQ(rate.GetTimeFor(5000), std::nullopt);
}

TEST_F(KProgressRateTest, ForgetsWhatIsLongAgo) {
    for (unsigned second = 0; second <= 20; ++second) {
        After(seconds(second), second < 10 ? second * 10 : 100 + (second - 10) * 1000);
    }
    EXPECT_EQ(rate.Get(), 1000.0);
}

TEST_F(KProgressRateTest, WhatStandsStillHasNoRate) {
    for (unsigned second = 0; second <= 5; ++second) {
        After(seconds(second), 4096);
    }
    EXPECT_EQ(rate.Get(), std::nullopt);
    EXPECT_EQ(rate.GetTimeFor(1), std::nullopt);
}

} // namespace
