// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/plan/KPlannedTree.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using KSETUP::IsPattern;
using KSETUP::KEntryKind;
using KSETUP::KPlannedEntry;
using KSETUP::KPlannedTree;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

KPlannedEntry AFile() {
    KPlannedEntry entry;
    entry.kind = KEntryKind::File;
    return entry;
}

class KPlannedTreeTest : public ::testing::Test {
  protected:
    KPlannedTreeTest() {
        disk.Write("kit/a.txt", "12345", 0640);
        disk.Write("kit/b.ini", "");
        disk.Write("kit/deep/c.txt", "");
        disk.Link("kit/link.txt", "a.txt");
        disk.Write("other/d.txt", "");
    }
    std::string At(const std::string& path) const { return disk.Path(path); }
    static std::vector<std::string> Values(const std::vector<KPlannedTree::Option>& options) {
        std::vector<std::string> values;
        for (const KPlannedTree::Option& option : options) {
            values.push_back(option.key + "=" + option.value);
        }
        return values;
    }

    KTEST::TemporaryTree disk;
    KPlannedTree tree{KPlannedTree::Below::Disk, disk.Path("kit")};
    KPlannedTree onlyKit{KPlannedTree::Below::Kit, disk.Path("kit")};
};

TEST_F(KPlannedTreeTest, FindsWhatIsOnTheDisk) {
    const KPlannedEntry file = tree.Find(At("kit/./deep/../a.txt"));
    EXPECT_EQ(file.kind, KEntryKind::File);
    EXPECT_EQ(file.bytes, 5U);
    EXPECT_EQ(file.mode, 0640U);
    EXPECT_EQ(tree.Find(At("kit/link.txt")).kind, KEntryKind::Link);
    EXPECT_EQ(tree.Find(At("kit/link.txt")).GetTarget(), "a.txt");
    EXPECT_EQ(tree.Find(At("kit/deep/")).kind, KEntryKind::Directory);
    EXPECT_FALSE(tree.Exists(At("none")));
}

TEST_F(KPlannedTreeTest, ADirectoryIsNotEmptyForWhatIsMadeDeepInIt) {
    tree.Put(At("far/deep/in/x"), AFile()); // its directories are missing, which is told once
    EXPECT_FALSE(tree.IsEmpty(At("far")));
    tree.Remove(At("far/deep/in/x"));
    EXPECT_TRUE(tree.IsEmpty(At("far")));
}

TEST_F(KPlannedTreeTest, ADirectoryIsEmptyOnlyWhenAllThatWasMadeBelowItIsGone) {
    static_cast<void>(tree.MakeDirectory(At("far/deep")));
    tree.Put(At("far/deep/x"), AFile());
    tree.Put(At("far/deep/y"), AFile());
    tree.Put(At("far/deep/y"), AFile());
    tree.Remove(At("far/deep/x"));
    EXPECT_FALSE(tree.IsEmpty(At("far/deep")));
    tree.Remove(At("far/deep/y"));
    EXPECT_TRUE(tree.IsEmpty(At("far/deep")));
    EXPECT_FALSE(tree.IsEmpty(At("far")));
    tree.Remove(At("far/deep"));
    EXPECT_TRUE(tree.IsEmpty(At("far")));
    tree.Put(At("far/deep/x"), AFile()); // although its directory went
    EXPECT_FALSE(tree.IsEmpty(At("far")));
}

TEST_F(KPlannedTreeTest, AWayThroughADirectoryThatGoesIsNoneAnyMore) {
    EXPECT_TRUE(tree.Exists(At("kit/deep/../a.txt")));
    tree.Remove(At("kit/deep/c.txt"));
    tree.Remove(At("kit/deep"));
    EXPECT_FALSE(tree.Exists(At("kit/deep/../a.txt")));
    EXPECT_TRUE(tree.Exists(At("kit/a.txt")));
}

TEST_F(KPlannedTreeTest, AnEmptyMachineHasTheKitOnly) {
    EXPECT_TRUE(onlyKit.Exists(At("kit/a.txt")));
    EXPECT_TRUE(onlyKit.Exists(At("kit")));
    EXPECT_TRUE(onlyKit.Exists("/"));
    EXPECT_FALSE(onlyKit.Exists(At("other/d.txt")));
    EXPECT_FALSE(onlyKit.Exists(At("kitten")));
    EXPECT_THAT(onlyKit.List(At("other"), "*"), IsEmpty());
    EXPECT_TRUE(onlyKit.IsEmpty(At("other")));
}

