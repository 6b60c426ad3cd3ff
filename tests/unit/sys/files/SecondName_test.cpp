// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <string>

#include <sys/files/SecondName.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {

class SecondNameTest : public ::testing::Test {
  protected:
    bool IsPlain(const std::string& relative) {
        struct stat status {};
        return KSYS::IsPlainFile(tree.Path(relative), status);
    }
    bool MakesPlain(const std::string& relative) {
        return KSYS::MakesPlainFiles(tree.Path(relative));
    }
    /// Whether the file system has them.
    bool SetAttribute(const std::string& relative) {
        return ::setxattr(tree.Path(relative).c_str(), "user.test", "1", 1, 0) == 0;
    }

    KTEST::TemporaryTree tree;
};

TEST_F(SecondNameTest, AFileOfThisUsersWithOneNameIsPlain) {
    tree.Write("file", "x", 0750);
    EXPECT_TRUE(IsPlain("file"));
}

TEST_F(SecondNameTest, NoOtherEntryIsPlain) {
    tree.Write("file", "x");
    tree.Directory("directory");
    tree.Link("link", "file");
    tree.Fifo("fifo");
    EXPECT_FALSE(IsPlain("directory"));
    EXPECT_FALSE(IsPlain("link"));
    EXPECT_FALSE(IsPlain("fifo"));
    EXPECT_FALSE(IsPlain("none"));
}

TEST_F(SecondNameTest, AFileWithTwoNamesIsNotPlain) {
    tree.Write("file", "x");
    ASSERT_EQ(::link(tree.Path("file").c_str(), tree.Path("other").c_str()), 0);
    EXPECT_FALSE(IsPlain("file"));
}

TEST_F(SecondNameTest, AFileOfSomebodyElsesIsNotPlain) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "SKIPPED: only root can give files away";
    }
    tree.Write("user", "x");
    tree.Write("group", "x");
    tree.SetOwner("user", 65534, 0);
    tree.SetOwner("group", 0, 65534);
    EXPECT_FALSE(IsPlain("user"));
    EXPECT_FALSE(IsPlain("group"));
}

TEST_F(SecondNameTest, WhatHasAttributesIsNotPlain) {
    tree.Write("file", "x");
    tree.Directory("directory");
    if (!SetAttribute("file") || !SetAttribute("directory")) {
        GTEST_SKIP() << "SKIPPED: no extended attributes on the file system of " << tree.Path();
    }
    EXPECT_FALSE(IsPlain("file"));
    EXPECT_FALSE(MakesPlain("directory"));
}

TEST_F(SecondNameTest, ADirectoryThatHandsNothingOnMakesPlainFiles) {
    tree.Directory("directory");
    EXPECT_TRUE(MakesPlain("directory"));
}

TEST_F(SecondNameTest, ADirectoryThatHandsSomethingOnOrIsOpenDoesNot) {
    tree.Directory("group", 02755);
    tree.Directory("open", 0775);
    tree.Directory("sticky", 01777);
    tree.Write("file", "x");
    tree.Link("link", "group");
    for (const char* name : {"group", "open", "sticky", "file", "link", "none"}) {
        EXPECT_FALSE(MakesPlain(name)) << name;
    }
}

} // namespace
