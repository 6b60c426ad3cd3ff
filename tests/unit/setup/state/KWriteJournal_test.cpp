// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/state/KWriteJournal.h>
#include <sup++/SvcFile.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using KSETUP::KWriteJournal;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// What the libraries do to the disk, and what a journal knows of it.
class KWriteJournalTest : public ::testing::Test {
  protected:
    std::string Base() const { return tree.Path("base"); }
    void Make(const std::string& relative) {
        ASSERT_EQ(SvcCreateDirectory(0, tree.Path(relative).c_str(), 1), 0U);
    }
    void Remove(const std::string& relative) {
        ASSERT_EQ(SvcDeleteDirectory(0, tree.Path(relative).c_str(), 0), 0U);
    }
    static std::vector<std::string> MadeAfter(KWriteJournal::Begin begin, const std::string& base) {
        return KWriteJournal("dps", begin, {}, base).GetMade();
    }

    KTEST::TemporaryTree tree;
};

TEST_F(KWriteJournalTest, KnowsWhatIsMadeAndNotWhatIsFound) {
    tree.Directory("found");
    const KWriteJournal journal("dps", KWriteJournal::Begin::Anew, {}, Base());
    Make("found");
    Make("made/below");
    EXPECT_THAT(journal.GetMade(), ElementsAre(tree.Path("made"), tree.Path("made/below")));
    EXPECT_EQ(journal.GetErrorNumber(), 0);
}

TEST_F(KWriteJournalTest, ForgetsWhatIsDeletedAgain) {
    const KWriteJournal journal("dps", KWriteJournal::Begin::Anew, {}, Base());
    Make("a");
    Make("b");
    Remove("a");
    EXPECT_THAT(journal.GetMade(), ElementsAre(tree.Path("b")));
}

TEST_F(KWriteJournalTest, KeepsApartWhatChangesLater) {
    KWriteJournal journal("dps", KWriteJournal::Begin::Anew, {}, Base());
    Make("a");
    Make("b");
    EXPECT_THAT(journal.GetLater(), IsEmpty());
    journal.BeginLater();
    Make("c//");
    Remove("b");
    EXPECT_THAT(journal.GetLater(), ElementsAre(tree.Path("b"), tree.Path("c")));
    EXPECT_THAT(journal.GetMade(), ElementsAre(tree.Path("a"), tree.Path("c")));
}

TEST_F(KWriteJournalTest, WhoIsToldOfAllThatWasMadeMayMakeMore) {
    const KWriteJournal journal("dps", KWriteJournal::Begin::Anew, {}, Base());
    const int count = 1000; // more than is taken at once
    for (int number = 0; number < count; ++number) {
        Make("d" + std::to_string(number));
    }
    std::vector<std::string> told;
    journal.ForEachMade([&](const std::string& path) {
        told.push_back(path);
        if (told.size() == 1) {
            Make("before"); // which comes earlier
            Remove("d999"); // which would come last
        }
    });
    EXPECT_EQ(told.size(), count - 1U);
    EXPECT_THAT(told, ::testing::WhenSorted(told));
    EXPECT_EQ(journal.GetMade().size(), std::size_t{count});
}

TEST_F(KWriteJournalTest, NamesAPathInOneWay) {
    const KWriteJournal journal("dps", KWriteJournal::Begin::Anew, {}, Base());
    Make("a//x/../b");
    EXPECT_THAT(journal.GetMade(), ElementsAre(tree.Path("a"), tree.Path("a/b"), tree.Path("a/x")));
}

TEST_F(KWriteJournalTest, HearsNothingOnceItIsGone) {
    { const KWriteJournal journal("dps", KWriteJournal::Begin::Anew, {}, Base()); }
    Make("a");
    EXPECT_THAT(MadeAfter(KWriteJournal::Begin::GoOn, Base()), IsEmpty());
}

TEST_F(KWriteJournalTest, ARunThatGoesOnKnowsWhatAnInterruptedOneDid) {
    {
        const KWriteJournal journal("dps", KWriteJournal::Begin::Anew, {}, Base());
        Make("a");
        Make("b");
        Remove("b");
    }
    const KWriteJournal journal("dps", KWriteJournal::Begin::GoOn, {}, Base());
    Make("a"); // finds it
    Make("c");
    EXPECT_THAT(journal.GetMade(), ElementsAre(tree.Path("a"), tree.Path("c")));
    EXPECT_FALSE(journal.IsMadeNow(tree.Path("a"))); // what stands there may be half of it
    EXPECT_TRUE(journal.IsMadeNow(tree.Path("c")));
    EXPECT_FALSE(journal.IsMadeNow(tree.Path("b")));
}

TEST_F(KWriteJournalTest, DirectoriesAreInTheFileAtOnce) {
    const KWriteJournal killed("dps", KWriteJournal::Begin::Anew, {}, Base());
    Make("a");
    EXPECT_EQ(tree.Read("base/dps/written"), "+" + tree.Path("a") + std::string(1, '\0'));
}

TEST_F(KWriteJournalTest, AChangeWhoseEntryAKillPreventedIsKnownByItsExpectation) {
    const std::vector<std::string> expected{tree.Path("made"), tree.Path("never")};
    {
        const KWriteJournal killed(
            "dps", KWriteJournal::Begin::Anew, {expected, {}, {}, {}}, Base()
        );
        tree.Directory("made"); // by nobody whom the journal hears
    }
    EXPECT_THAT(MadeAfter(KWriteJournal::Begin::GoOn, Base()), ElementsAre(tree.Path("made")));
}

TEST_F(KWriteJournalTest, AnEntryThatIsCutOffIsLeftOut) {
    tree.Write("base/dps/written", std::string("+/a\0+/b", 7), 0600);
    tree.SetMode("base", 0700);
    tree.SetMode("base/dps", 0700);
    EXPECT_THAT(MadeAfter(KWriteJournal::Begin::GoOn, Base()), ElementsAre("/a"));
}

TEST_F(KWriteJournalTest, ANewRunKnowsNothingOfFormerOnes) {
    {
        const KWriteJournal journal("dps", KWriteJournal::Begin::Anew, {}, Base());
        Make("a");
    }
    EXPECT_THAT(MadeAfter(KWriteJournal::Begin::Anew, Base()), IsEmpty());
}

TEST_F(KWriteJournalTest, TheEndTakesTheFileAway) {
    KWriteJournal journal("dps", KWriteJournal::Begin::Anew, {}, Base());
    Make("a");
    journal.End();
    EXPECT_FALSE(tree.Exists("base/dps/written"));
    EXPECT_THAT(journal.GetMade(), ElementsAre(tree.Path("a")));
}

} // namespace
