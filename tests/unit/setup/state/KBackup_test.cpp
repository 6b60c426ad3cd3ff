// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/KSetupStop.h>
#include <setup/state/KBackup.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <fstream>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {

using KSETUP::KBackup;
using KSETUP::KRestored;
using KSETUP::KSetupFailure;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class KBackupTest : public ::testing::Test {
  protected:
    void SetUp() override {
        tree.Write("p/lib/large", large, 0755);
        tree.Write("p/conf\xFF", "key=value\n", 0640);
        tree.SetOwner("p/conf\xFF", 12, 34);
        tree.Link("p/link", "lib/large");
    }
    void Save() {
        std::vector<std::string> paths;
        for (const char* path :
             {"p/lib/large", "p/conf\xFF", "p/link", "p/new", "p/made/sub/file"}) {
            paths.push_back(tree.Path(path));
        }
        backup.Save(paths);
    }
    /// Does to the tree what a run does: replaces by new files, deletes, makes.
    void Upgrade() {
        tree.Remove("p/lib");
        tree.Remove("p/conf\xFF");
        tree.Write("p/conf\xFF", "key=new\n");
        tree.Remove("p/link");
        tree.Link("p/link", "new");
        tree.Write("p/new", "new");
        tree.Write("p/made/sub/file", "new");
    }

    KTEST::TemporaryTree tree;
    const std::string large = KTEST::ArbitraryBytes(200000);
    KBackup backup{"dps", tree.Path("base")};
};

TEST_F(KBackupTest, RestoringPutsEverythingBack) {
    const std::vector<std::string> before = tree.List("p");
    Save();
    Upgrade();
    const KRestored result = backup.Restore();
    EXPECT_EQ(tree.List("p"), before);
    EXPECT_THAT(result.failures, IsEmpty());
    EXPECT_THAT(result.kept, IsEmpty());
    EXPECT_EQ(result.putBack, 4u); // two files, a link, and the directory lib
    EXPECT_EQ(result.deleted, 4u); // two files and the two directories that were made
    EXPECT_FALSE(result.stopped);
}

