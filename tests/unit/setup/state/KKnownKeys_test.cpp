// SPDX-License-Identifier: MIT
#include "../../../faults/failcall.h"
#include "../../../support/TemporaryTree.h"

#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/state/KKnownKeys.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

namespace {

using KSETUP::KKnownKeys;
using KSETUP::KPinnedKey;
using KSETUP::KPublicKey;
using ::testing::HasSubstr;

constexpr char oneKey[] = "untrusted comment: minisign public key 6D66D82A5D1E8A3C\n"
                          "RWQ8ih5dKthmbSKkpUJPGC5LNl3q5GawvUIQuRozLRG9YBCLwA0fAUwB\n";
constexpr char twoKey[] = "untrusted comment: minisign public key 6D66D82A5D1E8A3C\n"
                          "RWQ8ih5dKthmbSKkpUJPGC5LNl3q5GawvUIQuRozLRG9YBCLwA0fAUwA\n";

class KKnownKeysTest : public ::testing::Test {
  protected:
    KKnownKeys Find() { return KKnownKeys::Find("hello", tree.Path("trust"), tree.Path("state")); }
    void Pin(const std::string& key) {
        KPinnedKey{KPublicKey::FromText(key, "key"), "seal", {}}.Write("hello", tree.Path("state"));
    }
    /// The file that the only key is known from.
    std::string FindFile() {
        const KKnownKeys known = Find();
        return known.keys.size() == 1 ? known.keys.front().file : known.ToWords().English();
    }
    std::string WhyRefused() {
        try {
            Find();
        } catch (const KSETUP::KSetupFailure& failure) {
            EXPECT_EQ(failure.GetExitCode(), KSETUP::ExitCode::malformedScript);
            return failure.what();
        }
        return "";
    }

    KTEST::TemporaryTree tree;
};

TEST_F(KKnownKeysTest, WithoutKeysAnybodysKitIsInstalled) {
    EXPECT_FALSE(Find().AreThereAny());
    EXPECT_FALSE(tree.Exists("trust"));
}

TEST_F(KKnownKeysTest, AnEmptyDirectoryOfKeysDecidesNothing) {
    tree.Directory("trust/trusted.d/hello");
    tree.Write("trust/trusted.d/README", "keys go here");
    Pin(oneKey);
    EXPECT_EQ(FindFile(), tree.Path("state/hello/key"));
    EXPECT_FALSE(Find().areAdministrators);
}

TEST_F(KKnownKeysTest, KeysForAllCountBeforeThePinnedOne) {
    Pin(oneKey);
    tree.Write("trust/trusted.d/us.pub", twoKey);
    EXPECT_EQ(FindFile(), tree.Path("trust/trusted.d/us.pub"));
    EXPECT_TRUE(Find().areAdministrators);
    EXPECT_TRUE(Find().pinned.has_value());
}

TEST_F(KKnownKeysTest, KeysForTheProductCountBeforeThoseForAll) {
    tree.Write("trust/trusted.d/us.pub", twoKey);
    tree.Write("trust/trusted.d/hello/them.pub", oneKey);
    tree.Write("trust/trusted.d/other/others.pub", twoKey);
    EXPECT_EQ(FindFile(), tree.Path("trust/trusted.d/hello/them.pub"));
}

TEST_F(KKnownKeysTest, ADirectoryThatOthersCanChangeIsRefused) {
    tree.Write("trust/trusted.d/us.pub", oneKey);
    tree.SetMode("trust/trusted.d", 0777);
    EXPECT_THAT(WhyRefused(), HasSubstr("trusted.d is not root's alone"));
}

TEST_F(KKnownKeysTest, AKeyThatOthersCanChangeIsRefused) {
    tree.Write("trust/trusted.d/us.pub", oneKey, 0666);
    EXPECT_THAT(WhyRefused(), HasSubstr("us.pub is not root's alone"));
}

TEST_F(KKnownKeysTest, ALinkIsNoKey) {
    tree.Write("elsewhere.pub", oneKey);
    tree.Directory("trust/trusted.d");
    tree.Link("trust/trusted.d/us.pub", tree.Path("elsewhere.pub"));
    EXPECT_THAT(WhyRefused(), HasSubstr("us.pub"));
}

TEST_F(KKnownKeysTest, WhatIsNoKeyIsRefused) {
    tree.Write("trust/trusted.d/us.pub", "no key");
    EXPECT_THAT(WhyRefused(), HasSubstr("us.pub: no public key of minisign"));
}

TEST_F(KKnownKeysTest, APinnedKeyIsReadAsItWasWrittenAndRemovedOnce) {
    Pin(twoKey);
    const auto pinned = KPinnedKey::Read("hello", tree.Path("state"));
    ASSERT_TRUE(pinned.has_value());
    EXPECT_EQ(pinned->key.ToText(), twoKey);
    EXPECT_EQ(pinned->seal, "seal");
    EXPECT_TRUE(KPinnedKey::Remove("hello", tree.Path("state")));
    EXPECT_FALSE(KPinnedKey::Remove("hello", tree.Path("state")));
    EXPECT_FALSE(KPinnedKey::Read("hello", tree.Path("state")).has_value());
}

TEST_F(KKnownKeysTest, APinnedKeyThatIsDamagedIsRefusedAndNotPassedOver) {
    Pin(oneKey);
    tree.Write("state/hello/key", R"({"format":"ins++ pinned key","formatVersion":2})");
    EXPECT_THAT(WhyRefused(), HasSubstr("hello/key cannot be understood"));
    tree.Write("state/hello/key", "");
    EXPECT_THAT(WhyRefused(), HasSubstr("hello/key cannot be understood"));
}

TEST_F(KKnownKeysTest, AKeyThatCannotBeLookedAtNowIsNotPassedOver) {
    tree.Write("trust/trusted.d/us.pub", oneKey);
    failcall_arm("fstatat", 1, EIO, 0);
    const std::string why = WhyRefused();
    failcall_disarm();
    EXPECT_THAT(why, HasSubstr("cannot look at " + tree.Path("trust/trusted.d/us.pub")));
}

} // namespace
