// SPDX-License-Identifier: MIT
//
// Files that are put back wait beside their places, so that many are flushed at once.
#include "../../../faults/failcall.h"
#include "../../../support/TemporaryTree.h"

#include <setup/state/KRestoration.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>

#include <unistd.h>

namespace {

using KSETUP::KBackup;
using KSETUP::KRestoration;
using KSETUP::KRestored;
using ::testing::Contains;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr unsigned files = 100;
constexpr unsigned atOnce = 32;

class RestoredTogetherTest : public ::testing::Test {
  protected:
    void SetUp() override {
        KSETUP::KBackupWish wish;
        wish.run = "1";
        for (unsigned file = 0; file < files; ++file) {
            tree.Write(Name(file), "before");
            wish.paths.push_back(tree.Path(Name(file)));
        }
        before = tree.List("p");
        backup.Save(wish);
        for (unsigned file = 0; file < files; ++file) {
            tree.Remove(Name(file));
            tree.Write(Name(file), "after");
        }
        backup.NoteLeft({});
    }
    static std::string Name(unsigned file) { return "p/" + std::to_string(1000 + file); }
    KRestored Restore(const std::string& run = "1") {
        const auto kept = backup.Open(run);
        KRestoration restoration(*kept, backup);
        restoration.PutBack();
        return restoration.GetResult();
    }
    /// Of the files with these places in the order of their paths.
    std::vector<std::string> Failures(unsigned from, unsigned to, const std::string& reason) const {
        std::vector<std::string> texts;
        for (unsigned file = 0; file < files; ++file) {
            texts.push_back("cannot put back " + tree.Path(Name(file)) + ": " + reason);
        }
        return {texts.begin() + from, texts.begin() + to};
    }
    unsigned CountWith(const std::string& content) const {
        unsigned count = 0;
        for (unsigned file = 0; file < files; ++file) {
            count += tree.Read(Name(file)) == content ? 1U : 0U;
        }
        return count;
    }

    KTEST::TemporaryTree tree;
    std::vector<std::string> before;
    KBackup backup{"dps", tree.Path("base")};
};

TEST_F(RestoredTogetherTest, ManyAreFlushedAtOnceAndNoneByItself) {
    failcall_arm("syncfs", UINT_MAX, EIO, 0);
    const KRestored result = Restore();
    // Each batch, and once the names.
    EXPECT_EQ(failcall_disarm(), (files + atOnce - 1) / atOnce + 1);
    EXPECT_THAT(result.failures, IsEmpty());
    EXPECT_EQ(result.putBack, files);
    EXPECT_EQ(tree.List("p"), before);
    EXPECT_EQ(CountWith("before"), files);
}

TEST_F(RestoredTogetherTest, LargeOnesDoNotWaitForMany) {
    ASSERT_EQ(::truncate(tree.Path(Name(0)).c_str(), off_t{65} << 20U), 0);
    KSETUP::KBackupWish wish;
    wish.run = "2";
    wish.paths = {tree.Path(Name(0)), tree.Path(Name(1))};
    backup.Save(wish);
    tree.Write(Name(0), "other");
    tree.Write(Name(1), "other");
    failcall_arm("syncfs", UINT_MAX, EIO, 0);
    const KRestored result = Restore("2");
    EXPECT_EQ(failcall_disarm(), 3u); // one by one, and the names
    EXPECT_EQ(result.putBack, 2u);
}

TEST_F(RestoredTogetherTest, NoneIsPutInItsPlaceThatCouldNotBeFlushed) {
    failcall_arm("syncfs", 1, EIO, 0);
    const KRestored result = Restore();
    failcall_disarm();
    EXPECT_EQ(result.putBack, files - atOnce);
    EXPECT_THAT(result.failures, ElementsAreArray(Failures(0, atOnce, "Input/output error")));
    EXPECT_EQ(CountWith("after"), atOnce);
    EXPECT_EQ(CountWith("before"), files - atOnce);
    EXPECT_THAT(tree.List("p"), Not(Contains(HasSubstr(".inspp-"))));
}

TEST_F(RestoredTogetherTest, WhatWaitsMakesRoomFirstWhereADiskIsFull) {
    failcall_arm("fchown", 20, ENOSPC, 0);
    const KRestored result = Restore();
    failcall_disarm();
    EXPECT_THAT(result.failures, IsEmpty());
    EXPECT_EQ(CountWith("before"), files);
    EXPECT_EQ(tree.List("p"), before);
}

TEST_F(RestoredTogetherTest, AFullDiskIsToldOfEachFile) {
    failcall_arm("fchown", 20, ENOSPC, 1);
    const KRestored result = Restore();
    failcall_disarm();
    EXPECT_EQ(CountWith("before"), 19u);
    EXPECT_THAT(result.failures, ElementsAreArray(Failures(19, files, "No space left on device")));
    EXPECT_THAT(tree.List("p"), Not(Contains(HasSubstr(".inspp-"))));
}

} // namespace
