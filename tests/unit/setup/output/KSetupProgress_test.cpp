// SPDX-License-Identifier: MIT
#include <setup/output/KSetupProgress.h>

#include <gtest/gtest.h>

namespace {

using KSETUP::KSetupProgress;

TEST(KSetupProgressTest, ARuleIsALineWithItsNumber) {
    ::testing::internal::CaptureStdout();
    KSetupProgress progress;
    progress.WriteLine(1, 3, "first");
    progress.WriteLine(3, 3, "third\n");
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "[1/3] first\n[3/3] third?\n");
}

TEST(KSetupProgressTest, NothingIsDrawnWhereThereIsNoTerminal) {
    ::testing::internal::CaptureStdout();
    KSetupProgress progress;
    progress.Draw(1, 3, "status", true);
    progress.Finish();
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

} // namespace
