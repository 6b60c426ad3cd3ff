// SPDX-License-Identifier: MIT
#include "../../../faults/failcall.h"
#include "../../../support/TemporaryTree.h"

#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/state/KProductList.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

namespace {

using KSETUP::FindKeptKit;
using ::testing::HasSubstr;

class KProductListTest : public ::testing::Test {
  protected:
    void Given(const std::string& service, const std::string& product) {
        tree.Directory("base/" + service + "/kit");
        ::chmod(tree.Path("base/" + service + "/kit").c_str(), 0700);
        tree.Write("base/" + service + "/kit/product.ini", "[product]\nname=" + product + "\n");
    }

    std::string Found(const std::string& name) {
        try {
            return FindKeptKit(name, tree.Path("base"));
        } catch (const KSETUP::KSetupFailure& failure) {
            return std::to_string(failure.GetExitCode()) + " " + failure.what();
        }
    }

    KTEST::TemporaryTree tree;
};

TEST_F(KProductListTest, AServiceIsFoundBeforeAProductOfThatName) {
    Given("one", "two");
    Given("two", "Second");
    EXPECT_EQ(Found("two"), tree.Path("base/two/kit"));
    EXPECT_EQ(Found("Second"), tree.Path("base/two/kit"));
}

TEST_F(KProductListTest, AProductsNameStandsForOneOnly) {
    Given("one", "Same");
    Given("two", "Same");
    EXPECT_EQ(
        Found("Same"),
        "64 several products are called \"Same\". Name the service of one; known: one (Same), two "
        "(Same)."
    );
}

TEST_F(KProductListTest, WhatIsKnownIsNamed) {
    EXPECT_EQ(Found("x"), "3 no product \"x\" is known here. None is.");
    Given("one", "One");
    tree.Directory("base/empty");
    tree.Write("base/file", "");
    EXPECT_EQ(Found("empty"), "3 no product \"empty\" is known here. Known: one (One).");
}

TEST_F(KProductListTest, OneWithoutAKitIsKnownByItsService) {
    tree.Write("base/old/manifest", "");
    EXPECT_THAT(Found("old"), HasSubstr("66 no kit is kept of old"));
}

TEST_F(KProductListTest, ADamagedKitHidesNoOther) {
    Given("one", "One");
    tree.Write("base/two/kit/file", "");
    ::chmod(tree.Path("base/two/kit").c_str(), 0777);
    const auto products = KSETUP::FindKnownProducts(tree.Path("base"));
    ASSERT_EQ(products.size(), 2U);
    EXPECT_EQ(products[0].name, "One");
    EXPECT_EQ(products[1].kit, "");
    EXPECT_GT(products[0].lastRun, 0);
}

TEST_F(KProductListTest, AProductThatCannotBeLookedAtIsNotUnknown) {
    Given("one", "One");
    failcall_arm("fstatat", 1, ENOMEM, 0);
    const std::string found = Found("One");
    failcall_disarm();
    EXPECT_THAT(
        found, HasSubstr("cannot look at " + tree.Path("base/one") + ": Cannot allocate memory")
    );
}

/// Every call of a kind fails once: the name that the kit has is told, or why it is not.
TEST_F(KProductListTest, WhatCannotBeReadNowIsToldAndNoOtherNameTaken) {
    Given("one", "One");
    unsigned failures = 0;
    for (const char* call : {"openat", "fstat", "fstatat", "stat", "read"}) {
        for (unsigned nth = 1; nth <= 30; ++nth) {
            std::vector<KSETUP::KKnownProduct> products;
            std::string refused;
            failcall_arm(call, nth, EIO, 0);
            try {
                products = KSETUP::FindKnownProducts(tree.Path("base"));
            } catch (const KSETUP::KSetupFailure& failure) {
                refused = failure.what();
            }
            if (failcall_disarm() < nth) {
                break;
            }
            ++failures;
            const std::string told = products.empty() ? refused : products[0].trouble.English();
            const bool isKnown = !products.empty() && products[0].name == "One";
            EXPECT_TRUE(isKnown || told.find("Input/output error") != std::string::npos)
                << call << " " << nth << ": " << told;
        }
    }
    EXPECT_GT(failures, 10U);
}

TEST_F(KProductListTest, OneThatCannotBeReadNowMayBeTheOneThatIsMeant) {
    Given("one", "One");
    tree.Write("base/two/kit/file", "");
    ::chmod(tree.Path("base/two/kit").c_str(), 0777);
    EXPECT_EQ(Found("one"), tree.Path("base/one/kit"));
    EXPECT_THAT(Found("Two"), HasSubstr(tree.Path("base/two/kit") + " is not root's alone"));
    EXPECT_THAT(Found("two"), HasSubstr(tree.Path("base/two/kit") + " is not root's alone"));
}

} // namespace