TEST_F(KPlannedTreeTest, ListsFilesAndLinksThatMatch) {
    EXPECT_THAT(tree.List(At("kit"), "*.txt"), ElementsAre("a.txt", "link.txt"));
    tree.Put(At("kit/0.txt"), AFile());
    tree.Put(At("kit/deep/1.txt"), AFile());
    tree.Remove(At("kit/a.txt"));
    EXPECT_THAT(tree.List(At("kit/"), "*.txt"), ElementsAre("0.txt", "link.txt"));
}

TEST_F(KPlannedTreeTest, MakesDirectoriesWithTheirParents) {
    EXPECT_THAT(onlyKit.MakeDirectory("/p/q/r/"), ElementsAre("/p", "/p/q", "/p/q/r"));
    EXPECT_THAT(onlyKit.MakeDirectory("/p/q/s"), ElementsAre("/p/q/s"));
    EXPECT_THAT(onlyKit.MakeDirectory("/p/q"), IsEmpty());
    EXPECT_THAT(tree.MakeDirectory(At("kit/deep")), IsEmpty());
    EXPECT_EQ(onlyKit.Find("/p/q").mode, 0755U);
}

TEST_F(KPlannedTreeTest, ADirectoryIsEmptyWithoutEntriesThatStand) {
    EXPECT_FALSE(tree.IsEmpty(At("kit/deep")));
    tree.Remove(At("kit/deep/c.txt"));
    EXPECT_TRUE(tree.IsEmpty(At("kit/deep")));
    tree.Put(At("kit/deep/new"), AFile());
    EXPECT_FALSE(tree.IsEmpty(At("kit/deep")));
    EXPECT_TRUE(tree.IsEmpty(At("none")));
}

TEST_F(KPlannedTreeTest, OptionsThatArePutCoverThoseOnTheDisk) {
    disk.Write("kit/p.ini", "[s]\na=1\nb=2\n");
    const std::string profile = At("kit/p.ini");
    tree.PutOption(profile, {"s", "a", "9"});
    tree.PutOption(profile, {"s", "c", "3"});
    tree.PutOption(profile, {"s", "c", "4"});
    tree.PutOption(profile, {"other", "a", "7"});
    EXPECT_THAT(Values(tree.ReadOptions(profile, "s")), ElementsAre("a=9", "b=2", "c=4"));
    tree.RemoveOption(profile, {"s", "b", "2"});
    tree.RemoveOption(profile, {"s", "c", "4"});
    EXPECT_THAT(Values(tree.ReadOptions(profile, "s")), ElementsAre("a=9"));
    EXPECT_THAT(Values(onlyKit.ReadOptions("/none", "s")), IsEmpty());
}

TEST_F(KPlannedTreeTest, ChangesTellWhatWasMadeAndDeleted) {
    tree.Put("/p", AFile());
    tree.Remove("/q/");
    EXPECT_TRUE(tree.HasChanged("/p"));
    EXPECT_TRUE(tree.IsMade("/p"));
    EXPECT_TRUE(tree.HasChanged("/q"));
    EXPECT_FALSE(tree.IsMade("/q"));
    EXPECT_FALSE(tree.HasChanged("/r"));
    EXPECT_FALSE(tree.HasChanged("/"));
}

TEST(PlannedPathTest, NormalPathsHaveNoDotsAndNoSeparatorAtTheEnd) {
    EXPECT_EQ(KPlannedTree::Normal("/a/./b//../c/"), "/a/c");
    EXPECT_EQ(KPlannedTree::Normal("/"), "/");
    EXPECT_EQ(KPlannedTree::Normal("/.."), "/");
}

TEST(PlannedPathTest, StarsAndQuestionMarksMakeAPattern) {
    EXPECT_TRUE(IsPattern("a?"));
    EXPECT_TRUE(IsPattern("*.so"));
    EXPECT_FALSE(IsPattern("a.b"));
}

TEST_F(KPlannedTreeTest, LinksOnTheWayAreFollowed) {
    disk.Link("kit/way", "deep");
    EXPECT_TRUE(tree.Exists(At("kit/way/c.txt")));
    tree.Put(At("kit/way/new"), AFile());
    EXPECT_EQ(tree.Find(At("kit/deep/new")).kind, KEntryKind::File);
    EXPECT_THAT(tree.List(At("kit/way"), "n*"), ElementsAre("new"));
    tree.Remove(At("kit/way"));
    EXPECT_FALSE(tree.Exists(At("kit/way/c.txt")));
    EXPECT_TRUE(tree.Exists(At("kit/deep/c.txt")));
}

