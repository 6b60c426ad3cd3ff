// SPDX-License-Identifier: MIT
#include "../../../faults/failcall.h"
#include "../../../support/TemporaryTree.h"

#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/KSetupStop.h>
#include <setup/state/KRunLock.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>

namespace {

using KSETUP::KRunLock;
using KSETUP::KSetupFailure;
using ::testing::HasSubstr;

/// A process that holds the lock until it is let go.
class Holder {
  public:
    explicit Holder(const KSYS::LockPlaces& places) {
        std::array<int, 2> ready{};
        EXPECT_EQ(::pipe(ready.data()), 0);
        pid = ::fork();
        if (pid == 0) {
            const KRunLock lock("dps", 0, {}, places);
            static_cast<void>(::write(ready[1], "x", 1) == 1);
            for (;;) {
                ::pause();
            }
        }
        ::close(ready[1]);
        char byte = 0;
        EXPECT_EQ(::read(ready[0], &byte, 1), 1);
        ::close(ready[0]);
    }
    ~Holder() { Kill(); }
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;
    void Kill() {
        if (pid > 0) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, nullptr, 0);
            pid = 0;
        }
    }
    pid_t pid = 0;
};

class KRunLockTest : public ::testing::Test {
  protected:
    void SetUp() override { tree.Directory("lock", 0700); }

    KSYS::LockPlaces Places() const { return {::geteuid(), {tree.Path("lock")}}; }

    /// The exit code and the text with which the lock is refused.
    std::string Refusal(
        unsigned waitSeconds = 0,
        const std::function<bool()>& stop = {},
        const std::string& name = "dps"
    ) {
        try {
            const KRunLock lock(name, waitSeconds, stop, Places());
        } catch (const KSetupFailure& failure) {
            return std::to_string(failure.GetExitCode()) + " " + failure.what();
        } catch (const KSETUP::KSetupStop& stopped) {
            return std::string("stop ") + stopped.what();
        }
        return "";
    }

    KTEST::TemporaryTree tree;
};

TEST_F(KRunLockTest, ALockThatCannotBeAskedNowIsNotTakenForARun) {
    { const KRunLock former("dps", 0, {}, Places()); }
    std::string told;
    failcall_arm("flock", 1, ENOLCK, 0);
    try {
        told = KRunLock::FindHolder("dps", Places()) ? "a run" : "none";
    } catch (const KSetupFailure& failure) {
        told = failure.what();
    }
    failcall_disarm();
    EXPECT_THAT(told, HasSubstr("cannot lock " + tree.Path("lock/dps.lock") + ": No locks"));
}

TEST_F(KRunLockTest, TheFileTellsWhoHoldsIt) {
    const KRunLock lock("dps", 0, {}, Places());
    EXPECT_THAT(tree.Read("lock/dps.lock"), HasSubstr(std::to_string(::getpid()) + "\n"));
    EXPECT_EQ(tree.Mode("lock/dps.lock"), 0600u);
}

TEST_F(KRunLockTest, TheFileStaysAndMeansNothing) {
    EXPECT_EQ(Refusal(), "");
    EXPECT_EQ(tree.Read("lock/dps.lock"), "");
    EXPECT_EQ(Refusal(), "");
}

TEST_F(KRunLockTest, ATextThatAKilledRunLeftIsReplaced) {
    tree.Write("lock/dps.lock", "1\n" + std::string(9000, 'x') + "\n", 0600);
    const KRunLock lock("dps", 0, {}, Places());
    EXPECT_EQ(tree.Read("lock/dps.lock").find("xxx"), std::string::npos);
}

TEST_F(KRunLockTest, AnotherRunIsNamed) {
    const Holder holder(Places());
    EXPECT_THAT(
        Refusal(),
        HasSubstr("75 another run for dps goes on: process " + std::to_string(holder.pid) + " (")
    );
}

TEST_F(KRunLockTest, AnotherProductIsNotInTheWay) {
    const Holder holder(Places());
    EXPECT_EQ(Refusal(0, {}, "other"), "");
}

TEST_F(KRunLockTest, AHolderThatIsKilledLetsGo) {
    Holder holder(Places());
    holder.Kill();
    EXPECT_EQ(Refusal(), "");
}

TEST_F(KRunLockTest, WhoWaitsIsToldOnceForWhom) {
    Holder holder(Places());
    std::vector<std::string> told;
    int asked = 0;
    const auto killAtThirdTry = [&] {
        if (++asked == 3) {
            holder.Kill();
        }
        return false;
    };
    const std::string pid = std::to_string(holder.pid);
    const KRunLock lock("dps", 60, killAtThirdTry, Places(), [&](const KSETUP::KText& words) {
        told.push_back(words.English());
    });
    ASSERT_EQ(told.size(), 1U);
    EXPECT_THAT(told[0], HasSubstr("Waiting for another run for dps: process " + pid + " ("));
}

TEST_F(KRunLockTest, WhoDoesNotWaitIsNotToldThatItDoes) {
    const int file = ::open(tree.Path("lock/dps.lock").c_str(), O_CREAT | O_RDWR, 0600);
    ASSERT_EQ(::flock(file, LOCK_EX), 0); // as somebody would who does not say who it is
    bool told = false;
    EXPECT_THROW(
        KRunLock("dps", 0, {}, Places(), [&](const KSETUP::KText&) { told = true; }), KSetupFailure
    );
    EXPECT_FALSE(told);
    ::close(file);
}

