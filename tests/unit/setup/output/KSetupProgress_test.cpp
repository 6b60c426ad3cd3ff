// SPDX-License-Identifier: MIT
#include <setup/output/KSetupProgress.h>

#include <gtest/gtest.h>

#include <chrono>

namespace {

using KSETUP::KProgressView;
using KSETUP::KSetupProgress;
using std::chrono::seconds;

class KSetupProgressTest : public ::testing::Test {
  protected:
    KSetupProgressTest() { ::testing::internal::CaptureStdout(); }

    static KProgressView RuleOf(unsigned number, const char* words) {
        KProgressView view;
        view.rule = number;
        view.rules = 3;
        view.percent = 40;
        view.words = words;
        view.status = std::string(words) + " (20%)";
        return view;
    }

    KSetupProgress progress;
    const KSetupProgress::Clock::time_point begin{seconds(1000)};
};

TEST_F(KSetupProgressTest, ARuleIsALineWithItsNumber) {
    progress.BeginRule(RuleOf(1, "first"), begin);
    progress.BeginRule(RuleOf(3, "third\n"), begin);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "[1/3] first\n[3/3] third?\n");
}

TEST_F(KSetupProgressTest, ARuleThatTakesLongIsALineEveryTenSeconds) {
    const KProgressView view = RuleOf(2, "Copying file a");
    progress.BeginRule(view, begin);
    for (int second = 0; second < 25; ++second) {
        progress.Show(view, false, begin + seconds(second));
    }
    progress.Show(view, true, begin + seconds(60)); // the end of the run is no news of the rule
    EXPECT_EQ(
        ::testing::internal::GetCapturedStdout(),
        "[2/3] Copying file a\n"
        "[2/3] Copying file a (20%), 40% of all\n"
        "[2/3] Copying file a (20%), 40% of all\n"
    );
}

TEST_F(KSetupProgressTest, NothingIsDrawnWhereThereIsNoTerminal) {
    progress.Show(RuleOf(1, "status"), true, begin);
    progress.End(RuleOf(1, "status"));
    progress.Finish();
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

} // namespace
