// SPDX-License-Identifier: MIT
#include "../GivenPlan.h"

#include <setup/ExitCode.h>
#include <setup/process/ImageRoot.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

using namespace KSETUP;
using ::testing::HasSubstr;

/// Refusals, before anything is mounted; what becomes of a root is in whole runs.
class ImageRootTest : public KTEST::GivenPlan {
  protected:
    int Refusal(const std::string& given) {
        return CodeOf([&] { found = FindImageRoot(given); });
    }
    std::string found;
};

TEST_F(ImageRootTest, ADirectoryOfRootsIsFoundWithoutItsLinks) {
    tree.Directory("built/image");
    tree.Link("link", "built");
    EXPECT_EQ(Refusal(tree.Path("link/../link/image/")), 0) << words;
    EXPECT_EQ(found, tree.Path("built/image"));
}

TEST_F(ImageRootTest, WhatIsMissingOrNoDirectoryIsRefused) {
    EXPECT_EQ(Refusal(tree.Path("missing")), ExitCode::usage);
    EXPECT_THAT(words, HasSubstr("missing: No such file or directory. Behind --root stands"));
    tree.Write("file", "");
    EXPECT_EQ(Refusal(tree.Path("file")), ExitCode::usage);
    EXPECT_THAT(words, HasSubstr("file: Not a directory. Behind --root stands"));
}

TEST_F(ImageRootTest, TheRunningMachineIsRefusedByWhateverNameItHas) {
    tree.Link("slash", "/");
    for (const std::string& name :
         {std::string("/"), std::string("/proc/self/root"), tree.Path("slash")}) {
        EXPECT_EQ(Refusal(name), ExitCode::usage);
        EXPECT_THAT(words, HasSubstr(name + ": this is the root of the running machine"));
    }
}

TEST_F(ImageRootTest, ADirectoryThatOthersCanChangeIsRefused) {
    for (const unsigned mode : {0775U, 0757U, 01777U}) { // sticky: they can lay what is missing
        tree.Directory("image", mode);
        EXPECT_EQ(Refusal(tree.Path("image")), ExitCode::cannotWrite);
        EXPECT_THAT(words, HasSubstr(tree.Path("image") + ": others than root can change"));
    }
    tree.Directory("image", 0755);
    tree.SetOwner("image", 1234, 0);
    EXPECT_EQ(Refusal(tree.Path("image")), ExitCode::cannotWrite);
}

TEST_F(ImageRootTest, AWayThatOthersCanChangeIsRefused) {
    tree.Directory("open", 0777);
    tree.Directory("open/image");
    EXPECT_EQ(Refusal(tree.Path("open/image")), ExitCode::cannotWrite);
    EXPECT_THAT(words, HasSubstr(tree.Path("open") + ": others than root can change it"));
}

TEST_F(ImageRootTest, WhoCalledSudoMayHaveTheWayButNotTheRoot) {
    tree.Directory("home");
    tree.Directory("home/image");
    tree.SetOwner("home", 1234, 1234);
    EXPECT_EQ(Refusal(tree.Path("home/image")), ExitCode::cannotWrite);
    ::setenv("SUDO_UID", "1234", 1); // NOLINT(concurrency-mt-unsafe): one thread
    EXPECT_EQ(Refusal(tree.Path("home/image")), 0) << words;
    tree.SetOwner("home/image", 1234, 1234);
    EXPECT_EQ(Refusal(tree.Path("home/image")), ExitCode::cannotWrite);
    ::unsetenv("SUDO_UID"); // NOLINT(concurrency-mt-unsafe): one thread
}

} // namespace
