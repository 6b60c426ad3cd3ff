// SPDX-License-Identifier: MIT
#include "../GivenPlan.h"

#include <setup/run/PlannedPaths.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

using namespace KSETUP;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::Pointee;

/// Plans for the service "svc" in "product", from a kit with the files "a" and "b".
class PlannedPathsTest : public KTEST::GivenPlan {
  protected:
    PlannedPathsTest() {
        tree.Write("kit/a", "A");
        tree.Write("kit/b", "B");
        tree.Directory("product");
    }

    /// "K" and "P" in a line are the kit's directory and the product path.
    KPlan PlanOf(const std::vector<std::string>& lines) {
        std::string script;
        for (const std::string& line : lines) {
            for (const char byte : line) {
                script += byte == 'K' ? kit : byte == 'P' ? product : std::string(1, byte);
            }
            script += "\n";
        }
        return GivenPlan::PlanOf(script);
    }
    std::vector<std::pair<std::string, std::string>> Lasting(const std::vector<std::string>& lines
    ) {
        std::vector<std::pair<std::string, std::string>> copies;
        const KPlan plan = PlanOf(lines); // which keeps the paths
        for (const KCopy& copy : LastingCopies(plan, kit)) {
            copies.emplace_back(copy.source, copy.target);
        }
        return copies;
    }
    std::vector<std::string> Expected(const std::vector<std::string>& lines) {
        return ExpectedPaths(PlanOf(lines));
    }

    const std::string kit = tree.Path("kit");
    const std::string product = tree.Path("product");
};

TEST_F(PlannedPathsTest, FilesAreCopiedInTheOrderOfTheirLines) {
    EXPECT_THAT(
        CopiedFiles(PlanOf({"file=copy,b,K,P", "file=copy,none,K,P", "file=copy,a,K,P"})),
        ElementsAre(Pointee(kit + "/b"), Pointee(kit + "/a"))
    );
}

TEST_F(PlannedPathsTest, CopiesLastUnderTheNormalPathsOfTheirTargets) {
    EXPECT_THAT(
        Lasting({"file=copy,a,K,P", "file=copy,b,K,P/x/..//,c"}),
        ElementsAre(Pair(kit + "/a", product + "/a"), Pair(kit + "/b", product + "/c"))
    );
}

TEST_F(PlannedPathsTest, NoCopyIsKnownToLastWhereACommandRuns) {
    EXPECT_THAT(Lasting({"file=copy,a,K,P", "process=start,true", "file=copy,b,K,P"}), IsEmpty());
    EXPECT_THAT(
        Lasting({"file=copy,a,K,P", "process=stop,P/a"}),
        ElementsAre(Pair(kit + "/a", product + "/a"))
    );
}

TEST_F(PlannedPathsTest, ACopyDoesNotLastIntoWhichAnOptionIsWritten) {
    EXPECT_THAT(
        Lasting({"file=copy,a,K,P", "profile=put,P//./a,s,k,v", "file=copy,b,K,P"}),
        ElementsAre(Pair(kit + "/b", product + "/b"))
    );
}

TEST_F(PlannedPathsTest, ACopyDoesNotLastFromWhichAnOptionIsTaken) {
    tree.Write("kit/a", "[s]\none=/nowhere/x\n");
    EXPECT_THAT(
        Lasting({"file=copy,a,K,P,list", "profile=remove_file,P/list,s,nowhere"}), IsEmpty()
    );
}

TEST_F(PlannedPathsTest, OnlyWhatComesFromTheKitIsKnownBefore) {
    // The second is of what the first makes, the third of a file that is anybody's.
    tree.Write("beside", "B");
    EXPECT_THAT(
        Lasting({"file=copy,a,K,P", "file=copy,a,P,P,c", "file=copy,beside,K/..,P"}),
        ElementsAre(Pair(kit + "/a", product + "/a"))
    );
}

TEST_F(PlannedPathsTest, ACopyDoesNotLastThatAnotherOneReplaces) {
    tree.Write("beside", "B");
    EXPECT_THAT(Lasting({"file=copy,a,K,P", "file=copy,beside,K/..,P,a"}), IsEmpty());
    EXPECT_THAT(
        Lasting({"file=copy,a,K,P", "file=copy,b,K,P,a"}),
        ElementsAre(Pair(kit + "/a", product + "/a"), Pair(kit + "/b", product + "/a"))
    );
}

