// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/preflight/KDigestPrefetch.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>

namespace {

using KSETUP::KDigestPrefetch;
using ::testing::SizeIs;

constexpr const char* digestOfA =
    "559aead08264d5795d3909718cdd05abd49572e84fe55590eef31a88a08fdffd";
constexpr const char* digestOfB =
    "df7e70e5021544f4834bbee64a9e3789febc4be81470df629cad6ddb03320a5c";

TEST(KDigestPrefetchTest, KnowsSourcesByTheirTargets) {
    KTEST::TemporaryTree tree;
    tree.Write("kit/a", "A");
    tree.Write("kit/b", "B");
    KDigestPrefetch ahead({{tree.Path("kit/a"), "/opt/a"}, {tree.Path("kit/b"), "/opt/b"}});
    const auto digests = ahead.Take();
    EXPECT_THAT(digests, SizeIs(2));
    EXPECT_EQ(digests.at("/opt/a").sha256, digestOfA);
    EXPECT_EQ(digests.at("/opt/b").sha256, digestOfB);
    EXPECT_EQ(digests.at("/opt/b").size, 1U);
}

TEST(KDigestPrefetchTest, TheLastCopyToATargetCounts) {
    KTEST::TemporaryTree tree;
    tree.Write("a", "A");
    tree.Write("b", "B");
    KDigestPrefetch ahead({{tree.Path("a"), "/opt/x"}, {tree.Path("b"), "/opt/x"}});
    EXPECT_EQ(ahead.Take().at("/opt/x").sha256, digestOfB);
    KDigestPrefetch broken({{tree.Path("a"), "/opt/x"}, {tree.Path("missing"), "/opt/x"}});
    EXPECT_THAT(broken.Take(), SizeIs(0));
}

TEST(KDigestPrefetchTest, WhatWasReadBeforeIsNotReadAgain) {
    KTEST::TemporaryTree tree;
    tree.Write("a", "A");
    KDigestPrefetch ahead(
        {{tree.Path("a"), "/opt/a"}, {tree.Path("b"), "/opt/b"}},
        {{tree.Path("b"), {0, 1, digestOfB}}} // and is not there, so it cannot be
    );
    const auto digests = ahead.Take();
    EXPECT_EQ(digests.at("/opt/a").sha256, digestOfA);
    EXPECT_EQ(digests.at("/opt/b").sha256, digestOfB);
    EXPECT_EQ(digests.at("/opt/b").size, 1U);
}

TEST(KDigestPrefetchTest, NothingIsFine) {
    EXPECT_THAT(KDigestPrefetch({}).Take(), SizeIs(0));
}

TEST(KDigestPrefetchTest, DoesNotHoldUpWhoGivesItUp) {
    KTEST::TemporaryTree tree;
    tree.Write("a", "");
    std::filesystem::resize_file(tree.Path("a"), 1ULL << 40U); // sparse: minutes to read
    const auto start = std::chrono::steady_clock::now();
    { const KDigestPrefetch ahead({{tree.Path("a"), "/opt/a"}}); }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

} // namespace
