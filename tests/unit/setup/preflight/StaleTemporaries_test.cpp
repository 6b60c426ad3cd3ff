// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/preflight/StaleTemporaries.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

TEST(StaleTemporariesTest, OnlyTheNamesOfThatRunGo) {
    constexpr std::uint32_t key = 7; // of 30064771072 to 34359738367
    KTEST::TemporaryTree tree;
    tree.Write("in/.inspp-30064771072", "half of a file");
    tree.Link("in/.inspp-34359738367", "/nowhere");
    const std::vector<const char*> others = {
        "in/.inspp-30064771071",
        "in/.inspp-34359738368",
        "in/.inspp-30064771072a",
        "in/inspp-30064771072",
        "in/below/.inspp-30064771072",
        "other/.inspp-30064771072"};
    for (const char* other : others) {
        tree.Write(other, "");
    }
    tree.Directory("in/.inspp-30064771073");
    tree.Write("in/.inspp-30064771074", "");
    tree.SetOwner("in/.inspp-30064771074", 65534, 65534);
    tree.Link("way", "other");
    tree.Write("in/.inspp-7", "");
    KSETUP::DeleteStaleTemporaries({tree.Path("in")}, 0);
    EXPECT_TRUE(tree.Exists("in/.inspp-7"));
    KSETUP::DeleteStaleTemporaries({tree.Path("in"), tree.Path("missing"), tree.Path("way")}, key);
    EXPECT_FALSE(tree.Exists("in/.inspp-30064771072"));
    EXPECT_FALSE(tree.Exists("in/.inspp-34359738367"));
    EXPECT_TRUE(tree.Exists("in/.inspp-30064771073"));
    EXPECT_TRUE(tree.Exists("in/.inspp-30064771074"));
    for (const char* stays : others) {
        EXPECT_TRUE(tree.Exists(stays)) << stays;
    }
}

} // namespace
