// SPDX-License-Identifier: MIT
//
// A user exchanges entries of a directory of theirs while a backup of it is made or put back: nothing
// of root's becomes theirs.
#include "../../../support/TemporaryTree.h"

#include <setup/state/KRestoration.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include <fcntl.h>
#include <sys/files/FileContent.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using KSETUP::KBackup;
using KSETUP::KRestoration;
using KSETUP::KRestored;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr uid_t theUser = 65534;

class BackupRightsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        if (::geteuid() != 0) {
            GTEST_SKIP() << "needs root";
        }
        tree.Directory("home");
        tree.SetOwner("home", theUser, theUser);
    }
    void Save(const std::string& path) {
        KSETUP::KBackupWish wish;
        wish.run = "1";
        wish.paths = {tree.Path(path)};
        backup.Save(wish);
    }
    KRestored Restore() {
        const auto kept = backup.Open("1");
        KRestoration restoration(*kept, backup);
        restoration.PutBack();
        return restoration.GetResult();
    }
    void GivenUsers(const std::string& path) { tree.SetOwner(path, theUser, theUser); }
    void Exchange(const std::string& one, const std::string& other) const {
        ::renameat2(
            AT_FDCWD, tree.Path(one).c_str(), AT_FDCWD, tree.Path(other).c_str(), RENAME_EXCHANGE
        );
    }

    KTEST::TemporaryTree tree;
    KBackup backup{"dps", tree.Path("base")};
};

/// Whose a path was when it was looked at, and what was read there next: the way by names.
bool MixesUpByName(const std::string& path) {
    struct stat status {};
    ::lstat(path.c_str(), &status);
    std::this_thread::yield(); // on a machine that is busy the user has a turn now and then
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    char first = '\0';
    static_cast<void>(::read(file, &first, 1) == 1);
    ::close(file);
    return status.st_uid == theUser && first == 's';
}

TEST_F(BackupRightsTest, TheOwnerThatIsKeptIsThatOfTheBytesThatAreKept) {
    tree.Write("home/secret", "secret", 0600);
    tree.Write("home/own", "own");
    GivenUsers("home/own");
    std::atomic<bool> isDone{false};
    std::thread user([&] {
        while (!isDone) {
            Exchange("home/secret", "home/own");
        }
    });
    unsigned mixedUpByName = 0;
    unsigned mixedUp = 0;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    for (int round = 0; round < 8 || (mixedUpByName == 0 && std::chrono::steady_clock::now() < end);
         ++round) {
        for (int time = 0; time < 30; ++time) {
            mixedUpByName += MixesUpByName(tree.Path("home/own")) ? 1U : 0U;
        }
        Save("home/own");
        const auto kept = backup.Open("1");
        const auto& entry = kept->index.entries.at(tree.Path("home/own"));
        mixedUp += entry.owner == theUser && entry.size == 6 ? 1U : 0U; // as the secret has bytes
        backup.Discard();
    }
    isDone = true;
    user.join();
    EXPECT_GT(mixedUpByName, 0U) << "the attack on the way by names";
    EXPECT_EQ(mixedUp, 0U);
}

TEST_F(BackupRightsTest, ADirectoryThatWasPutInThePlaceOfAnotherIsNotGivenAway) {
    tree.Directory("home/data", 0755);
    GivenUsers("home/data");
    Save("home/data");
    tree.Write("home/roots/secret", "secret", 0600);
    tree.Directory("home/roots", 0700);
    Exchange("home/data", "home/roots");
    const KRestored result = Restore();
    EXPECT_EQ(tree.Status("home/data").st_uid, 0U);
    EXPECT_EQ(tree.Mode("home/data"), 0700U);
    ASSERT_EQ(result.failures.size(), 1U);
    EXPECT_THAT(
        result.failures[0].English(),
        HasSubstr("put back the owner and mode of " + tree.Path("home/data"))
    );
    EXPECT_THAT(result.failures[0].English(), HasSubstr("(chown 65534:65534, chmod 0755)"));
    // As it advises; by name that gives it away, which is why a person is to look first.
    tree.SetOwner("home/data", theUser, theUser);
    tree.SetMode("home/data", 0755);
    EXPECT_THAT(Restore().failures, IsEmpty());
}

TEST_F(BackupRightsTest, ADirectoryThatIsGoneIsMadeAgainWithItsOwner) {
    tree.Directory("home/data", 0750);
    GivenUsers("home/data");
    Save("home/data");
    tree.Remove("home/data");
    EXPECT_THAT(Restore().failures, IsEmpty());
    EXPECT_EQ(tree.Status("home/data").st_uid, theUser);
    EXPECT_EQ(tree.Mode("home/data"), 0750U);
}

TEST_F(BackupRightsTest, AModeThatTheRunChangedOfAUsersDirectoryIsPutBack) {
    tree.Directory("home/data", 0750);
    GivenUsers("home/data");
    Save("home/data");
    tree.Write("home/data/file", "");
    tree.SetMode("home/data", 0700);
    EXPECT_THAT(Restore().failures, IsEmpty());
    EXPECT_EQ(tree.Mode("home/data"), 0750U);
}

TEST_F(BackupRightsTest, WhatStandsInThePlaceOfALinkIsNotGivenAway) {
    tree.Write("home/roots", "secret", 0600);
    tree.Link("home/link", "anywhere");
    const timespec then{1000000, 7};
    EXPECT_EQ(
        KSYS::SetOwnerAndTime(tree.Path("home/roots"), theUser, theUser, then), unsigned{EEXIST}
    );
    EXPECT_EQ(tree.Status("home/roots").st_uid, 0U);
    EXPECT_EQ(KSYS::SetOwnerAndTime(tree.Path("home/link"), theUser, theUser, then), 0U);
    EXPECT_EQ(tree.Status("home/link").st_uid, theUser);
    EXPECT_EQ(tree.Status("home/link").st_mtim.tv_sec, 1000000);
    EXPECT_EQ(KSYS::SetOwnerAndTime(tree.Path("home/link"), 0, 0, then), unsigned{EEXIST})
        << "one of the user's is not what was just made";
    ASSERT_EQ(::lchown(tree.Path("home/roots").c_str(), theUser, theUser), 0);
    EXPECT_EQ(tree.Status("home/roots").st_uid, theUser) << "the attack on the way by names";
}

} // namespace
