// SPDX-License-Identifier: MIT
#include "../../../faults/failcall.h"
#include "../../../support/TemporaryTree.h"

#include <setup/rules/KOwnedFileRule.h>
#include <sup++/KError.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

namespace {

using KSETUP::KChangePolicy;

TEST(MakeWayForLinkTest, OneThatCannotBeLookedAtIsNotTakenForNone) {
    KTEST::TemporaryTree tree;
    const KSETUP::KOwnership ownership("dps", false, tree.Path("base"));
    const KChangePolicy policy(ownership, tree.Path("p"), KChangePolicy::Options());
    const std::string link = tree.Path("none");
    EXPECT_NO_THROW(KSETUP::MakeWayForLink(policy, link, "/target"));
    unsigned code = 0;
    failcall_arm("fstatat", 1, EIO, 0);
    try {
        KSETUP::MakeWayForLink(policy, link, "/target");
    } catch (const KSUP::KError& error) {
        code = error.GetCode();
    }
    failcall_disarm();
    EXPECT_EQ(code, unsigned{EIO});
}

} // namespace
