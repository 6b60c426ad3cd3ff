// SPDX-License-Identifier: MIT
#include "../../../faults/failcall.h"
#include "../../../support/TemporaryTree.h"

#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/KSetupStop.h>
#include <setup/state/KRestoration.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <fstream>
#include <functional>
#include <stdexcept>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace {

using KSETUP::KBackup;
using KSETUP::KBackupWish;
using KSETUP::KRestoration;
using KSETUP::KRestored;
using KSETUP::KSetupFailure;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class KBackupTest : public ::testing::Test {
  protected:
    void SetUp() override {
        tree.Write("p/lib/large", large, 0755);
        tree.Write("p/conf\xFF", "key=value\n", 0640);
        tree.SetOwner("p/conf\xFF", 12, 34);
        tree.Link("p/link", "lib/large");
    }
    KBackupWish Wish(const std::string& run, const std::vector<const char*>& paths) const {
        KBackupWish wish;
        wish.run = run;
        for (const char* path : paths) {
            wish.paths.push_back(tree.Path(path));
        }
        return wish;
    }
    void Save(const std::string& run = "1") {
        backup.Save(Wish(run, {"p/lib/large", "p/conf\xFF", "p/link", "p/new", "p/made/sub/file"}));
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
    /// A whole run, of which is known what it left.
    void SaveAndUpgrade() {
        Save();
        Upgrade();
        backup.NoteLeft({tree.Path("p/made/sub/file")});
    }
    KRestored
    Restore(const std::string& run = "1", const std::function<bool()>& shallStop = {}) const {
        const auto kept = backup.Open(run);
        if (!kept) {
            throw std::runtime_error("no backup");
        }
        KRestoration restoration(*kept, backup);
        restoration.PutBack(shallStop);
        return restoration.GetResult();
    }
    std::vector<std::string> Edited() const {
        return KRestoration(*backup.Open("1"), backup).GetEdited();
    }

    KTEST::TemporaryTree tree;
    const std::string large = KTEST::ArbitraryBytes(200000);
    KBackup backup{"dps", tree.Path("base")};
};

TEST_F(KBackupTest, RestoringPutsEverythingBack) {
    const std::vector<std::string> before = tree.List("p");
    Save();
    Upgrade();
    const KRestored result = Restore();
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
    Restore();
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
    Restore();
    std::array<char, 8> value{};
    EXPECT_EQ(::getxattr(path.c_str(), "user.note", value.data(), value.size()), 4);
    EXPECT_STREQ(value.data(), "text");
}

TEST_F(KBackupTest, RestoringCanBeRepeated) {
    const std::vector<std::string> before = tree.List("p");
    Save();
    Upgrade();
    Restore();
    tree.Write("p/lib/large", "written in place", 0755);
    const KRestored result = Restore();
    EXPECT_EQ(tree.List("p"), before);
    EXPECT_THAT(result.failures, IsEmpty());
    EXPECT_EQ(result.deleted, 0u);
}

TEST_F(KBackupTest, ASmallFileIsSafeFromBeingWrittenInPlace) {
    Save();
    const int file = ::open(tree.Path("p/conf\xFF").c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
    ::close(file);
    Restore();
    EXPECT_EQ(tree.Read("p/conf\xFF"), "key=value\n");
}

TEST_F(KBackupTest, AFileInAMadeDirectoryKeepsIt) {
    Save();
    Upgrade();
    tree.Write("p/made/sub/data", "the user's");
    const KRestored result = Restore();
    EXPECT_THAT(result.kept, ElementsAre(tree.Path("p/made/sub"), tree.Path("p/made")));
    EXPECT_THAT(tree.List("p/made"), ElementsAre("d 0755 sub", "f 0644 sub/data \"the user's\""));
    EXPECT_THAT(result.failures, IsEmpty());
}

TEST_F(KBackupTest, WhatFailsIsToldAndTheRestGoesOn) {
    Save();
    Upgrade();
    tree.Remove("p/link");
    tree.Write("p/link/inside", "in the way");
    const KRestored result = Restore();
    EXPECT_THAT(
        result.failures, ElementsAre("cannot put back " + tree.Path("p/link") + ": Is a directory")
    );
    EXPECT_EQ(tree.Read("p/lib/large"), large);
    EXPECT_THAT(tree.List("p"), Not(Contains(HasSubstr(".inspp-"))));
}

TEST_F(KBackupTest, AnEmptyDirectoryInTheWayGoes) {
    Save();
    Upgrade();
    tree.Remove("p/link");
    tree.Directory("p/link");
    EXPECT_THAT(Restore().failures, IsEmpty());
    EXPECT_EQ(tree.LinkTarget("p/link"), "lib/large");
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
    EXPECT_THAT(Restore().failures, IsEmpty());
    EXPECT_EQ(tree.Read("elsewhere/sub/file"), "precious");
    EXPECT_THAT(tree.List("elsewhere2"), IsEmpty());
    EXPECT_EQ(tree.Read("p/lib/large"), large); // the directory is one again
}

TEST_F(KBackupTest, RestoringStopsOnRequest) {
    Save();
    Upgrade();
    const std::vector<std::string> upgraded = tree.List("p");
    EXPECT_TRUE(Restore("1", [] { return true; }).stopped);
    EXPECT_EQ(tree.List("p"), upgraded);
}

TEST_F(KBackupTest, TheBackupOfTheLastRunIsThereUntilALaterOneIsDone) {
    const std::vector<std::string> before = tree.List("p");
    SaveAndUpgrade();
    backup.Commit();
    Save("2");
    EXPECT_TRUE(backup.Open("1"));
    EXPECT_TRUE(backup.Open("2"));
    EXPECT_EQ(backup.GetBegunRun(), "2");
    Restore("1");
    EXPECT_EQ(tree.List("p"), before);
    backup.Commit();
    EXPECT_FALSE(backup.Open("1"));
    EXPECT_TRUE(backup.Open("2"));
    EXPECT_EQ(backup.GetBegunRun(), "");
}

TEST_F(KBackupTest, ABackupThatWasNotCommittedAnyMoreIsCommittedBeforeTheNextRun) {
    SaveAndUpgrade();
    EXPECT_EQ(backup.GetDoneRun(), "1");
    backup.Tidy(false);
    EXPECT_EQ(backup.GetDoneRun(), "1");
    EXPECT_TRUE(tree.Exists("base/dps/backup/index"));
    EXPECT_FALSE(tree.Exists("base/dps/backup.next"));
}

TEST_F(KBackupTest, ABackupOfARunThatNeverBeganGoesBeforeTheNextRun) {
    Save("1");
    EXPECT_EQ(backup.GetDoneRun(), "");
    backup.Tidy(false);
    EXPECT_FALSE(backup.Exists());
}

TEST_F(KBackupTest, ABackupOfAnInterruptedRunThatIsNotGoneOnWithGoesBeforeTheNextRun) {
    SaveAndUpgrade();
    backup.Tidy(true);
    EXPECT_FALSE(backup.Exists());
}

TEST_F(KBackupTest, ABackupThatCannotBeLookedAtNowIsNotTakenForHalfOfOne) {
    SaveAndUpgrade();
    for (const unsigned nth : {1U, 2U}) { // its index, and what the run left
        bool isRefused = false;
        failcall_arm("fstatat", nth, EIO, 0);
        try {
            backup.Tidy(false);
        } catch (const KSetupFailure&) {
            isRefused = true;
        }
        failcall_disarm();
        EXPECT_TRUE(isRefused) << nth;
        EXPECT_EQ(backup.GetDoneRun(), "1") << nth;
    }
}

TEST_F(KBackupTest, AFailedBackupKeepsTheFormer) {
    const std::vector<std::string> before = tree.List("p");
    Save();
    Upgrade();
    try {
        backup.Save(Wish("1", {"p/new", std::string(300, 'n').c_str()}));
        ADD_FAILURE() << "a name that is too long was kept";
    } catch (const KSetupFailure& failure) {
        EXPECT_EQ(failure.GetExitCode(), KSETUP::ExitCode::cannotWrite);
        EXPECT_THAT(failure.what(), HasSubstr("cannot keep a copy of"));
    }
    EXPECT_FALSE(tree.Exists("base/dps/backup.new"));
    Restore();
    EXPECT_EQ(tree.List("p"), before);
}

TEST_F(KBackupTest, AStoppedBackupKeepsTheFormer) {
    Save();
    int asked = 0;
    EXPECT_THROW(
        backup.Save(Wish("1", {"p/new", "p/link"}), [&] { return ++asked == 2; }),
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
    backup.Save(Wish("1", {"p/lib/large", "p/conf\xFF", "p/other"}));
    tree.Write("p/other", "new");
    EXPECT_THAT(Restore().failures, IsEmpty());
    EXPECT_EQ(tree.List("p"), before);
}

TEST_F(KBackupTest, ALargeFileThatIsWrittenToInItsPlaceIsKeptAsItWas) {
    Save();
    std::ofstream(tree.Path("p/lib/large"), std::ios::app) << "more";
    EXPECT_THAT(Restore().failures, IsEmpty());
    EXPECT_EQ(tree.Read("p/lib/large"), large);
}

TEST_F(KBackupTest, NothingIsEditedWhereTheRunLeftItOrItIsAsItWasBefore) {
    SaveAndUpgrade();
    EXPECT_THAT(Edited(), IsEmpty());
    Restore();
    EXPECT_THAT(Edited(), IsEmpty());
}

TEST_F(KBackupTest, WhatWasTouchedAndHasItsContentStillIsNotEdited) {
    SaveAndUpgrade();
    tree.Write("p/new", "new", 0600);
    EXPECT_THAT(Edited(), IsEmpty());
}

TEST_F(KBackupTest, WhatWasEditedReplacedOrMadeAnewSinceIsNamed) {
    SaveAndUpgrade();
    tree.Write("p/new", "NEW"); // of the same size
    tree.Remove("p/link");
    tree.Link("p/link", "elsewhere");
    tree.Write("p/lib/large", "made where the run deleted it");
    EXPECT_THAT(
        Edited(), ElementsAre(tree.Path("p/lib/large"), tree.Path("p/link"), tree.Path("p/new"))
    );
}

TEST_F(KBackupTest, WhatWasEditedIsKeptBesideUnderAFreeName) {
    SaveAndUpgrade();
    tree.Write("p/conf\xFF", "mine\n");
    tree.Write("p/conf\xFF.edited", "older\n");
    tree.Write("p/made/sub/file", "mine too");
    const KRestored result = Restore();
    EXPECT_THAT(
        result.edited,
        ElementsAre(
            std::pair(tree.Path("p/conf\xFF"), tree.Path("p/conf\xFF.edited.2")),
            std::pair(tree.Path("p/made/sub/file"), tree.Path("p/made/sub/file.edited"))
        )
    );
    EXPECT_EQ(tree.Read("p/conf\xFF"), "key=value\n");
    EXPECT_EQ(tree.Read("p/conf\xFF.edited"), "older\n");
    EXPECT_EQ(tree.Read("p/conf\xFF.edited.2"), "mine\n");
    EXPECT_EQ(tree.Read("p/made/sub/file.edited"), "mine too");
}

TEST_F(KBackupTest, WhatOthersMadeWhereTheRunMadeNothingStays) {
    Save(); // and the run came to nothing of it
    backup.NoteLeft({});
    tree.Write("p/new", "the user's");
    tree.Write("p/made/sub/data", "the user's");
    const KRestored result = Restore();
    EXPECT_EQ(tree.Read("p/new"), "the user's");
    EXPECT_EQ(tree.Read("p/made/sub/data"), "the user's");
    EXPECT_EQ(result.deleted, 0u);
    EXPECT_THAT(result.kept, IsEmpty());
}

TEST_F(KBackupTest, WhatTheRunMadeUnexpectedlyIsNamed) {
    Save();
    tree.Write("p/unexpected", "new");
    backup.NoteLeft({tree.Path("p/unexpected")});
    EXPECT_THAT(Restore().kept, ElementsAre(tree.Path("p/unexpected")));
}

TEST_F(KBackupTest, WhatNobodyTouchedIsLeftAlone) {
    Save();
    backup.NoteLeft({});
    const struct stat before = tree.Status("p/lib/large");
    const auto kept = backup.Open("1");
    EXPECT_FALSE(KRestoration(*kept, backup).HasWork());
    EXPECT_EQ(Restore().putBack, 0u);
    EXPECT_EQ(tree.Status("p/lib/large").st_ino, before.st_ino);
}

TEST_F(KBackupTest, ADirectoryThatBecameALinkIsADirectoryAgainAndNothingGoesThroughTheLink) {
    tree.Write("p/lib/small", "small");
    const std::vector<std::string> before = tree.List("p");
    backup.Save(Wish("1", {"p/lib/large", "p/lib/small", "p/lib/new"}));
    tree.Remove("p/lib");
    tree.Write("elsewhere/new", "precious");
    tree.Link("p/lib", tree.Path("elsewhere"));
    backup.NoteLeft({tree.Path("p/lib")});
    EXPECT_THAT(Restore().failures, IsEmpty());
    EXPECT_EQ(tree.List("p"), before);
    EXPECT_EQ(tree.Read("elsewhere/new"), "precious");
}

TEST_F(KBackupTest, AFileThatBecameADirectoryIsAFileAgain) {
    const std::vector<std::string> before = tree.List("p");
    backup.Save(Wish("1", {"p/lib/large", "p/lib/large/sub/file"}));
    tree.Remove("p/lib/large");
    tree.Write("p/lib/large/sub/file", "new");
    backup.NoteLeft({});
    EXPECT_THAT(Restore().failures, IsEmpty());
    EXPECT_EQ(tree.List("p"), before);
}

TEST_F(KBackupTest, TheRightsOfADirectoryAreAsTheyWere) {
    Save();
    ::chmod(tree.Path("p/lib").c_str(), 0700);
    backup.NoteLeft({});
    Restore();
    EXPECT_EQ(tree.Mode("p/lib"), 0755u);
}

TEST_F(KBackupTest, TheRightsThatSomebodyGaveADirectorySinceStay) {
    Save();
    backup.NoteLeft({});
    ::chmod(tree.Path("p/lib").c_str(), 0700);
    Restore();
    EXPECT_EQ(tree.Mode("p/lib"), 0700u);
}

TEST_F(KBackupTest, ADamagedBackupIsRefusedAndTheFileNamed) {
    SaveAndUpgrade();
    const std::vector<std::string> upgraded = tree.List("p");
    std::string path;
    const auto kept = backup.Open("1");
    for (const auto& [of, entry] : kept->index.entries) {
        if (of == tree.Path("p/lib/large")) {
            path = "base/dps/backup.next/" + entry.stored;
        }
    }
    std::ofstream(tree.Path(path), std::ios::app) << "x";
    try {
        Restore();
        ADD_FAILURE() << "a damaged backup was put back";
    } catch (const KSetupFailure& failure) {
        EXPECT_EQ(failure.GetExitCode(), KSETUP::ExitCode::malformedScript);
        EXPECT_EQ(
            failure.what(),
            "the backup is damaged: " + tree.Path(path) + " is not what was kept of " +
                tree.Path("p/lib/large") + ". Nothing was changed."
        );
    }
    EXPECT_EQ(tree.List("p"), upgraded);
}

TEST_F(KBackupTest, WhatTheProgramKeepsForItselfIsPutBackLastAndNotCounted) {
    tree.Write("base/dps/manifest", "former", 0600);
    tree.Write("base/dps/kit/install.ini", "former", 0600);
    backup.Save(Wish("1", {"p/new", "base/dps/manifest", "base/dps/kit/install.ini"}));
    tree.Write("base/dps/manifest", "newer!", 0600);
    tree.Write("base/dps/kit/install.ini", "newer!", 0600);
    tree.Write("base/dps/kit/added/file", "new", 0600);
    backup.NoteLeft({});
    const auto kept = backup.Open("1");
    KRestoration restoration(*kept, backup);
    EXPECT_FALSE(restoration.HasWork());
    restoration.PutBack();
    EXPECT_EQ(tree.Read("base/dps/manifest"), "newer!");
    restoration.PutBackOwn();
    EXPECT_EQ(tree.Read("base/dps/manifest"), "former");
    EXPECT_EQ(tree.Read("base/dps/kit/install.ini"), "former");
    EXPECT_FALSE(tree.Exists("base/dps/kit/added"));
    EXPECT_EQ(restoration.GetResult().putBack, 0u);
    EXPECT_EQ(restoration.GetResult().deleted, 0u);
}

TEST_F(KBackupTest, AKeptKitThatCannotBeListedIsToldAndTheFormerStateWaits) {
    tree.Write("base/dps/state", "former", 0600);
    backup.Save(Wish("1", {"base/dps/state"}));
    tree.Write("base/dps/state", "restoring", 0600);
    tree.Write("base/dps/kit/added", "new", 0600);
    backup.NoteLeft({});
    const auto kept = backup.Open("1");
    KRestoration restoration(*kept, backup);
    failcall_arm("readdir", 1, EIO, 0);
    restoration.PutBackOwn();
    failcall_disarm();
    ASSERT_EQ(restoration.GetResult().failures.size(), 1U);
    EXPECT_THAT(
        restoration.GetResult().failures[0].English(), HasSubstr("/dps/kit: Input/output error")
    );
    EXPECT_EQ(tree.Read("base/dps/state"), "restoring");
}

TEST_F(KBackupTest, WhatFailsToBeFlushedIsToldAndTheFormerStateWaits) {
    tree.Write("base/dps/state", "former", 0600);
    backup.Save(Wish("1", {"p/conf\xFF", "base/dps/state"}));
    tree.Write("base/dps/state", "restoring", 0600);
    backup.NoteLeft({});
    const auto kept = backup.Open("1");
    KRestoration restoration(*kept, backup);
    failcall_arm("syncfs", 1, EIO, 0);
    restoration.PutBack(); // of which nothing is to do
    restoration.PutBackOwn();
    failcall_disarm();
    EXPECT_THAT(
        restoration.GetResult().failures,
        ElementsAre("cannot flush what was put back: Input/output error")
    );
    EXPECT_EQ(tree.Read("base/dps/state"), "restoring");
}

TEST_F(KBackupTest, ServicesAreKnownAsTheyWereBeforeTheFirstOfTheseRuns) {
    KBackupWish wish = Wish("1", {"p/new"});
    wish.hasCommands = true;
    wish.services = {{"one", true, true}, {"image", std::nullopt, false}};
    backup.Save(wish);
    wish.hasCommands = false;
    wish.services = {{"one", false, true}, {"two", false, false}};
    backup.Save(wish);
    const auto kept = backup.Open("1");
    EXPECT_TRUE(kept->index.hasCommands);
    ASSERT_EQ(kept->index.services.size(), 3u);
    EXPECT_EQ(kept->index.services[0].ran, true);
    EXPECT_TRUE(kept->index.services[0].isInstalled);
    EXPECT_EQ(kept->index.services[1].ran, std::nullopt);
    EXPECT_EQ(kept->index.services[2].name, "two");
    EXPECT_FALSE(kept->index.services[2].isInstalled);
}

TEST_F(KBackupTest, WhatAKilledBackupLeftIsNoBackup) {
    tree.Write("base/dps/backup.new/0", "half", 0600);
    EXPECT_FALSE(backup.Exists());
    Save();
    EXPECT_TRUE(backup.Exists());
    EXPECT_FALSE(tree.Exists("base/dps/backup.new"));
}

TEST_F(KBackupTest, HalfADeletedBackupIsNoneAndGoesWithTheNextDeletion) {
    Save();
    backup.Commit();
    tree.Remove("base/dps/backup/index");
    EXPECT_FALSE(backup.Open("1"));
    EXPECT_FALSE(backup.Exists());
    backup.Delete("1");
    EXPECT_FALSE(tree.Exists("base/dps/backup"));
}

TEST_F(KBackupTest, KeptFilesAreNotForOthers) {
    Save();
    EXPECT_EQ(tree.Mode("base/dps/backup.next"), 0700u);
    EXPECT_EQ(tree.Mode("base/dps/backup.next/index"), 0600u);
}

TEST_F(KBackupTest, ADiscardedBackupIsGone) {
    EXPECT_NO_THROW(backup.Discard());
    Save();
    backup.Discard();
    EXPECT_FALSE(backup.Exists());
    EXPECT_FALSE(backup.Open("1"));
}

class NoIndexTest : public KBackupTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(NoIndexTest, IsAClearFailureThatChangesNothing) {
    Save();
    Upgrade();
    const std::vector<std::string> upgraded = tree.List("p");
    tree.Write("base/dps/backup.next/index", GetParam(), 0600);
    EXPECT_THROW(Restore(), KSetupFailure);
    EXPECT_EQ(tree.List("p"), upgraded);
}

#define HEAD "{\"format\":\"ins++ backup\",\"formatVersion\":2,\"run\":\"1\"}\n"

INSTANTIATE_TEST_SUITE_P(
    Texts,
    NoIndexTest,
    ::testing::Values(
        "",
        "nonsense",
        "{\"entries\":0}\n", // of a version that gave runs no names
        HEAD "",
        HEAD "{\"entries\":1}\n",
        HEAD "{\"kind\":\"nothing\",\"path\":\"relative\"}\n{\"entries\":1}\n",
        HEAD "{\"kind\":\"other\",\"path\":\"/a\"}\n{\"entries\":1}\n",
        HEAD "{\"kind\":\"file\",\"path\":\"/a\"}\n{\"entries\":1}\n",
        HEAD
        "{\"changed\":0,\"changedNs\":0,\"group\":0,\"kind\":\"file\",\"mode\":420,\"owner\":0,"
        "\"path\":\"/a\",\"stored\":\"../x\"}\n{\"entries\":1}\n",
        HEAD "{\"entries\":0}\n{\"entries\":0}\n"
    )
);

TEST_F(KBackupTest, WhatCouldNotBeNotedIsNotTakenForEdited) {
    Save();
    Upgrade();
    bool isRefused = false;
    failcall_arm("fstatat", 1, ENOMEM, 1);
    try {
        backup.NoteLeft({tree.Path("p/made/sub/file")});
    } catch (const KSETUP::KSetupFailure&) {
        isRefused = true;
    }
    failcall_disarm();
    EXPECT_TRUE(isRefused);
    EXPECT_THAT(Edited(), IsEmpty());
}

} // namespace
