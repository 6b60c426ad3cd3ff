// SPDX-License-Identifier: MIT
#include "../../../support/EngineRig.h"

#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/check/KCheck.h>
#include <setup/kit/KSetupKit.h>
#include <setup/kit/KitAdd.h>
#include <setup/kit/KitNew.h>
#include <setup/plan/RunPlan.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

class KitNewTest : public ::testing::Test {
  protected:
    int Refusal(const std::string& path) {
        const std::vector<std::string> before = tree.List();
        try {
            KSETUP::MakeNewKit(path);
        } catch (const KSETUP::KSetupFailure& failure) {
            EXPECT_EQ(tree.List(), before);
            return failure.GetExitCode();
        }
        return 0;
    }

    KTEST::TemporaryTree tree;
};

TEST_F(KitNewTest, TheFirstKitIsPlannedWithoutAnObstacle) {
    KTEST::EngineWorld world(tree);
    KSETUP::MakeNewKit(tree.Path("a/b"));
    KSETUP::KSetupArguments arguments;
    arguments.command = KSETUP::Command::PlanInstall;
    arguments.kit = tree.Path("a/b");
    arguments.productPath = tree.Path("product");
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(KSETUP::RunPlan(arguments), 0);
    EXPECT_THAT(
        ::testing::internal::GetCapturedStdout(),
        ::testing::HasSubstr("create link /etc/b/b to " + tree.Path("product"))
    );
    EXPECT_EQ(tree.Mode("a/b/payload/hello"), 0755U);
}

TEST_F(KitNewTest, TheCheckFindsNothingAlsoWithATreeAdded) {
    KTEST::EngineWorld world(tree);
    KSETUP::MakeNewKit(tree.Path("kit"));
    EXPECT_EQ(
        KSETUP::CheckKit(KSETUP::KSetupKit(tree.Path("kit")), tree.Path("p")).findings.size(), 0U
    );
    tree.Write("tree/a b", "");
    tree.Write("tree/config/more.conf", "");
    tree.Write("tree/lin/x86_64/tool", "", 0755);
    tree.Link("tree/lin/x86_64/other", "tool");
    tree.Directory("tree/empty/deep");
    KSETUP::AddTree(
        KSETUP::KAddedTree(tree.Path("tree")), tree.Path("kit"), tree.Path("kit/install.ini")
    );
    const KSETUP::KCheckResult checked =
        KSETUP::CheckKit(KSETUP::KSetupKit(tree.Path("kit")), tree.Path("p"));
    EXPECT_EQ(checked.findings.size(), 0U)
        << checked.findings.front().line << ": " << checked.findings.front().text;
}

TEST_F(KitNewTest, AnEmptyDirectoryIsTaken) {
    tree.Directory("kit");
    KSETUP::MakeNewKit(tree.Path("kit"));
    EXPECT_TRUE(tree.Exists("kit/install.ini"));
}

TEST_F(KitNewTest, WhatIsThereIsLeftAlone) {
    tree.Write("full/.hidden", "");
    tree.Write("file", "");
    tree.Link("link", "nowhere");
    EXPECT_EQ(Refusal(tree.Path("full")), KSETUP::ExitCode::usage);
    EXPECT_EQ(Refusal(tree.Path("file")), KSETUP::ExitCode::usage);
    EXPECT_EQ(Refusal(tree.Path("link")), KSETUP::ExitCode::usage);
    EXPECT_EQ(Refusal(tree.Path("file/kit")), KSETUP::ExitCode::cannotWrite);
}

TEST_F(KitNewTest, TheFirstKitOfAServiceIsRight) {
    KSETUP::MakeNewKit(tree.Path("My.Tool"), KSETUP::KKitKind::Service);
    const KSETUP::KSetupKit kit(tree.Path("My.Tool"));
    for (const KSETUP::KFinding& finding : KSETUP::CheckKit(kit, "").findings) {
        ADD_FAILURE() << finding.file << ":" << finding.line << ": " << finding.message;
    }
    EXPECT_THAT(
        tree.Read("My.Tool/install.ini"),
        ::testing::HasSubstr("mode=set,/var/lib/$serviceName$,0750,my-tool,my-tool\n")
    );
    const std::string unit = tree.Read("My.Tool/payload/My.Tool.service");
    EXPECT_THAT(unit, ::testing::HasSubstr("User=my-tool\n"));
    EXPECT_THAT(unit, ::testing::HasSubstr("ExecStart=/etc/My.Tool/My.Tool\n"));
    EXPECT_FALSE(tree.Exists("My.Tool/payload/hello")) << "that is the other kit's program";
    EXPECT_THAT(tree.Read("My.Tool/product.ini"), ::testing::HasSubstr("\niniFile=My.Tool.ini\n"));
    EXPECT_TRUE(tree.Exists("My.Tool/payload/My.Tool.ini"));
    EXPECT_FALSE(tree.Exists("My.Tool/payload/hello.ini")) << "that is the other kit's, too";
}

TEST_F(KitNewTest, AUserHasANameWhateverTheKitIsCalled) {
    for (const char* const name : {"3d", "a-name-of-more-than-thirty-one-letters", "-x-"}) {
        KSETUP::MakeNewKit(tree.Path(name), KSETUP::KKitKind::Service);
        const KSETUP::KSetupKit kit(tree.Path(name));
        EXPECT_EQ(KSETUP::CheckKit(kit, "").Count(KSETUP::KSeverity::Error), 0U) << name;
    }
}

} // namespace
