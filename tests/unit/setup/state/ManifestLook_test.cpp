// SPDX-License-Identifier: MIT
#include "../../../faults/failcall.h"
#include "../../../support/TemporaryTree.h"

#include <setup/KSetupFailure.h>
#include <setup/state/ManifestLook.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>

namespace {

using KSETUP::KManifest;
using KSETUP::LooksAsInstalled;

class ManifestLookTest : public ::testing::Test {
  protected:
    ManifestLookTest() {
        tree.Write("p/file", "bytes");
        tree.Link("p/link", "file");
        manifest = KManifest({tree.Path("p"), tree.Path("p/file"), tree.Path("p/link")});
    }

    void SetTime(const std::filesystem::file_time_type& time) {
        std::filesystem::last_write_time(tree.Path("p/file"), time);
    }

    KTEST::TemporaryTree tree;
    KManifest manifest;
};

TEST_F(ManifestLookTest, WhatWasNotTouchedIsAsInstalled) {
    EXPECT_TRUE(LooksAsInstalled(manifest));
}

TEST_F(ManifestLookTest, AFileOfTheSameSizeAndTimeIsNotRead) {
    const auto time = std::filesystem::last_write_time(tree.Path("p/file"));
    tree.Write("p/file", "BYTES");
    SetTime(time);
    EXPECT_TRUE(LooksAsInstalled(manifest));
}

TEST_F(ManifestLookTest, AnotherTimeAloneIsNoDifference) {
    SetTime(std::filesystem::file_time_type::clock::now() + std::chrono::hours(1));
    EXPECT_TRUE(LooksAsInstalled(manifest));
}

TEST_F(ManifestLookTest, AnotherContentIsOneWhereTheTimeTellsOfIt) {
    tree.Write("p/file", "BYTES");
    SetTime(std::filesystem::file_time_type::clock::now() + std::chrono::hours(1));
    EXPECT_FALSE(LooksAsInstalled(manifest));
    EXPECT_TRUE(LooksAsInstalled(manifest, {tree.Path("p//file")}));
}

TEST_F(ManifestLookTest, EachKindOfChangeIsADifference) {
    ::chmod(tree.Path("p/file").c_str(), 0600);
    EXPECT_FALSE(LooksAsInstalled(manifest, {tree.Path("p/file")}));
    ::chmod(tree.Path("p/file").c_str(), 0644);
    EXPECT_TRUE(LooksAsInstalled(manifest));
    tree.Remove("p/link");
    EXPECT_FALSE(LooksAsInstalled(manifest));
    tree.Link("p/link", "elsewhere");
    EXPECT_FALSE(LooksAsInstalled(manifest));
}

TEST_F(ManifestLookTest, WhatCannotBeLookedAtIsNotKnownToDiffer) {
    bool isRefused = false;
    failcall_arm("fstatat", 1, ENOMEM, 1);
    try {
        static_cast<void>(LooksAsInstalled(manifest));
    } catch (const KSETUP::KSetupFailure&) {
        isRefused = true;
    }
    failcall_disarm();
    EXPECT_TRUE(isRefused);
}

} // namespace
