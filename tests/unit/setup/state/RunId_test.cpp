// SPDX-License-Identifier: MIT
#include <setup/state/RunId.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

namespace {

using ::testing::MatchesRegex;

TEST(RunIdTest, IsTheTimeAndTheProcess) {
    const std::string run = KSETUP::MakeRunId();
    EXPECT_THAT(run, MatchesRegex("[0-9]{8}T[0-9]{6}\\.[0-9]{9}Z-[0-9]+"));
    EXPECT_TRUE(run.ends_with("-" + std::to_string(::getpid())));
    EXPECT_NE(run, KSETUP::MakeRunId());
}

} // namespace