TEST_F(KBackupTest, RestoringKeepsOwnerAndTime) {
    const struct stat before = tree.Status("p/conf\xFF");
    Save();
    Upgrade();
    backup.Restore();
    const struct stat after = tree.Status("p/conf\xFF");
    EXPECT_EQ(after.st_uid, 12u);
    EXPECT_EQ(after.st_gid, 34u);
    EXPECT_EQ(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
    EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
}

TEST_F(KBackupTest, RestoringKeepsExtendedAttributes) {
    const std::string path = tree.Path("p/conf\xFF");
    if (::setxattr(path.c_str(), "user.note", "text", 4, 0) != 0) {
        GTEST_SKIP() << "the file system of the temporary tree has no extended attributes";
    }
    Save();
    Upgrade();
    backup.Restore();
    std::array<char, 8> value{};
    EXPECT_EQ(::getxattr(path.c_str(), "user.note", value.data(), value.size()), 4);
    EXPECT_STREQ(value.data(), "text");
}

TEST_F(KBackupTest, RestoringCanBeRepeated) {
    const std::vector<std::string> before = tree.List("p");
    Save();
    Upgrade();
    backup.Restore();
    tree.Write("p/lib/large", "written in place", 0755);
    const KRestored result = backup.Restore();
    EXPECT_EQ(tree.List("p"), before);
    EXPECT_THAT(result.failures, IsEmpty());
    EXPECT_EQ(result.deleted, 0u);
}

TEST_F(KBackupTest, ASmallFileIsSafeFromBeingWrittenInPlace) {
    Save();
    const int file = ::open(tree.Path("p/conf\xFF").c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
    ::close(file);
    backup.Restore();
    EXPECT_EQ(tree.Read("p/conf\xFF"), "key=value\n");
}

TEST_F(KBackupTest, AFileInAMadeDirectoryKeepsIt) {
    Save();
    Upgrade();
    tree.Write("p/made/sub/data", "the user's");
    const KRestored result = backup.Restore();
    EXPECT_THAT(result.kept, ElementsAre(tree.Path("p/made/sub"), tree.Path("p/made")));
    EXPECT_THAT(tree.List("p/made"), ElementsAre("d 0755 sub", "f 0644 sub/data \"the user's\""));
    EXPECT_THAT(result.failures, IsEmpty());
}

TEST_F(KBackupTest, WhatFailsIsToldAndTheRestGoesOn) {
    Save();
    Upgrade();
    tree.Remove("p/link");
    tree.Write("p/link/inside", "in the way");
    const KRestored result = backup.Restore();
    EXPECT_THAT(
        result.failures, ElementsAre("cannot put back " + tree.Path("p/link") + ": Is a directory")
    );
    EXPECT_EQ(tree.Read("p/lib/large"), large);
    EXPECT_FALSE(tree.Exists("p/.ins++-restore"));
}

TEST_F(KBackupTest, AnEmptyDirectoryInTheWayGoes) {
    Save();
    Upgrade();
    tree.Remove("p/link");
    tree.Directory("p/link");
    EXPECT_THAT(backup.Restore().failures, IsEmpty());
    EXPECT_EQ(tree.LinkTarget("p/link"), "lib/large");
}

TEST_F(KBackupTest, WhatAKilledRestoreLeftIsNotInTheWay) {
    Save();
    tree.Write("p/.ins++-restore", "half");
    EXPECT_THAT(backup.Restore().failures, IsEmpty());
    EXPECT_FALSE(tree.Exists("p/.ins++-restore"));
}

TEST_F(KBackupTest, ALinkThatAnotherUserLaidIsNotFollowed) {
    Save();
    Upgrade();
    tree.SetOwner("p", 65534, 65534);
    tree.Remove("p/made");
    tree.Write("elsewhere/sub/file", "precious");
    tree.Link("p/made", tree.Path("elsewhere"));
    tree.Directory("elsewhere2");
    tree.Link("p/lib", tree.Path("elsewhere2"));
    const KRestored result = backup.Restore();
    EXPECT_EQ(tree.Read("elsewhere/sub/file"), "precious");
    EXPECT_THAT(tree.List("elsewhere2"), IsEmpty());
    EXPECT_THAT(
        result.failures, Contains(HasSubstr("cannot put back " + tree.Path("p/lib/large")))
    );
}

TEST_F(KBackupTest, RestoringStopsOnRequest) {
    Save();
    Upgrade();
    const std::vector<std::string> upgraded = tree.List("p");
    EXPECT_TRUE(backup.Restore([] { return true; }).stopped);
    EXPECT_EQ(tree.List("p"), upgraded);
}

TEST_F(KBackupTest, ANewBackupReplacesTheFormer) {
    Save();
    Upgrade();
    const std::vector<std::string> upgraded = tree.List("p");
    Save();
    tree.Write("p/new", "newer");
    backup.Restore();
    EXPECT_EQ(tree.List("p"), upgraded);
    EXPECT_FALSE(tree.Exists("base/dps/backup.new"));
}

TEST_F(KBackupTest, AFailedBackupKeepsTheFormer) {
    const std::vector<std::string> before = tree.List("p");
    Save();
    Upgrade();
    try {
        backup.Save({tree.Path("p/new"), tree.Path(std::string(300, 'n'))});
        ADD_FAILURE() << "a name that is too long was kept";
    } catch (const KSetupFailure& failure) {
        EXPECT_EQ(failure.GetExitCode(), KSETUP::ExitCode::cannotWrite);
        EXPECT_THAT(failure.what(), HasSubstr("cannot keep a copy of"));
    }
    EXPECT_FALSE(tree.Exists("base/dps/backup.new"));
    backup.Restore();
    EXPECT_EQ(tree.List("p"), before);
}

TEST_F(KBackupTest, AStoppedBackupKeepsTheFormer) {
    Save();
    int asked = 0;
    EXPECT_THROW(
        backup.Save({tree.Path("p/new"), tree.Path("p/link")}, [&] { return ++asked == 2; }),
        KSETUP::KSetupStop
    );
    EXPECT_TRUE(backup.Exists());
    EXPECT_FALSE(tree.Exists("base/dps/backup.new"));
}

TEST_F(KBackupTest, ARunThatGoesOnKeepsWhatTheFormerOneKeptAndAddsToIt) {
    tree.Write("p/other", "former");
    const std::vector<std::string> before = tree.List("p");
    Save();
    Upgrade();
    backup.Save(
        {tree.Path("p/lib/large"), tree.Path("p/conf\xFF"), tree.Path("p/other")},
        {},
        {.addsToFormer = true}
    );
    tree.Write("p/other", "new");
    EXPECT_THAT(backup.Restore().failures, IsEmpty());
    EXPECT_EQ(tree.List("p"), before);
}

TEST_F(KBackupTest, AFileThatIsWrittenToInItsPlaceIsKeptAsItWas) {
    backup.Save({tree.Path("p/lib/large")}, {}, {.filesMayBeWrittenTo = true});
    std::ofstream(tree.Path("p/lib/large"), std::ios::app) << "more";
    EXPECT_THAT(backup.Restore().failures, IsEmpty());
    EXPECT_EQ(tree.Read("p/lib/large"), large);
}

TEST_F(KBackupTest, WhatAKilledBackupLeftIsNoBackup) {
    tree.Write("base/dps/backup.new/0", "half", 0600);
    EXPECT_FALSE(backup.Exists());
    Save();
    EXPECT_TRUE(backup.Exists());
    EXPECT_FALSE(tree.Exists("base/dps/backup.new"));
}

TEST_F(KBackupTest, KeptFilesAreNotForOthers) {
    Save();
    EXPECT_EQ(tree.Mode("base/dps/backup"), 0700u);
    EXPECT_EQ(tree.Mode("base/dps/backup/index"), 0600u);
}

TEST_F(KBackupTest, ADiscardedBackupIsGone) {
    EXPECT_NO_THROW(backup.Discard());
    Save();
    backup.Discard();
    EXPECT_FALSE(backup.Exists());
    EXPECT_THROW(backup.Restore(), KSetupFailure);
}

class NoIndexTest : public KBackupTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(NoIndexTest, IsAClearFailureThatChangesNothing) {
    Save();
    Upgrade();
    const std::vector<std::string> upgraded = tree.List("p");
    tree.Write("base/dps/backup/index", GetParam(), 0600);
    EXPECT_THROW(backup.Restore(), KSetupFailure);
    EXPECT_EQ(tree.List("p"), upgraded);
}

INSTANTIATE_TEST_SUITE_P(
    Texts,
    NoIndexTest,
    ::testing::Values(
        "",
        "nonsense",
        "{\"entries\":1}\n",
        "{\"kind\":\"nothing\",\"path\":\"relative\"}\n{\"entries\":1}\n",
        "{\"kind\":\"other\",\"path\":\"/a\"}\n{\"entries\":1}\n",
        "{\"kind\":\"file\",\"path\":\"/a\"}\n{\"entries\":1}\n",
        "{\"changed\":0,\"changedNs\":0,\"group\":0,\"kind\":\"file\",\"mode\":420,\"owner\":0,"
        "\"path\":\"/a\",\"stored\":\"../x\"}\n{\"entries\":1}\n",
        "{\"entries\":0}\n{\"entries\":0}\n"
    )
);

} // namespace
