// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/preflight/StaleTemporaries.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

TEST(StaleTemporariesTest, OnlyTheEngineSOwnNamesGo) {
    KTEST::TemporaryTree tree;
    tree.Write("in/.inspp-11475966662033457350", "half of a file");
    tree.Link("in/.inspp-7", "/nowhere");
    tree.Write("in/.inspp-", "");
    tree.Write("in/.inspp-7a", "");
    tree.Write("in/.inspp-123456789012345678901", "");
    tree.Write("in/inspp-7", "");
    tree.Directory("in/.inspp-8");
    tree.Write("in/below/.inspp-9", "");
    tree.Link("way", "other");
    tree.Write("other/.inspp-9", "");
    KSETUP::DeleteStaleTemporaries({tree.Path("in"), tree.Path("missing"), tree.Path("way")});
    EXPECT_FALSE(tree.Exists("in/.inspp-11475966662033457350"));
    EXPECT_FALSE(tree.Exists("in/.inspp-7"));
    for (const char* stays :
         {"in/.inspp-",
          "in/.inspp-7a",
          "in/.inspp-123456789012345678901",
          "in/inspp-7",
          "in/.inspp-8",
          "in/below/.inspp-9",
          "other/.inspp-9"}) {
        EXPECT_TRUE(tree.Exists(stays)) << stays;
    }
}

} // namespace