TEST_F(KPlannedTreeTest, AWayThatWasResolvedIsResolvedAnewOnceALinkOnItGoes) {
    disk.Link("kit/way", "deep");
    const auto resolve = [&](const std::string& path) {
        return tree.Resolve(At(path), KPlannedTree::Last::Keep, KPlannedTree::Links::Trusted);
    };
    EXPECT_EQ(resolve("kit/way/one").GetPath(), At("kit/deep/one"));
    EXPECT_EQ(resolve("kit/way/two").GetPath(), At("kit/deep/two"));
    tree.Remove(At("kit/way"));
    EXPECT_EQ(resolve("kit/way/two").problem, KSETUP::KPathProblem::Missing);
    tree.MakeDirectory(At("kit/way"));
    EXPECT_EQ(resolve("kit/way/two").GetPath(), At("kit/way/two"));
    tree.Put(At("kit/way/two"), AFile());
    EXPECT_TRUE(tree.HasChangedAt(resolve("kit/way/two")));
    EXPECT_FALSE(tree.HasChangedAt(resolve("kit/way/one")));
    tree.RemoveAt(resolve("kit/way/two"));
    EXPECT_FALSE(tree.Exists(At("kit/way/two")));
}

TEST_F(KPlannedTreeTest, WhatIsCopiedFromATreeGoesItsOwnWay) {
    tree.Put(At("kit/one"), AFile());
    KPlannedTree other(tree);
    other.Remove(At("kit/one"));
    other.Put(At("kit/two"), AFile());
    EXPECT_TRUE(tree.Exists(At("kit/one")));
    EXPECT_FALSE(tree.Exists(At("kit/two")));
    EXPECT_FALSE(other.Exists(At("kit/one")));
    EXPECT_THAT(other.List(At("kit"), "t*"), ElementsAre("two"));
}

TEST_F(KPlannedTreeTest, AWayThatLeadsNowhereHasItsReason) {
    using KSETUP::KPathProblem;
    disk.Link("kit/round", "round");
    disk.Directory("open", 0777);
    disk.Link("open/link", "../kit");
    const auto problem = [&](const std::string& path) {
        return tree.Resolve(At(path), KPlannedTree::Last::Keep, KPlannedTree::Links::Trusted)
            .problem;
    };
    EXPECT_EQ(problem("kit/new"), KPathProblem::None);
    EXPECT_EQ(problem("kit/none/new"), KPathProblem::Missing);
    EXPECT_EQ(problem("kit/a.txt/new"), KPathProblem::NoDirectory);
    EXPECT_EQ(problem("kit/round/new"), KPathProblem::Link);
    EXPECT_EQ(problem("open/link/new"), KPathProblem::Link); // others could have laid it
    EXPECT_EQ(problem("kit/" + std::string(256, 'n')), KPathProblem::TooLong);
    EXPECT_EQ(problem("kit/" + std::string(4096, '/')), KPathProblem::TooLong);
}

TEST_F(KPlannedTreeTest, DirectoriesAreMadeAsFarAsTheyCanBe) {
    const std::string tooLong(256, 'n');
    EXPECT_THAT(
        tree.MakeDirectory(At("other/one/" + tooLong + "/two")), ElementsAre(At("other/one"))
    );
    EXPECT_THAT(tree.MakeDirectory(At("other/d.txt/one")), IsEmpty());
    EXPECT_THAT(
        tree.MakeDirectory(At("other/two/" + std::string(4100, 'n'))), ElementsAre(At("other/two"))
    );
}

TEST_F(KPlannedTreeTest, ACopyOfAProfileHasItsOptions) {
    disk.Write("kit/b.ini", "[S]\none=1\n");
    tree.PutOption(At("kit/b.ini"), {"S", "two", "2"});
    const auto from =
        tree.Resolve(At("kit/b.ini"), KPlannedTree::Last::Follow, KPlannedTree::Links::Any);
    const auto to =
        tree.Resolve(At("other/c.ini"), KPlannedTree::Last::Keep, KPlannedTree::Links::Any);
    tree.PutCopy(to, tree.FindAt(from), from);
    EXPECT_THAT(Values(tree.ReadOptions(At("other/c.ini"), "S")), ElementsAre("one=1", "two=2"));
    tree.Put(At("other/c.ini"), AFile()); // made anew
    EXPECT_THAT(Values(tree.ReadOptions(At("other/c.ini"), "S")), IsEmpty());
}

} // namespace
