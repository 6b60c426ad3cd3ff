// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/files/KRealDirectories.h>

#include <gtest/gtest.h>

#include <string>

namespace {

class KRealDirectoriesTest : public ::testing::Test {
  protected:
    std::string Find(const std::string& relative) { return real.Find(tree.Path(relative)); }

    KTEST::TemporaryTree tree;
    KSETUP::KRealDirectories real;
};

TEST_F(KRealDirectoriesTest, FollowsLinksOnTheWayAndTheLastOne) {
    tree.Directory("a/b");
    tree.Link("link", "a");
    tree.Link("a/up", "../a/b");
    EXPECT_EQ(Find("link/b"), tree.Path("a/b"));
    EXPECT_EQ(Find("link/up"), tree.Path("a/b"));
    EXPECT_EQ(Find("link/up/none/deeper"), tree.Path("a/b/none/deeper"));
    EXPECT_EQ(real.Find("/"), "/");
}

TEST_F(KRealDirectoriesTest, WhatLeadsNowhereIsWhatItIsCalled) {
    tree.Link("round", "round");
    EXPECT_EQ(Find("round/x"), tree.Path("round/x"));
    EXPECT_EQ(Find("none/x"), tree.Path("none/x"));
}

TEST_F(KRealDirectoriesTest, LooksOnce) {
    tree.Directory("a");
    tree.Link("link", "a");
    EXPECT_EQ(Find("link"), tree.Path("a"));
    tree.Remove("link");
    EXPECT_EQ(Find("link/b"), tree.Path("a/b"));
}

} // namespace
