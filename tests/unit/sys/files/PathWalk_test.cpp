// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <cerrno>

#include <sys/files/PathWalk.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using KSYS::LastLink;
using KSYS::Place;

class PathWalkTest : public ::testing::Test {
  protected:
    /// Returns  0 or errno
    unsigned Find(const std::string& path) {
        return KSYS::FindPlace(path.c_str(), LastLink::Keep, place);
    }
    /// Whether the place that was found is in this directory of the tree.
    bool IsIn(const std::string& relative) const {
        struct stat status {};
        return ::fstat(place.directory.Get(), &status) == 0 &&
               status.st_ino == tree.Status(relative).st_ino;
    }

    KTEST::TemporaryTree tree;
    Place place;
};

TEST_F(PathWalkTest, WhatIsNotThereHasAPlaceInItsDirectory) {
    tree.Directory("a/b");
    EXPECT_EQ(Find(tree.Path("a//b/file")), 0U);
    EXPECT_EQ(place.name, "file");
    EXPECT_TRUE(IsIn("a/b"));
}

TEST_F(PathWalkTest, ALinkOfRootsIsFollowed) {
    tree.Directory("a/b");
    tree.Link("relative", "a");
    tree.Link("absolute", tree.Path("relative/b"));
    EXPECT_EQ(Find(tree.Path("absolute/file")), 0U);
    EXPECT_TRUE(IsIn("a/b"));
}

TEST_F(PathWalkTest, ALinkThatOthersCouldHaveLaidIsNotFollowed) {
    tree.Directory("a");
    tree.Directory("open", 01777);
    tree.Link("open/link", tree.Path("a"));
    EXPECT_EQ(Find(tree.Path("open/link/file")), unsigned{ELOOP});
}

TEST_F(PathWalkTest, ALinkOfOthersInADirectoryThatBecameRootsIsNotFollowed) {
    constexpr uid_t somebody = 65534;
    tree.Directory("a");
    tree.Link("link", tree.Path("a"));
    ASSERT_EQ(::lchown(tree.Path("link").c_str(), somebody, somebody), 0);
    EXPECT_EQ(Find(tree.Path("link/file")), unsigned{ELOOP});
}

TEST_F(PathWalkTest, ALinkAtTheEndIsNotLookedAt) {
    tree.Directory("open", 01777);
    tree.Link("open/link", "nowhere");
    EXPECT_EQ(Find(tree.Path("open/link")), 0U);
    EXPECT_EQ(place.name, "link");
}

TEST_F(PathWalkTest, LinksInACircleEnd) {
    tree.Link("one", "two");
    tree.Link("two", "one");
    EXPECT_EQ(Find(tree.Path("one/file")), unsigned{ELOOP});
}

TEST_F(PathWalkTest, WhatIsInTheWayIsTold) {
    tree.Write("file", "");
    EXPECT_EQ(Find(tree.Path("file/x")), unsigned{ENOTDIR});
    EXPECT_EQ(Find(tree.Path("none/x")), unsigned{ENOENT});
    EXPECT_EQ(Find(""), unsigned{ENOENT});
}

TEST_F(PathWalkTest, ANameForAFileThatIsRenamedIsKnownAgain) {
    const std::string name = KSYS::TemporaryName();
    EXPECT_NE(name, KSYS::TemporaryName());
    const std::uint32_t key = KSYS::TemporaryKey();
    EXPECT_NE(key, 0U);
    EXPECT_TRUE(KSYS::IsTemporaryName(name, key));
    EXPECT_FALSE(KSYS::IsTemporaryName(name, key + 1));
    EXPECT_FALSE(KSYS::IsTemporaryName(name + "x", key));
    EXPECT_FALSE(KSYS::IsTemporaryName(name.substr(1), key));
    // 7 << 32 and one more; with more digits than 64 bits have; with none
    EXPECT_TRUE(KSYS::IsTemporaryName(".inspp-30064771073", 7));
    EXPECT_FALSE(KSYS::IsTemporaryName(".inspp-30064771073000000000", 7));
    EXPECT_FALSE(KSYS::IsTemporaryName(".inspp-", 7));
    EXPECT_FALSE(KSYS::IsTemporaryName(".inspp--30064771073", 7));
    EXPECT_TRUE(KSYS::IsTemporaryName(name));
    EXPECT_TRUE(KSYS::IsTemporaryName(".inspp-30064771073"));
    EXPECT_FALSE(KSYS::IsTemporaryName(".inspp-7")); // no process has the key 0
    EXPECT_FALSE(KSYS::IsTemporaryName(".inspp-7", 0));
    EXPECT_FALSE(KSYS::IsTemporaryName(".inspp-30064771073x"));
}

} // namespace
