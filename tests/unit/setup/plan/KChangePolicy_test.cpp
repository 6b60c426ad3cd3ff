// SPDX-License-Identifier: MIT
#include "../../../faults/failcall.h"
#include "../../../support/TemporaryTree.h"

#include <setup/plan/KChangePolicy.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <map>
#include <string>

namespace {

using KSETUP::KChangePolicy;

/// A configuration of nobody's, and another one that a kit would put there.
class KChangePolicyTest : public ::testing::Test {
  protected:
    KChangePolicyTest() : ownership("dps", false, tree.Path("base")) {
        tree.Write("kit/a.conf", "offered");
        tree.Write("p/config/a.conf", "edited");
    }
    KChangePolicy::Copy Decide() const {
        const KChangePolicy policy(ownership, tree.Path("p"), KChangePolicy::Options());
        return policy.DecideCopy(
            tree.Path("kit/a.conf"), tree.Path("p/config/a.conf"), KChangePolicy::Treatment::ByPlace
        );
    }

    KTEST::TemporaryTree tree;
    KSETUP::KOwnership ownership;
};

TEST_F(KChangePolicyTest, TheSameBytesAreWritten) {
    tree.Write("p/config/a.conf", "offered");
    EXPECT_EQ(Decide(), KChangePolicy::Copy::Write);
}

TEST_F(KChangePolicyTest, TwoFilesThatCannotBeReadAreNotTheSame) {
    EXPECT_EQ(Decide(), KChangePolicy::Copy::Offer);
    failcall_arm("read", 1, EIO, 1);
    const KChangePolicy::Copy unread = Decide();
    EXPECT_GT(failcall_disarm(), 0U);
    EXPECT_EQ(unread, KChangePolicy::Copy::Offer);
}

TEST_F(KChangePolicyTest, WhatCannotBeLookedAtIsNotGone) {
    failcall_arm("fstatat", 1, ENOMEM, 1);
    const KChangePolicy::Copy unknown = Decide();
    EXPECT_GT(failcall_disarm(), 0U);
    EXPECT_EQ(unknown, KChangePolicy::Copy::Offer);
}

TEST_F(KChangePolicyTest, AnAnswerThatIsAGuessIsToldAsOne) {
    const KChangePolicy policy(ownership, tree.Path("p"), KChangePolicy::Options());
    const std::string path = tree.Path("p/config/a.conf");
    failcall_arm("fstatat", 1, ENOMEM, 1);
    EXPECT_TRUE(policy.IsAdministrators(path));
    EXPECT_GT(failcall_disarm(), 0U);
    EXPECT_EQ(policy.GetUnread(), (std::map<std::string, unsigned>{{path, ENOMEM}}));
    EXPECT_TRUE(policy.GetAdministrators().empty());

    const KChangePolicy sure(ownership, tree.Path("p"), KChangePolicy::Options());
    EXPECT_TRUE(sure.IsAdministrators(path));
    EXPECT_TRUE(sure.GetUnread().empty());
}

TEST_F(KChangePolicyTest, WhatCannotBeLookedAtIsNoRubbishAndThatIsKnown) {
    const KChangePolicy policy(ownership, tree.Path("p"), KChangePolicy::Options());
    const std::string path = tree.Path("p/config/a.conf");
    KSETUP::KManifestEntry entry;
    EXPECT_TRUE(policy.IsRubbish(path, entry, true));
    failcall_arm("fstatat", 1, ENOMEM, 0);
    EXPECT_FALSE(policy.IsRubbish(path, entry, true));
    failcall_disarm();
    EXPECT_EQ(policy.GetUnread(), (std::map<std::string, unsigned>{{path, ENOMEM}}));
    EXPECT_FALSE(policy.IsRubbish(tree.Path("p/none"), entry, true));
    EXPECT_EQ(policy.GetUnread().size(), 1U);
}

TEST_F(KChangePolicyTest, WhatCannotBeLookedAtIsNotReplacedLikeNothing) {
    const KChangePolicy policy(ownership, tree.Path("p"), KChangePolicy::Options());
    tree.Write("p/other", "somebody's");
    EXPECT_EQ(policy.WhyNotReplace(tree.Path("p/none"), tree.Path("kit/other")), "");
    const KSETUP::KText why = policy.WhyNotReplace(tree.Path("p/other"), tree.Path("kit/other"));
    EXPECT_NE(why, "");
    failcall_arm("fstatat", 1, EIO, 0);
    EXPECT_EQ(policy.WhyNotReplace(tree.Path("p/other"), tree.Path("kit/other")), why);
    failcall_disarm();
}

} // namespace
