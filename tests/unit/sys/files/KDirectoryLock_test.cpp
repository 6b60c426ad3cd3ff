// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"
#include "../../sup++/Common.h"

#include <chrono>
#include <filesystem>
#include <set>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/files/DirectoryEntry.h>
#include <sys/files/KDirectoryLock.h>
#include <unistd.h>

namespace KTEST {
namespace {

using KSYS::KDescriptor;
using KSYS::KDirectoryLock;
using KSYS::LockPlaces;
using KSYS::MissingPlace;

class KDirectoryLockTest : public testing::Test {
  protected:
    KDirectoryLockTest() { tree.Directory("d"); }

    LockPlaces Places() const { return {::geteuid(), {tree.Path("locks")}}; }
    KDescriptor Open(const std::string& relative) const {
        KDescriptor directory;
        EXPECT_EQ(KSYS::OpenDirectoryEntry(tree.Path(relative) + "/.", directory), 0U);
        return directory;
    }
    /// The names of the files that were made for locks.
    std::set<std::string> Files() const {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(tree.Path("locks"))) {
            names.insert(entry.path().filename().string());
        }
        return names;
    }
    /// Whether somebody holds what stands there, be it a file or a directory.
    bool IsHeld(const std::string& relative) const {
        const KDescriptor file(::open(tree.Path(relative).c_str(), O_RDONLY | O_CLOEXEC));
        EXPECT_TRUE(file.IsOpen());
        return ::flock(file.Get(), LOCK_EX | LOCK_NB) != 0;
    }
    unsigned OpenPlace(const LockPlaces& places) {
        KDescriptor place;
        return KSYS::OpenLockPlace(places, MissingPlace::IsMade, place, opened);
    }
    TemporaryTree tree;
    std::string opened;
};

TEST_F(KDirectoryLockTest, IsAFileForItsUserAloneInADirectoryForThatUserAlone) {
    const KDescriptor directory = Open("d");
    KDirectoryLock lock(Places());
    ASSERT_EQ(lock.Take(directory.Get()), 0U);
    ASSERT_EQ(Files().size(), 1U);
    const std::string file = "locks/" + *Files().begin();
    EXPECT_EQ(tree.Mode("locks"), 0700U);
    EXPECT_EQ(tree.Mode(file), 0600U);
    EXPECT_TRUE(IsHeld(file));
    EXPECT_FALSE(IsHeld("d")); // it was, and anybody who may read it could hold it
}

/// What an unprivileged user can do to the place, beside what they could to a lock on the directory.
TEST_F(KDirectoryLockTest, CannotBeHeldByAnotherUser) {
    if (!IsRoot()) {
        GTEST_SKIP() << "needs root";
    }
    tree.SetMode("", 0755);
    const KDescriptor directory = Open("d");
    { ASSERT_EQ(KDirectoryLock(Places()).Take(directory.Get()), 0U); }
    const std::string file = "locks/" + *Files().begin();
    KDescriptor old;
    KDescriptor now;
    AsNobody([&] {
        old.Reset(::open(tree.Path("d").c_str(), O_RDONLY | O_CLOEXEC));
        now.Reset(::open(tree.Path(file).c_str(), O_RDONLY | O_CLOEXEC));
    });
    EXPECT_EQ(::flock(old.Get(), LOCK_EX | LOCK_NB), 0) << "the attack on the directory";
    EXPECT_FALSE(now.IsOpen());
    KDirectoryLock lock(Places());
    EXPECT_EQ(lock.Take(directory.Get()), 0U);
}

TEST_F(KDirectoryLockTest, IsTheSameByEveryPathToADirectory) {
    tree.Link("other", "d");
    const KDescriptor one = Open("d");
    const KDescriptor other = Open("other");
    { ASSERT_EQ(KDirectoryLock(Places()).Take(one.Get()), 0U); }
    { ASSERT_EQ(KDirectoryLock(Places()).Take(other.Get()), 0U); }
    EXPECT_EQ(Files().size(), 1U);
}

TEST_F(KDirectoryLockTest, LeavesFewFilesForManyDirectories) {
    for (int number = 0; number < 500; ++number) {
        const std::string name = "many/" + std::to_string(number);
        tree.Directory(name);
        const KDescriptor directory = Open(name);
        ASSERT_EQ(KDirectoryLock(Places()).Take(directory.Get()), 0U);
    }
    EXPECT_LE(Files().size(), 64U);
    EXPECT_GT(Files().size(), 32U) << "many directories would wait for each other";
}

TEST_F(KDirectoryLockTest, WaitsForTheOneWhoHoldsIt) {
    const KDescriptor directory = Open("d");
    auto former = std::make_unique<KDirectoryLock>(Places());
    ASSERT_EQ(former->Take(directory.Get()), 0U);
    std::atomic<bool> isTaken{false};
    std::thread other([&] {
        KDirectoryLock lock(Places());
        EXPECT_EQ(lock.Take(directory.Get()), 0U);
        isTaken = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(isTaken);
    former.reset();
    other.join();
    EXPECT_TRUE(isTaken);
}

TEST_F(KDirectoryLockTest, IsNeverAFileThatWasCleanedAwayMeanwhile) {
    const KDescriptor directory = Open("d");
    auto former = std::make_unique<KDirectoryLock>(Places());
    ASSERT_EQ(former->Take(directory.Get()), 0U);
    const std::string file = "locks/" + *Files().begin();
    KDirectoryLock lock(Places());
    std::thread other([&] { EXPECT_EQ(lock.Take(directory.Get()), 0U); });
    std::this_thread::sleep_for(std::chrono::milliseconds(50)); // it has the former file open
    tree.Remove(file);
    former.reset();
    other.join();
    ASSERT_TRUE(tree.Exists(file));
    EXPECT_TRUE(IsHeld(file));
}

TEST_F(KDirectoryLockTest, IsThatOfTheDirectoryWhereThereIsNoPlace) {
    const KDescriptor directory = Open("d");
    KDirectoryLock lock({::geteuid(), {tree.Path("missing/locks"), tree.Path("gone/locks")}});
    EXPECT_EQ(lock.Take(directory.Get()), 0U);
    EXPECT_TRUE(IsHeld("d"));
}

TEST_F(KDirectoryLockTest, TheNextPlaceIsTakenWhereTheFirstCannotBeMade) {
    const LockPlaces places{::geteuid(), {tree.Path("missing/locks"), tree.Path("second")}};
    EXPECT_EQ(OpenPlace(places), 0U);
    EXPECT_EQ(opened, tree.Path("second"));
    KDescriptor looking;
    EXPECT_EQ(KSYS::OpenLockPlace(places, MissingPlace::StaysMissing, looking, opened), 0U);
    EXPECT_EQ(opened, tree.Path("second"));
}

/// Who looks before the first run finds none, and is not sent on to a place that others can lay.
TEST_F(KDirectoryLockTest, APlaceThatIsOnlyMissingIsNotPassedOver) {
    tree.Directory("second", 0777);
    const LockPlaces places{::geteuid(), {tree.Path("first"), tree.Path("second")}};
    KDescriptor place;
    EXPECT_EQ(
        KSYS::OpenLockPlace(places, MissingPlace::StaysMissing, place, opened), unsigned{ENOENT}
    );
    EXPECT_EQ(opened, tree.Path("first"));
    EXPECT_FALSE(tree.Exists("first"));
}

/// What stands in the place of the directory, and how it is refused.
TEST_F(KDirectoryLockTest, WhatIsNotItsUsersAloneIsRefused) {
    for (const mode_t mode : {0701U, 0710U, 0722U, 0755U, 01777U}) {
        tree.Directory("locks", mode);
        EXPECT_EQ(OpenPlace(Places()), unsigned{ENOLCK}) << std::oct << mode;
    }
    tree.Remove("locks");
    tree.Write("locks", "");
    EXPECT_EQ(OpenPlace(Places()), unsigned{ENOLCK});
    tree.Remove("locks");
    tree.Directory("elsewhere", 0700);
    tree.Link("locks", "elsewhere");
    EXPECT_EQ(OpenPlace(Places()), unsigned{ENOLCK});
    tree.Remove("locks"); // as DescribeRefusedPlace says
    EXPECT_EQ(OpenPlace(Places()), 0U);
}

TEST_F(KDirectoryLockTest, ADirectoryOfAnotherUserIsRefusedAndNamed) {
    if (!IsRoot()) {
        GTEST_SKIP() << "needs root";
    }
    tree.Directory("locks", 0700);
    GiveToNobody(tree, "locks");
    EXPECT_EQ(OpenPlace(Places()), unsigned{ENOLCK});
    EXPECT_EQ(opened, tree.Path("locks"));
    EXPECT_THAT(
        KSYS::DescribeRefusedPlace(opened),
        testing::StartsWith(tree.Path("locks") + " is not a directory of this user's alone")
    );
}

TEST(LockPlacesTest, AreRootsInRunAndAnothersInTheirRuntimeDirectory) {
    EXPECT_THAT(
        LockPlaces::Of(0).directories,
        testing::ElementsAre("/run/ins++", "/var/lib/ins++.locks", "/tmp/ins++-0")
    );
    EXPECT_THAT(
        LockPlaces::Of(1000).directories,
        testing::ElementsAre("/run/user/1000/ins++", "/tmp/ins++-1000")
    );
}

} // namespace
} // namespace KTEST
