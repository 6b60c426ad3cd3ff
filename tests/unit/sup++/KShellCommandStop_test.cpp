// SPDX-License-Identifier: MIT
//
// How commands are stopped.
#include "KShellCommandFixture.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <thread>

#include <unistd.h>

namespace KTEST {
namespace {

using KSUP::KShellCommand;
using std::chrono::milliseconds;
using testing::EndsWith;

constexpr milliseconds patience(2000); // between SIGTERM and SIGKILL

class KShellCommandStopTest : public KShellCommandFixture {
  protected:
    static void ExpectEnded(const KShellCommand& command, pid_t process) {
        EXPECT_FALSE(command.IsThreadActive());
        EXPECT_TRUE(command.IsTerminated());
        EXPECT_FALSE(IsAlive(process));
    }
    KShellCommand command;
};

TEST_F(KShellCommandStopTest, ACommandThatNeverEndsIsAskedTo) {
    ExecuteUntilReady(
        command, "trap 'echo asked; exit' TERM; echo $$; while :; do sleep 0.1; done"
    );
    command.Stop();
    ExpectEnded(command, OutputNumber());
    EXPECT_THAT(Output(), EndsWith("asked\n"));
}

TEST_F(KShellCommandStopTest, OneThatEndsWhenItIsAskedIsNotWaitedForLonger) {
    milliseconds fastest = milliseconds::max();
    for (int tries = 5; tries > 0 && fastest >= patience; --tries) { // a busy machine delays some
        tree.Remove("output");
        KShellCommand asked;
        ExecuteUntilReady(asked, "echo $$; exec sleep 1000");
        fastest = std::min(fastest, TimeOf([&] { asked.Stop(); }));
        ExpectEnded(asked, OutputNumber());
    }
    EXPECT_LT(fastest, patience);
}

TEST_F(KShellCommandStopTest, AllThatItStartedEndsToo) {
    ExecuteUntilReady(command, "sleep 1000 & (sleep 1000; :) & echo $!; wait");
    command.Stop();
    ExpectEnded(command, OutputNumber());
    EXPECT_EQ(LeftBehind::End(), 0);
}

TEST_F(KShellCommandStopTest, ACommandThatIgnoresSigtermIsKilledAfterTwoSeconds) {
    ExecuteUntilReady(command, "trap '' TERM; echo $$; while :; do sleep 0.1; done");
    EXPECT_GE(TimeOf([&] { command.Stop(); }), patience);
    ExpectEnded(command, OutputNumber());
    EXPECT_EQ(LeftBehind::End(), 0);
}

TEST_F(KShellCommandStopTest, WhatIgnoresSigtermBehindTheShellIsKilledAfterTwoSeconds) {
    ExecuteUntilReady(command, std::string(deafChild) + " & wait");
    EXPECT_GE(TimeOf([&] { command.Stop(); }), patience);
    ExpectEnded(command, OutputNumber());
}

TEST_F(KShellCommandStopTest, WhatCleansUpBehindTheShellIsWaitedFor) {
    ExecuteUntilReady(
        command,
        "(trap 'sleep 0.2; echo clean; exit' TERM; sh -c 'echo $PPID'; while :; do sleep 0.1; "
        "done) &"
        "wait"
    );
    command.Stop();
    ExpectEnded(command, OutputNumber());
    EXPECT_THAT(Output(), EndsWith("clean\n"));
}

TEST_F(KShellCommandStopTest, ACommandThatIsHeldUpEnds) {
    ExecuteUntilReady(command, "echo $$; kill -STOP $$");
    WaitUntil([&] { return StateOf(OutputNumber()) == 'T'; });
    EXPECT_GE(TimeOf([&] { command.Stop(); }), patience);
    ExpectEnded(command, OutputNumber());
}

TEST_F(KShellCommandStopTest, WithoutWaitingItReturnsAtOnce) {
    ExecuteUntilReady(command, "trap '' TERM; echo $$; while :; do sleep 0.1; done");
    command.Stop(false);
    EXPECT_TRUE(command.IsThreadActive()) << "it takes two seconds";
    EXPECT_TRUE(command.IsTerminated());
    WaitForEnd(command);
    ExpectEnded(command, OutputNumber());
}

TEST_F(KShellCommandStopTest, MayComeThroughTheBaseClass) {
    ExecuteUntilReady(command, "echo $$; exec sleep 1000");
    static_cast<KSUP::KThread&>(command).Stop();
    ExpectEnded(command, OutputNumber());
}

TEST_F(KShellCommandStopTest, MayComeFromAnotherThreadWhileTheOwnerWaits) {
    ExecuteUntilReady(command, "echo $$; exec sleep 1000");
    std::thread other([&] { command.Stop(); });
    WaitForEnd(command);
    other.join();
    ExpectEnded(command, OutputNumber());
}

TEST_F(KShellCommandStopTest, MayComeFromSeveralThreadsAndAgain) {
    ExecuteUntilReady(command, "echo $$; exec sleep 1000");
    std::thread one([&] { command.Stop(); });
    std::thread other([&] { command.Stop(); });
    command.Stop();
    one.join();
    other.join();
    command.Stop();
    ExpectEnded(command, OutputNumber());
}

TEST_F(KShellCommandStopTest, BeforeExecuteNothingIsStarted) {
    command.Stop();
    EXPECT_NO_THROW(command.Execute("echo started"));
    EXPECT_FALSE(command.IsThreadActive());
    EXPECT_FALSE(tree.Exists("output"));
}

TEST_F(KShellCommandStopTest, BehindTheEndDoesNothing) {
    command.Execute("echo done");
    WaitForEnd(command);
    EXPECT_FALSE(command.IsTerminated());
    command.Stop();
    EXPECT_TRUE(command.IsTerminated());
    EXPECT_EQ(Output(), "done\n");
}

TEST_F(KShellCommandStopTest, BehindAFailureToStartDoesNothing) {
    SetOutput(tree.Path().c_str());
    EXPECT_NE(CodeOf([&] { command.Execute("true"); }), 0U);
    command.Stop();
    EXPECT_TRUE(command.IsTerminated());
}

/// Whichever comes first, the command does not go on.
TEST_F(KShellCommandStopTest, MayMeetExecute) {
    SetOutput(nullptr);
    for (int round = 0; round < 100; ++round) {
        KShellCommand raced;
        std::atomic<bool> go{false};
        std::thread other([&] {
            while (!go) {
            }
            std::this_thread::sleep_for(std::chrono::microseconds(10 * round));
            raced.Stop();
        });
        go = true;
        raced.Execute("exec sleep 1000");
        other.join();
        ASSERT_FALSE(raced.IsThreadActive()) << round;
    }
}

TEST_F(KShellCommandStopTest, TheDestructorStops) {
    auto owned = std::make_unique<KShellCommand>();
    ExecuteUntilReady(*owned, "sleep 1000 & echo $$; wait");
    owned.reset();
    EXPECT_FALSE(IsAlive(OutputNumber()));
    EXPECT_EQ(LeftBehind::End(), 0);
}

} // namespace
} // namespace KTEST