TEST_F(PlannedPathsTest, NoCopyIsKnownToLastWhereALinkLeadsToATarget) {
    tree.Directory("product/d");
    EXPECT_THAT(
        Lasting({"file=symlink,d,P,P,cur", "file=copy,a,K,P/cur", "file=copy,b,K,P/d,a"}), IsEmpty()
    );
    tree.Link("product/link", "d");
    EXPECT_THAT(Lasting({"file=copy,a,K,P/link"}), IsEmpty());
}

TEST_F(PlannedPathsTest, AKitThatItsOwnRulesChangeIsNotKnownBefore) {
    EXPECT_THAT(Lasting({"file=copy,b,K,K,a", "file=copy,a,K,P"}), IsEmpty());
    EXPECT_THAT(Lasting({"profile=put,K/a,s,k,v", "file=copy,a,K,P"}), IsEmpty());
}

TEST_F(PlannedPathsTest, WhatIsNotThereToBeCopiedMakesNothing) {
    EXPECT_THAT(Lasting({"file=copy,none,K,P"}), IsEmpty());
}

TEST_F(PlannedPathsTest, WhatIsMadeWhereNothingStandsIsExpected) {
    EXPECT_THAT(
        Expected(
            {"directory=create,P/d/e",
             "file=copy,a,K,P",
             "file=symlink,a,P,P,l",
             "profile=create,P/n",
             "profile=put,P/o,s,k,v",
             "service=install,svc,S,/bin/true,x"}
        ),
        ElementsAre(
            product + "/d",
            product + "/d/e",
            product + "/a",
            product + "/l",
            product + "/n",
            product + "/o",
            "/etc/systemd/system/svc.service",
            "/etc/systemd/system/multi-user.target.wants/svc.service"
        )
    );
}

TEST_F(PlannedPathsTest, WhatStandsThereGoesOrRunsIsNotExpected) {
    tree.Write("product/old", "O");
    tree.Link("product/l", "old");
    EXPECT_THAT(
        Expected(
            {"directory=create,P",
             "file=symlink,a,P,P,l",
             "profile=put,P/old,s,k,v",
             "file=delete,old,P",
             "directory=delete,P",
             "process=start,true",
             "service=start,svc"}
        ),
        IsEmpty()
    );
}

TEST_F(PlannedPathsTest, DirectoriesAreThoseInWhichSomethingChanges) {
    EXPECT_THAT(
        DirectoriesOf(ChangedPaths(PlanOf(
            {"file=copy,a,K,P", "file=copy,b,K,P", "file=delete,x,P/d", "file=copy,a,K,/srv"}
        ))),
        ElementsAre("/srv", product, product + "/d")
    );
}

TEST_F(PlannedPathsTest, AServiceChangesItsUnitAndWhatEnablesIt) {
    EXPECT_THAT(
        ChangedPaths(PlanOf({"file=delete,x,P", "service=remove,svc", "service=stop,other"})),
        ElementsAre(
            product + "/x",
            "/etc/systemd/system/svc.service",
            "/etc/systemd/system/multi-user.target.wants/svc.service"
        )
    );
}

TEST_F(PlannedPathsTest, PatternsAreToFindWhatThePlanFoundInTheOrderOfTheirRules) {
    tree.Write("kit/c.txt", "C");
    const KPlan plan = PlanOf(
        {"file=copy,?,K,P",
         "file=copy,a,K,P,x",
         "file=copy,*.none,K,P",
         "process=start,true",
         "directory=create,P/new",
         "config=copy,*.txt,K,P"}
    );
    const auto planned = PlannedMatches(plan);
    ASSERT_EQ(planned.size(), 3U);
    EXPECT_EQ(planned[0].pattern, kit + "/?");
    EXPECT_THAT(planned[0].names, ElementsAre("a", "b"));
    EXPECT_FALSE(planned[0].isBehindCommand);
    EXPECT_THAT(planned[1].names, IsEmpty());
    EXPECT_THAT(planned[2].names, ElementsAre("c.txt"));
    EXPECT_TRUE(planned[2].isBehindCommand);
}

} // namespace
