// SPDX-License-Identifier: MIT
#include "../../support/TemporaryTree.h"

#include <gtest/gtest.h>

#include <bundle/UnpackedTable.h>
#include <fcntl.h>
#include <sys/files/SealedMemory.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/// With two directories of which a table may be.
class UnpackedTableTest : public ::testing::Test {
  protected:
    UnpackedTableTest() {
        tree.Directory("one");
        tree.Directory("two");
        table.entries.push_back({.name = "d", .isDirectory = true});
        table.entries.push_back({.name = "d/f", .byteCount = 5, .sha256 = {1, 2, 3}});
    }

    KTEST::TemporaryTree tree;
    KBUNDLE::KBundleTable table;
};

TEST_F(UnpackedTableTest, IsFoundForItsDirectory) {
    const KSYS::KDescriptor kept = KBUNDLE::KeepTable(table, tree.Path("one"));
    const auto found = KBUNDLE::FindKeptTable(tree.Path("one"));
    ASSERT_TRUE(found);
    ASSERT_EQ(found->entries.size(), 2U);
    EXPECT_TRUE(found->entries[0].isDirectory);
    EXPECT_EQ(found->entries[1].name, "d/f");
    EXPECT_EQ(found->entries[1].byteCount, 5U);
    EXPECT_EQ(found->entries[1].sha256, table.entries[1].sha256);
}

TEST_F(UnpackedTableTest, OfSeveralEachIsFoundForItsOwnDirectory) {
    const KSYS::KDescriptor first = KBUNDLE::KeepTable(table, tree.Path("one"));
    table.entries.pop_back();
    const KSYS::KDescriptor second = KBUNDLE::KeepTable(table, tree.Path("two"));
    EXPECT_EQ(KBUNDLE::FindKeptTable(tree.Path("one"))->entries.size(), 2U);
    EXPECT_EQ(KBUNDLE::FindKeptTable(tree.Path("two"))->entries.size(), 1U);
    EXPECT_FALSE(KBUNDLE::FindKeptTable(tree.Path()));
    EXPECT_FALSE(KBUNDLE::FindKeptTable(tree.Path("missing")));
}

TEST_F(UnpackedTableTest, GoesWithItsDescriptor) {
    { const KSYS::KDescriptor kept = KBUNDLE::KeepTable(table, tree.Path("one")); }
    EXPECT_FALSE(KBUNDLE::FindKeptTable(tree.Path("one")));
}

TEST_F(UnpackedTableTest, HoldsWhatIsForTheChosenArchitectureOnly) {
    table.heads = {{"x86_64", 0, 10}, {"aarch64", 10, 10}};
    table.entries[0].architectures = 3;
    table.entries[1].architectures = 1;
    table.entries.push_back({.name = "d/f", .byteCount = 7, .sha256 = {4}, .architectures = 2});
    table.chosen = 2;
    const KSYS::KDescriptor kept = KBUNDLE::KeepTable(table, tree.Path("one"));
    const auto found = KBUNDLE::FindKeptTable(tree.Path("one"));
    ASSERT_TRUE(found);
    ASSERT_EQ(found->entries.size(), 2U);
    EXPECT_EQ(found->entries[1].byteCount, 7U);
}

/// As a process may have been left by whoever started it.
TEST_F(UnpackedTableTest, MemoryThatHoldsNoneIsNone) {
    struct stat status {};
    ASSERT_EQ(::stat(tree.Path("one").c_str(), &status), 0);
    std::string bytes(reinterpret_cast<const char*>(&status.st_dev), sizeof(status.st_dev));
    bytes.append(reinterpret_cast<const char*>(&status.st_ino), sizeof(status.st_ino));
    KSYS::KDescriptor memory;
    ASSERT_EQ(KSYS::MakeSealedMemory("other", bytes + "InsTabl1 and nothing", memory), 0U);
    EXPECT_FALSE(KBUNDLE::FindKeptTable(tree.Path("one")));
    EXPECT_FALSE(KBUNDLE::KeepTable(table, tree.Path("missing")).IsOpen());
}

} // namespace
