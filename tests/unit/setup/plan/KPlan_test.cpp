// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/plan/KPlan.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

namespace {

using KSETUP::ActionWord;
using KSETUP::KEntryKind;
using KSETUP::KPlan;
using KSETUP::KPlannedAction;
using KSETUP::KPlannedRule;
using KSETUP::KPlannedTree;
using KSETUP::KScript;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class KPlanTest : public ::testing::Test {
  protected:
    /// Plans [install]; "KIT" and "DISK" in it are the directories.
    KPlan Plan(std::string lines) {
        for (const auto& [name, path] : {std::pair("KIT", "kit"), std::pair("DISK", "disk")}) {
            for (std::size_t at = lines.find(name); at != std::string::npos;
                 at = lines.find(name)) {
                lines.replace(at, std::string(name).size(), disk.Path(path));
            }
        }
        disk.Write("install.ini", "[install]\n" + lines);
        const KScript script(disk.Path("install.ini").c_str());
        return KPlan(
            script, "install", [](const KSUP::KString& text) { return text; }, tree, policy
        );
    }

    /// As "what path < source", with "+" where something is replaced and "!" where something lacks.
    std::vector<std::string> Actions(const std::string& lines) {
        std::vector<std::string> all;
        const KPlan plan = Plan(lines);
        for (const KPlannedRule& rule : plan.GetRules()) {
            for (const KPlannedAction& action : rule.actions) {
                all.push_back(
                    std::string(ActionWord(action.kind)) + " " + Short(*action.path) +
                    (action.source->empty() ? "" : " < " + Short(*action.source)) +
                    (action.replaces ? " +" : "") + (action.lacks ? " !" : "")
                );
            }
        }
        return all;
    }
    std::string Short(const std::string& path) const {
        const std::string root = disk.Path() + "/";
        return path.starts_with(root) ? path.substr(root.size()) : path;
    }

    KTEST::TemporaryTree disk;
    KPlannedTree tree{KPlannedTree::Below::Disk, disk.Path("kit")};
    KSETUP::KChangePolicy policy;
};

TEST_F(KPlanTest, ACopyTellsSourceSizeAndMode) {
    disk.Write("kit/a", "12345", 0750);
    const KPlan plan = Plan("file=copy,a,KIT,DISK,b\n");
    const KPlannedAction& action = plan.GetRules().at(0).actions.at(0);
    EXPECT_EQ(Short(*action.path), "disk/b");
    EXPECT_EQ(action.bytes, 5U);
    EXPECT_EQ(action.mode, 0750U);
    EXPECT_FALSE(action.replaces);
    EXPECT_EQ(tree.Find(disk.Path("disk/b")).kind, KEntryKind::File);
}

TEST_F(KPlanTest, CopiesReplaceAndLack) {
    disk.Write("kit/a", "");
    disk.Write("disk/a", "");
    EXPECT_THAT(
        Actions("file=copy,a,KIT,DISK\nfile=copy,none,KIT,DISK\nfile=copy,disk,KIT/..,DISK,x\n"),
        ElementsAre(
            "copy file disk/a < kit/a +",
            "copy file disk/none < kit/none !",
            "copy file disk/x < " + Short(disk.Path("kit/../disk")) + " !"
        )
    );
}

TEST_F(KPlanTest, ACopyFollowsLinksFromWhereTheyStand) {
    disk.Write("kit/real/file", "123");
    disk.Link("kit/real/second", "file");
    disk.Link("kit/first", "real/second");
    disk.Link("kit/round", "round");
    EXPECT_EQ(Plan("file=copy,first,KIT,DISK\n").GetRules().at(0).actions.at(0).bytes, 3U);
    EXPECT_THAT(
        Actions("file=copy,round,KIT,DISK\n"), ElementsAre("copy file disk/round < kit/round !")
    );
}

TEST_F(KPlanTest, ACopyGoesThroughALinkOfTheScriptsAndReplacesAnother) {
    disk.Write("kit/a", "12345");
    disk.Write("disk/there", "");
    disk.Link("disk/old", "there");
    EXPECT_THAT(
        Actions("file=symlink,made,DISK,DISK,new\n"
                "file=copy,a,KIT,DISK,new\nfile=copy,a,KIT,DISK,old\n"),
        ElementsAre(
            "make link disk/new < disk/made",
            "copy file disk/new < kit/a",
            "copy file disk/old < kit/a +"
        )
    );
    EXPECT_EQ(tree.Find(disk.Path("disk/new")).kind, KEntryKind::Link);
    EXPECT_EQ(tree.Find(disk.Path("disk/made")).bytes, 5U);
    EXPECT_EQ(tree.Find(disk.Path("disk/old")).kind, KEntryKind::File);
    EXPECT_EQ(tree.Find(disk.Path("disk/there")).bytes, 0U);
}

/// As a run, which knows what it made by the path that the rule has.
TEST_F(KPlanTest, WhatWasMadeByAnotherNameOfItsDirectoryIsNotSwept) {
    disk.Write("kit/a.so", "");
    disk.Directory("disk/real");
    disk.Link("disk/way", "real");
    const KSETUP::KOwnership ofNothing("dps", false, disk.Path("state"));
    policy = KSETUP::KChangePolicy(ofNothing, disk.Path("disk"), {});
    EXPECT_THAT(
        Actions("file=copy,a.so,KIT,DISK/real\nfile=delete,*.so,DISK/way\n"
                "file=delete,*.so,DISK/real\n"),
        ElementsAre(
            "copy file disk/real/a.so < kit/a.so",
            "keep file disk/way/a.so < it is not the product's",
            "delete file disk/real/a.so"
        )
    );
}

TEST_F(KPlanTest, AWildcardIsAnActionForEachFile) {
    disk.Write("kit/a.so", "");
    disk.Write("kit/b.so", "");
    disk.Directory("kit/c.so");
    EXPECT_THAT(
        Actions("file=copy,*.so,KIT,DISK,ignored\nfile=delete,*.so,DISK\nfile=copy,*.x,KIT,DISK\n"),
        ElementsAre(
            "copy file disk/a.so < kit/a.so",
            "copy file disk/b.so < kit/b.so",
            "delete file disk/a.so",
            "delete file disk/b.so"
        )
    );
}

TEST_F(KPlanTest, ADeletionOfWhatIsGoneLacks) {
    EXPECT_THAT(Actions("file=delete,a,DISK\n"), ElementsAre("delete file disk/a !"));
}

TEST_F(KPlanTest, ALinkLeadsToItsSource) {
    EXPECT_THAT(
        Actions("file=symlink,a,/x/,DISK,b\nfile=symlink,a,/y,DISK,b\n"),
        ElementsAre("make link disk/b < /x/a", "make link disk/b < /y/a +")
    );
    EXPECT_EQ(tree.Find(disk.Path("disk/b")).GetTarget(), "/y/a");
}

TEST_F(KPlanTest, ADirectoryIsDeletedWithItsFilesIfNothingElseIsInIt) {
    disk.Write("disk/a", "");
    disk.Write("disk/deep/b", "");
    EXPECT_THAT(
        Actions("directory=Delete,DISK\ndirectory=delete,DISK/deep\ndirectory=delete,DISK\n"
                "directory=CREATE,DISK/new\n"),
        ElementsAre(
            "delete file disk/a",
            "delete directory disk !",
            "delete file disk/deep/b",
            "delete directory disk/deep",
            "delete directory disk",
            "create directory disk",
            "create directory disk/new"
        )
    );
}

TEST_F(KPlanTest, ProfilesAreMadeAndOptionsPut) {
    EXPECT_THAT(
        Actions("profile=PUT,DISK/p.ini,S,K,V\nprofile=put,DISK/p.ini\nprofile=create,DISK/q.ini\n"
        ),
        ElementsAre(
            "put option disk/p.ini < [S] K=V",
            "put option disk/p.ini < [] = +",
            "create profile disk/q.ini"
        )
    );
}

TEST_F(KPlanTest, RemoveFileDeletesWhatTheProfileNames) {
    disk.Write("disk/one.so", "");
    EXPECT_THAT(
        Actions("profile=put,DISK/p.ini,S,1,DISK/one.so\nprofile=put,DISK/p.ini,S,2,other\n"
                "profile=remove_file,DISK/p.ini,S,.so\nprofile=remove_file,DISK/p.ini,S,.so\n"),
        ElementsAre(
            "put option disk/p.ini < [S] 1=" + disk.Path("disk/one.so"),
            "put option disk/p.ini < [S] 2=other +",
            "delete file disk/one.so",
            "remove option disk/p.ini < [S] 1=" + disk.Path("disk/one.so")
        )
    );
}

TEST_F(KPlanTest, AFileWhoseModeIsSetHoldsWhatItHeld) {
    disk.Write("disk/one.so", "");
    disk.Write("disk/p.ini", "[S]\n1=" + disk.Path("disk/one.so") + "\n");
    EXPECT_THAT(
        Actions("mode=set,DISK/p.ini,0600\nprofile=remove_file,DISK/p.ini,S,.so\n"),
        ElementsAre(
            testing::StartsWith("set mode disk/p.ini"),
            "delete file disk/one.so",
            "remove option disk/p.ini < [S] 1=" + disk.Path("disk/one.so")
        )
    );
}

TEST_F(KPlanTest, CommandsAndServicesAreTold) {
    EXPECT_THAT(
        Actions("process=start,true\nprocess=stop,/bin/x\nservice=Install,a,A,/bin/a,-x\n"
                "service=start,a\nservice=stop,a\nservice=remove,a\n"),
        ElementsAre(
            "start command true",
            "stop program /bin/x",
            "install service a < /bin/a",
            "start service a",
            "stop service a",
            "remove service a"
        )
    );
}

TEST_F(KPlanTest, WhatTheEngineIgnoresOrRefusesPlansNothing) {
    disk.Write("kit/a", "");
    EXPECT_THAT(
        Actions("file=Copy,a,KIT,DISK\nfile=copy,a\nfile=copy,a,b,c,d,e\ndirectory=remove,DISK\n"
                "directory=create\nprofile=put,DISK/p,S\nprofile=set,DISK/p,S,K,V\n"
                "process=Start,true\nprocess=start,a,b\nservice=restart,a\nservice=stop,a,b\n"),
        IsEmpty()
    );
    EXPECT_FALSE(tree.HasChanged(disk.Path("disk/p")));
    EXPECT_FALSE(tree.HasChanged(disk.Path("disk")));
}

TEST_F(KPlanTest, CyclesAreKept) {
    EXPECT_EQ(Plan("section=install\n").GetCycles().size(), 1U);
}

TEST_F(KPlanTest, SpaceIsCountedInWholeBlocksWhereFilesGo) {
    disk.Write("kit/a", "12345");
    disk.Write("disk/old", "");
    const auto spaces =
        Plan("directory=create,DISK/new\nfile=copy,a,KIT,DISK/new\nfile=copy,a,KIT,DISK,old\n")
            .ReadSpace();
    ASSERT_EQ(spaces.size(), 1U);
    EXPECT_GE(spaces[0].needed, 10U);
    EXPECT_EQ(spaces[0].needed % 512, 0U);
    EXPECT_EQ(spaces[0].filesNeeded, 2U); // the directory and one file; the other is replaced
    EXPECT_GT(spaces[0].available, 0U);
}

TEST_F(KPlanTest, WhatIsThereNeedsNoSpace) {
    disk.Write("kit/a", std::string(100000, 'a'));
    disk.Write("kit/b", "12345");
    disk.Directory("disk");
    const auto spaces =
        Plan("file=copy,a,KIT,DISK\nfile=copy,b,KIT,DISK\n")
            .ReadSpace({}, [&](const std::string& path) { return path == disk.Path("disk/a"); });
    ASSERT_EQ(spaces.size(), 1U);
    EXPECT_GE(spaces[0].needed, 5U);
    EXPECT_LT(spaces[0].needed, 100000U);
    EXPECT_EQ(spaces[0].filesNeeded, 1U);
}

TEST_F(KPlanTest, HolesNeedNoSpace) {
    disk.Write("kit/image", "12345");
    disk.Directory("disk");
    ASSERT_EQ(::truncate(disk.Path("kit/image").c_str(), off_t{64} << 20U), 0);
    struct stat status {};
    ASSERT_EQ(::stat(disk.Path("kit/image").c_str(), &status), 0);
    if (status.st_blocks * 512 >= status.st_size) {
        GTEST_SKIP() << "the file system keeps no holes: " << disk.Path();
    }
    const auto spaces = Plan("file=copy,image,KIT,DISK\n").ReadSpace();
    ASSERT_EQ(spaces.size(), 1U);
    EXPECT_GE(spaces[0].needed, 5U);
    EXPECT_LT(spaces[0].needed, 1U << 20U);
}

TEST_F(KPlanTest, RulesOfOwnTypesArePlanned) {
    disk.Write("kit/a.conf", "1");
    disk.Directory("disk/there");
    EXPECT_THAT(
        Actions("config=copy,*.conf,KIT,DISK/there\n"
                "config=replace,a.conf,KIT,DISK/there,b%2Cc\n"
                "entry=create,DISK/there/d%24\n"
                "entry=copy,KIT/a.conf,DISK/there/d%24/x\n"
                "link=create,../x/,DISK/there/l\n"
                "mode=set,DISK/there,0750,daemon,adm\n"
                "command=run,echo a, b\n"
                "entry=delete,DISK/there/l\n"
                "entry=delete,DISK/there/d%24\n"),
        ElementsAre(
            "copy file disk/there/a.conf < kit/a.conf",
            "copy file disk/there/b,c < kit/a.conf",
            "create directory disk/there/d$",
            "copy file disk/there/d$/x < kit/a.conf",
            "make link disk/there/l < ../x/",
            "set mode disk/there < daemon:adm +",
            "run command echo a, b",
            "delete file disk/there/l",
            "delete directory disk/there/d$ !"
        )
    );
    EXPECT_EQ(tree.Find(disk.Path("disk/there")).mode, 0750U);
}

TEST_F(KPlanTest, ACopyKnowsWhetherItsRuleCallsItConfiguration) {
    disk.Write("kit/a", "1");
    const KPlan plan = Plan("config=copy,a,KIT,DISK\nconfig=replace,a,KIT,DISK\n");
    std::vector<bool> all;
    for (const KPlannedRule& rule : plan.GetRules()) {
        all.push_back(rule.actions.front().isConfiguration);
    }
    EXPECT_THAT(all, ElementsAre(true, false));
}

TEST_F(KPlanTest, AModeNeedsAFileOrDirectoryAndAnOwner) {
    disk.Directory("disk");
    disk.Link("disk/link", "x");
    const auto obstacle = [&](const std::string& line) {
        return Plan(line).GetRules().back().actions.front().obstacle;
    };
    EXPECT_EQ(obstacle("mode=set,DISK/x,0755"), disk.Path("disk/x") + " is missing");
    EXPECT_EQ(
        obstacle("mode=set,DISK/link,0755"),
        disk.Path("disk/link") + " is a link, which has no mode"
    );
    EXPECT_EQ(obstacle("mode=set,DISK,0755,nobodys-user"), "there is no user nobodys-user");
    EXPECT_EQ(obstacle("mode=set,DISK,0755,0,nobodys-group"), "there is no group nobodys-group");
    EXPECT_EQ(obstacle("user=create,nobodys-user\nmode=set,DISK,0755,nobodys-user"), "");
}

} // namespace
