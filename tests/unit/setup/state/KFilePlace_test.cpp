// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/state/KFilePlace.h>

#include <gtest/gtest.h>

#include <cerrno>

#include <sys/stat.h>

namespace {

using KSETUP::FindFilePlace;
using KSETUP::KFilePlace;

class KFilePlaceTest : public ::testing::Test {
  protected:
    int Find(const std::string& path) { return FindFilePlace(path, place); }
    /// Whether the place that was found is in this directory of the tree.
    bool IsIn(const std::string& relative) const {
        struct stat status {};
        return ::fstat(place.directory.Get(), &status) == 0 &&
               status.st_ino == tree.Status(relative).st_ino;
    }

    KTEST::TemporaryTree tree;
    KFilePlace place;
};

TEST_F(KFilePlaceTest, WhatIsNotThereHasAPlaceInItsDirectory) {
    tree.Directory("a/b");
    EXPECT_EQ(Find(tree.Path("a//b/file/")), 0);
    EXPECT_EQ(place.name, "file");
    EXPECT_TRUE(IsIn("a/b"));
}

TEST_F(KFilePlaceTest, ALinkOfRootsIsFollowed) {
    tree.Directory("a/b");
    tree.Link("relative", "a");
    tree.Link("absolute", tree.Path("relative/b"));
    EXPECT_EQ(Find(tree.Path("absolute/file")), 0);
    EXPECT_TRUE(IsIn("a/b"));
}

TEST_F(KFilePlaceTest, ALinkThatOthersCouldHaveLaidIsNotFollowed) {
    tree.Directory("a");
    tree.Directory("open", 01777);
    tree.Link("open/link", tree.Path("a"));
    EXPECT_EQ(Find(tree.Path("open/link/file")), ELOOP);
}

TEST_F(KFilePlaceTest, ALinkAtTheEndIsNotLookedAt) {
    tree.Directory("open", 01777);
    tree.Link("open/link", "nowhere");
    EXPECT_EQ(Find(tree.Path("open/link")), 0);
    EXPECT_EQ(place.name, "link");
}

TEST_F(KFilePlaceTest, LinksInACircleEnd) {
    tree.Link("one", "two");
    tree.Link("two", "one");
    EXPECT_EQ(Find(tree.Path("one/file")), ELOOP);
}

TEST_F(KFilePlaceTest, WhatIsInTheWayIsTold) {
    tree.Write("file", "");
    EXPECT_EQ(Find(tree.Path("file/x")), ENOTDIR);
    EXPECT_EQ(Find(tree.Path("none/x")), ENOENT);
    EXPECT_EQ(Find("relative/x"), EINVAL);
    EXPECT_EQ(Find("/"), EINVAL);
    EXPECT_EQ(Find(""), EINVAL);
}

} // namespace