TEST_F(KRunLockTest, WaitingEndsWhenTheHolderEnds) {
    Holder holder(Places());
    int asked = 0;
    const auto killAtThirdTry = [&] {
        if (++asked == 3) {
            holder.Kill();
        }
        return false;
    };
    EXPECT_EQ(Refusal(600, killAtThirdTry), "");
    EXPECT_EQ(asked, 3);
}

TEST_F(KRunLockTest, WaitingEndsWithItsTime) {
    const Holder holder(Places());
    EXPECT_THAT(Refusal(1), HasSubstr("75 another run"));
}

TEST_F(KRunLockTest, WaitingStopsOnRequest) {
    const Holder holder(Places());
    EXPECT_THAT(Refusal(600, [] { return true; }), HasSubstr("stop stopped on request"));
}

TEST_F(KRunLockTest, SomebodyWhoOnlyLooksRefusesNoRun) {
    tree.Write("lock/dps.lock", "", 0600);
    const int looking = ::open(tree.Path("lock/dps.lock").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(::flock(looking, LOCK_SH), 0);
    const auto letGo = [&] {
        ::flock(looking, LOCK_UN);
        return false;
    };
    EXPECT_EQ(Refusal(0, letGo), "");
    ::close(looking);
}

TEST_F(KRunLockTest, AFileThatWasTakenAwayWhileHeldIsNoLock) {
    Holder holder(Places());
    tree.Remove("lock/dps.lock");
    EXPECT_EQ(Refusal(), "");
    EXPECT_TRUE(tree.Exists("lock/dps.lock"));
}

TEST_F(KRunLockTest, ALinkIsRefusedAndWhatItLeadsToIsNotTouched) {
    tree.Write("precious", "bytes", 0600);
    tree.Link("lock/dps.lock", tree.Path("precious"));
    EXPECT_THAT(Refusal(), HasSubstr("73 cannot lock"));
    EXPECT_EQ(tree.Read("precious"), "bytes");
}

TEST_F(KRunLockTest, WhatFailsForAnotherReasonIsNotToBeDeleted) {
    tree.Link("lock/dps.lock", "elsewhere");
    EXPECT_THAT(Refusal(), HasSubstr("Delete it when no run of ins-setup goes on"));
    tree.Remove("lock/dps.lock");
    failcall_arm("openat", 1, EMFILE, 1);
    const std::string refusal = Refusal();
    failcall_disarm();
    EXPECT_THAT(refusal, HasSubstr("Too many open files. Fix the cause and run it again."));
}

TEST_F(KRunLockTest, AFileOfAnotherUserIsRefused) {
    tree.Write("lock/dps.lock", "", 0600);
    tree.SetOwner("lock/dps.lock", 65534, 65534);
    EXPECT_THAT(Refusal(), HasSubstr("is no plain file of root's alone"));
}

TEST_F(KRunLockTest, AQueueIsRefused) {
    tree.Fifo("lock/dps.lock", 0600);
    EXPECT_THAT(Refusal(), HasSubstr("73 "));
}

TEST_F(KRunLockTest, AMissingDirectoryIsMadeForItsUserAlone) {
    tree.Remove("lock");
    EXPECT_FALSE(KRunLock::FindHolder("dps", Places()).has_value());
    EXPECT_FALSE(tree.Exists("lock"));
    EXPECT_EQ(Refusal(), "");
    EXPECT_EQ(tree.Mode("lock"), 0700U);
}

TEST_F(KRunLockTest, WhereNoDirectoryCanBeMadeThatIsToldOf) {
    const KSYS::LockPlaces nowhere{::geteuid(), {tree.Path("missing/lock")}};
    EXPECT_THROW(KRunLock("dps", 0, {}, nowhere), KSetupFailure);
    EXPECT_FALSE(KRunLock::FindHolder("dps", nowhere).has_value());
}

/// Whoever may enter it could hold the lock for ever.
TEST_F(KRunLockTest, ADirectoryThatOthersCanEnterIsRefused) {
    tree.SetMode("lock", 0755);
    EXPECT_THAT(Refusal(), HasSubstr("lock is not a directory of this user's alone (mode 0700)"));
    EXPECT_THROW(KRunLock::FindHolder("dps", Places()), KSetupFailure);
    tree.SetMode("lock", 0700);
    EXPECT_EQ(Refusal(), "");
}

TEST_F(KRunLockTest, ANameWithASeparatorIsRefused) {
    EXPECT_THAT(Refusal(0, {}, "../x"), HasSubstr("65 "));
}

TEST_F(KRunLockTest, TheHolderIsFoundFromOutsideOnly) {
    EXPECT_FALSE(KRunLock::FindHolder("dps", Places()).has_value());
    {
        const KRunLock own("dps", 0, {}, Places());
        EXPECT_FALSE(KRunLock::FindHolder("dps", Places()).has_value());
    }
    const Holder holder(Places());
    const auto found = KRunLock::FindHolder("dps", Places());
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(found->pid, holder.pid);
    EXPECT_NE(found->command, "");
}

TEST_F(KRunLockTest, TwentyRunsAtOnceAreOneAfterTheOther) {
    // Each reads a number and writes the next one, which goes wrong when two do it at once.
    tree.Write("count", "0");
    std::vector<pid_t> children;
    for (int child = 0; child < 20; ++child) {
        children.push_back(::fork());
        if (children.back() == 0) {
            const KRunLock lock("dps", 600, {}, Places());
            const int count = std::stoi(tree.Read("count"));
            ::usleep(2000);
            tree.Write("count", std::to_string(count + 1));
            // Without the destructors of the parent's objects; the lock goes with the process.
            ::_exit(0);
        }
    }
    for (const pid_t child : children) {
        int status = -1;
        ::waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    EXPECT_EQ(tree.Read("count"), "20");
}

} // namespace
