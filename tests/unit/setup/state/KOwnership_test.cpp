// SPDX-License-Identifier: MIT
#include "../../../faults/failcall.h"
#include "../../../support/TemporaryTree.h"

#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/state/KOwnership.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

namespace {

using KSETUP::KOwnership;

class KOwnershipTest : public ::testing::Test {
  protected:
    KOwnershipTest() {
        tree.Directory("base/dps", 0700);
        tree.SetMode("base", 0700);
    }
    KOwnership Read() const { return KOwnership("dps", true, tree.Path("base")); }

    KTEST::TemporaryTree tree;
};

TEST_F(KOwnershipTest, AManifestThatCannotBeUnderstoodIsDamage) {
    tree.Write("base/dps/manifest", "no manifest", 0600);
    EXPECT_EQ(Read().GetKnown(), KOwnership::Known::Nothing);
    EXPECT_NE(Read().GetDamage(), "");
}

TEST_F(KOwnershipTest, AManifestThatCannotBeReadNowIsNotTakenForNone) {
    tree.Write("base/dps/manifest", "no manifest", 0600);
    int exitCode = 0;
    failcall_arm("read", 1, EIO, 0);
    try {
        Read();
    } catch (const KSETUP::KSetupFailure& failure) {
        exitCode = failure.GetExitCode();
        EXPECT_THAT(failure.what(), ::testing::HasSubstr("cannot read"));
    }
    failcall_disarm();
    EXPECT_EQ(exitCode, KSETUP::ExitCode::cannotWrite);
}

TEST_F(KOwnershipTest, AnotherProductsManifestThatCannotBeReadNowIsNotTakenForNone) {
    tree.Write("base/other/manifest", "no manifest", 0600);
    EXPECT_EQ(Read().FindOther(tree.Path("p/file")), "");
    const KOwnership own = Read();
    int exitCode = 0;
    failcall_arm("read", 1, EIO, 0);
    try {
        static_cast<void>(own.FindOther(tree.Path("p/file")));
    } catch (const KSETUP::KSetupFailure& failure) {
        exitCode = failure.GetExitCode();
    }
    failcall_disarm();
    EXPECT_EQ(exitCode, KSETUP::ExitCode::cannotWrite);
}

TEST_F(KOwnershipTest, ProductsThatCannotBeListedNowAreNotTakenForNone) {
    tree.Write("base/other/manifest", "no manifest", 0600);
    const KOwnership own = Read();
    failcall_arm("readdir", 1, EIO, 0);
    EXPECT_THROW(static_cast<void>(own.FindOther(tree.Path("p/file"))), KSETUP::KSetupFailure);
    failcall_disarm();
}

} // namespace
