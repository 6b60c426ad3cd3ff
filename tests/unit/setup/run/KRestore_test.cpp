// SPDX-License-Identifier: MIT
#include "../../../faults/failcall.h"
#include "../../../support/TemporaryTree.h"

#include <setup/KSetupFailure.h>
#include <setup/run/KRestore.h>
#include <setup/state/KBackup.h>
#include <setup/state/KRunState.h>

#include <gtest/gtest.h>

#include <cerrno>

namespace {

using KSETUP::KBackup;
using KSETUP::KRunReport;
using KSETUP::KRunState;

class ForgetUndoneTest : public ::testing::Test {
  protected:
    ForgetUndoneTest() { tree.Write("product/file", "bytes"); }
    void GivenUndoneRun() {
        tree.Remove("base");
        KSETUP::KBackupWish wish;
        wish.run = "1";
        wish.paths = {tree.Path("product/file")};
        backup.Save(wish);
        backup.NoteLeft({});
        tree.Write(State(), "of the run", 0600);
    }
    static std::string State() { return std::string("base/undone/") + KRunState::fileName; }
    /// The nth call fails.
    bool Forget(const char* call, unsigned nth) {
        GivenUndoneRun();
        const auto kept = backup.Open("1");
        failcall_arm(call, nth, EIO, 0);
        bool isDone = true;
        try {
            KSETUP::ForgetUndone(*kept, backup, report);
        } catch (const KSETUP::KSetupFailure&) {
            isDone = false;
        }
        failcall_disarm();
        return isDone;
    }

    KTEST::TemporaryTree tree;
    KBackup backup{"undone", tree.Path("base")};
    KRunReport report;
};

TEST_F(ForgetUndoneTest, NothingIsRememberedOfIt) {
    EXPECT_TRUE(Forget("none", 1));
    EXPECT_FALSE(tree.Exists("base/undone"));
}

/// Whichever step fails: a backup without a state is that of a run that was done.
TEST_F(ForgetUndoneTest, NoBackupStaysWithoutAState) {
    for (const char* call : {"fsync", "unlinkat"}) {
        for (unsigned nth = 1; nth <= 3; ++nth) {
            const bool isDone = Forget(call, nth);
            EXPECT_TRUE(isDone || tree.Exists(State()) || !backup.Open("1")) << call << " " << nth;
        }
    }
}

} // namespace
