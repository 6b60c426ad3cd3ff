// SPDX-License-Identifier: MIT
#include "../../../support/EngineRig.h"

#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/plan/RunPlan.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class PlanReportTest : public ::testing::Test {
  protected:
    PlanReportTest() {
        tree.Write(
            "kit/product.ini",
            "[product]\nname=Plan Test\nserviceName=inspp-unit-test\niniFile=pt.ini\nversion=1.5\n"
            "buildNumber=9\n"
        );
        arguments.kit = tree.Path("kit");
        arguments.productPath = tree.Path("product");
        arguments.allowConflicts = true; // what stands there is nobody's
    }

    void GivenScript(const std::string& script) { tree.Write("kit/install.ini", script); }
    /// The same with what a record needs.
    void GivenSoundScript(const std::string& script) {
        GivenScript(
            script + "directory=create,$pathTargetConfig$\n"
                     "profile=put,$pathTargetConfig$$iniFile$,S,K,V\n"
                     "directory=create,/etc/$serviceName$\n"
                     "file=symlink,x,$pathTargetBin$,/etc/$serviceName$,$serviceName$\n"
        );
    }

    struct Outcome {
        int exitCode;
        std::string out;
        std::string error;
    };
    Outcome Run(KSETUP::Command command, int (*run)(const KSETUP::KSetupArguments&)) {
        arguments.command = command;
        Outcome outcome{};
        ::testing::internal::CaptureStdout();
        try {
            outcome.exitCode = run(arguments);
        } catch (const KSETUP::KSetupFailure& failure) {
            outcome.exitCode = failure.GetExitCode();
            outcome.error = failure.what();
        }
        outcome.out = ::testing::internal::GetCapturedStdout();
        return outcome;
    }
    Outcome PlanInstall() { return Run(KSETUP::Command::PlanInstall, &KSETUP::RunPlan); }
    Outcome PlanRemove() { return Run(KSETUP::Command::PlanRemove, &KSETUP::RunPlan); }
    Outcome Macros() { return Run(KSETUP::Command::Macros, &KSETUP::RunMacros); }
    nlohmann::json PlanInstallAsJson() {
        arguments.json = true;
        return nlohmann::json::parse(PlanInstall().out);
    }

    KTEST::TemporaryTree tree;
    KTEST::EngineWorld world{tree};
    KSETUP::KSetupArguments arguments;
};

TEST_F(PlanReportTest, EachRuleIsToldWithItsLineAndWhatItWouldDo) {
    tree.Write("kit/a b", std::string(2048, 'x'), 0755);
    tree.Write("product/old", "former");
    GivenScript("[install]\n"
                "directory=create,$pathTarget$bin/x\n"
                "file=copy,a b,$pathSource$,$pathTarget$bin\n"
                "file=copy,a b,$pathSource$,$pathTarget$,old\n"
                "file=delete,old,$pathTarget$\n"
                "file=symlink,a b,$pathTarget$bin,$pathTarget$,link\n"
                "profile=put,$pathTarget$p.ini,S,K,V\n"
                "process=start,/bin/true \"$pathTarget$\"\n"
                "service=start,svc\n");
    const Outcome plan = PlanInstall();
    EXPECT_EQ(plan.exitCode, KSETUP::ExitCode::noService) << plan.error << plan.out;
    const std::string product = tree.Path("product");
    EXPECT_THAT(
        plan.out,
        AllOf(
            HasSubstr("Installing Plan Test 1.5 (build 9) in " + product + " would do this."),
            HasSubstr(
                "install.ini:2: directory=create,$pathTarget$bin/x\n    create directory " +
                product + "/bin\n    create directory " + product + "/bin/x\n"
            ),
            HasSubstr(
                "install.ini:3: file=copy,a b,$pathSource$,$pathTarget$bin\n    create file " +
                product + "/bin/a b (2.0 KiB) from " + tree.Path("kit") + "/a b\n"
            ),
            HasSubstr("    overwrite file " + product + "/old (2.0 KiB)"),
            HasSubstr("    delete file " + product + "/old\n"),
            HasSubstr("    create link " + product + "/link to " + product + "/bin/a b\n"),
            HasSubstr("    create and put into " + product + "/p.ini: [S] K=V\n"),
            HasSubstr("    start command /bin/true \"" + product + "/\"\n"),
            HasSubstr("    start service svc\n")
        )
    );
    EXPECT_THAT(
        plan.out,
        HasSubstr("Files and links: 3 created, 1 overwritten, 1 deleted. Directories: 2 created, 0 "
                  "deleted. 1 service action, 1 command.\n")
    );
}

TEST_F(PlanReportTest, APlanChangesNothing) {
    tree.Write("kit/a", "x");
    tree.Write("product/keep", "x");
    GivenSoundScript(
        "[install]\ndirectory=create,$pathTarget$d\nfile=copy,a,$pathSource$,$pathTarget$"
        "\nfile=delete,keep,$pathTarget$\nprofile=create,$pathTarget$p.ini\n"
    );
    const std::vector<std::string> before = tree.List();
    EXPECT_EQ(PlanInstall().exitCode, 0);
    EXPECT_EQ(tree.List(), before);
}

TEST_F(PlanReportTest, ARuleThatDoesNothingSaysSo) {
    GivenScript("[install]\nfile=Copy,a,/b,/c\nfile=copy,*.none,$pathSource$,$pathTarget$\n");
    EXPECT_THAT(
        PlanInstall().out,
        AllOf(
            HasSubstr("install.ini:2: file=Copy,a,/b,/c\n    nothing\n"),
            HasSubstr("install.ini:3: file=copy,*.none,$pathSource$,$pathTarget$\n    nothing\n")
        )
    );
}

TEST_F(PlanReportTest, WhatWouldEndTheRunIsToldAndAnswered) {
    tree.Write("kit/a", "x");
    tree.Write("product/file", "x");
    GivenScript("[install]\nfile=copy,missing,$pathSource$,$pathTarget$\n"
                "file=copy,a,$pathSource$,$pathTarget$nowhere\n"
                "file=symlink,a,$pathTarget$,$pathTarget$,file\n");
    const Outcome plan = PlanInstall();
    EXPECT_EQ(plan.exitCode, KSETUP::ExitCode::ruleFailed);
    EXPECT_THAT(
        plan.out,
        AllOf(
            HasSubstr("would end here: " + tree.Path("kit/missing") + " is missing\n"),
            HasSubstr("would end here: there is no directory " + tree.Path("product/nowhere")),
            HasSubstr("would end here: " + tree.Path("product/file") + " is no link"),
            HasSubstr("first of 3 places")
        )
    );
}

TEST_F(PlanReportTest, ACopyFollowsAChainOfLinks) {
    tree.Write("kit/data/real", "12345");
    tree.Link("kit/data/second", "real");
    tree.Link("kit/first", "data/second");
    tree.Directory("product");
    GivenSoundScript("[install]\nfile=copy,first,$pathSource$,$pathTarget$\n");
    const Outcome plan = PlanInstall();
    EXPECT_EQ(plan.exitCode, 0) << plan.out;
    EXPECT_THAT(plan.out, HasSubstr("(5 bytes)"));
}

TEST_F(PlanReportTest, ACycleIsRefusedWithItsPath) {
    GivenScript("[install]\nsection=a\n[a]\nsection=b\n[b]\nsection=a\n");
    const Outcome plan = PlanInstall();
    EXPECT_EQ(plan.exitCode, KSETUP::ExitCode::malformedScript);
    EXPECT_THAT(
        plan.error, HasSubstr(tree.Path("kit/install.ini") + ":6: a section includes itself")
    );
    EXPECT_THAT(plan.error, HasSubstr("[a] -> [b] -> [a]"));
    EXPECT_EQ(plan.out, "");
}

TEST_F(PlanReportTest, LinesThatTheEngineRefusesAreAllTold) {
    GivenScript("[install]\nFile=copy,a,/b,/c\nfile=copy,a\ndirectory=create\nprofile=put,/a,b\n"
                "profile=drop,/a\nservice=start,a,b\nprocess=start,a,b\n");
    const Outcome plan = PlanInstall();
    EXPECT_EQ(plan.exitCode, KSETUP::ExitCode::malformedScript);
    for (const char* const place :
         {":2: \"File\" is no type",
          ":3: a file rule has 3 to 5 fields",
          ":4: a directory rule",
          ":5: a profile rule",
          ":6: \"drop\" is no operation",
          ":7: a service rule",
          ":8: a process rule"}) {
        EXPECT_THAT(plan.error, HasSubstr(place));
    }
}

TEST_F(PlanReportTest, APathThatNoRunWouldTakeIsRefused) {
    GivenScript("[install]\n");
    arguments.productPath = "/usr";
    const Outcome plan = PlanInstall();
    EXPECT_EQ(plan.exitCode, KSETUP::ExitCode::usage);
    EXPECT_THAT(plan.error, HasSubstr("it is a directory of the system"));
}

TEST_F(PlanReportTest, ARemovalOfWhatIsNotInstalledNeedsAPath) {
    GivenScript("[remove]\nfile=delete,a,$pathTarget$\ndirectory=delete,$pathTarget$\n");
    tree.Write("product/a", "x");
    const Outcome with = PlanRemove();
    EXPECT_EQ(with.exitCode, 0);
    EXPECT_THAT(with.out, HasSubstr("    delete directory " + tree.Path("product") + "/\n"));
    arguments.productPath.clear();
    const Outcome without = PlanRemove();
    EXPECT_EQ(without.exitCode, KSETUP::ExitCode::notInstalled);
    EXPECT_THAT(without.error, HasSubstr("not installed"));
}

TEST_F(PlanReportTest, JsonHasRulesTotalsAndSpace) {
    tree.Write("kit/a", std::string(5000, 'x'), 0750);
    tree.Directory("product");
    GivenSoundScript("[install]\nsection=more\n[more]\nfile=copy,a,$pathSource$,$pathTarget$\n"
                     "[install]\n");
    const nlohmann::json plan = PlanInstallAsJson();
    EXPECT_EQ(plan["schema"], 1);
    EXPECT_EQ(plan["command"], "plan install");
    EXPECT_EQ(plan["exitCode"], 0);
    EXPECT_EQ(plan["rules"][0]["line"], 4);
    EXPECT_EQ(plan["rules"][0]["section"], "more");
    const nlohmann::json& action = plan["rules"][0]["actions"][0];
    EXPECT_EQ(action["action"], "copy file");
    EXPECT_EQ(action["path"], tree.Path("product") + "/a");
    EXPECT_EQ(action["bytes"], 5000);
    EXPECT_EQ(action["mode"], "0750");
    EXPECT_EQ(plan["totals"]["created"], 3);
    ASSERT_EQ(plan["space"].size(), 1U);
    EXPECT_GE(plan["space"][0]["bytesNeeded"], 5000);
    EXPECT_EQ(plan["space"][0]["filesNeeded"], 5);
    EXPECT_EQ(plan["space"][0]["enough"], true);
}

TEST_F(PlanReportTest, JsonIsWholeAlsoForARefusalAndForBytesThatAreNoText) {
    GivenScript("[install]\nfile=delete,a\xFF\"b,$pathTarget$\n");
    const nlohmann::json plan = PlanInstallAsJson();
    EXPECT_EQ(plan["rules"][0]["fields"][1], "a\xEF\xBF\xBD\"b");
    GivenScript("[install]\nsection=install\n");
    const nlohmann::json refused = PlanInstallAsJson();
    EXPECT_EQ(refused["schema"], 1);
    EXPECT_EQ(refused["result"], "refused");
    EXPECT_EQ(refused["exitCode"], KSETUP::ExitCode::malformedScript);
    EXPECT_THAT(refused["error"]["text"], HasSubstr("[install] -> [install]"));
}

TEST_F(PlanReportTest, ControlCharactersOfNamesAreNotShown) {
    tree.Write("kit/d/a\x1b[2Jb", "x");
    tree.Directory("product");
    GivenScript("[install]\nfile=copy,*,$pathSource$d,$pathTarget$\n");
    EXPECT_THAT(PlanInstall().out, AllOf(HasSubstr("a?[2Jb"), Not(HasSubstr("\x1b"))));
}

TEST_F(PlanReportTest, TwentyThousandFilesOfOneDirectoryAreCountedOnce) {
    constexpr int count = 20000;
    for (int index = 0; index < count; ++index) {
        tree.Write("kit/many/f" + std::to_string(index), "x");
    }
    GivenScript("[install]\ndirectory=create,$pathTarget$\nfile=copy,*,$pathSource$many,"
                "$pathTarget$\n");
    const nlohmann::json plan = PlanInstallAsJson();
    EXPECT_EQ(plan["totals"]["created"], count);
    EXPECT_EQ(plan["space"][0]["filesNeeded"], count + 1); // and the directory
}

TEST_F(PlanReportTest, MacrosStandBelowEachOther) {
    GivenScript("[install]\n");
    const Outcome macros = Macros();
    EXPECT_EQ(macros.exitCode, 0);
    EXPECT_THAT(
        macros.out,
        AllOf(
            HasSubstr("$product$              Plan Test\n"),
            HasSubstr("$pathTarget$           " + tree.Path("product") + "/\n"),
            HasSubstr("$pathSource$           " + tree.Path("kit") + "/\n"),
            HasSubstr("$binext$\n")
        )
    );
    arguments.json = true;
    EXPECT_EQ(nlohmann::json::parse(Macros().out)["macros"]["verInfo"], "1.5");
}

TEST_F(PlanReportTest, WithoutAKitNothingIsPlanned) {
    EXPECT_EQ(PlanInstall().exitCode, KSETUP::ExitCode::noKit);
    EXPECT_EQ(Macros().exitCode, KSETUP::ExitCode::noKit);
}

TEST_F(PlanReportTest, ARecordThatCannotBeWrittenIsToldAndAnswered) {
    GivenScript("[install]\ndirectory=create,/etc/$serviceName$\n"
                "file=symlink,x,lin/x86_64,/etc/$serviceName$,$serviceName$\n");
    const Outcome plan = PlanInstall();
    EXPECT_EQ(plan.exitCode, KSETUP::ExitCode::ruleFailed);
    EXPECT_THAT(
        plan.out,
        HasSubstr(
            "The run would end when it writes the record: the link "
            "/etc/inspp-unit-test/inspp-unit-test leads to lin/x86_64/x, which is not absolute"
        )
    );
    GivenScript("[install]\ndirectory=create,/etc/$serviceName$\n"
                "file=symlink,x,$pathTargetBin$,/etc/$serviceName$,$serviceName$\n");
    EXPECT_THAT(
        PlanInstallAsJson()["recordObstacle"],
        HasSubstr("there is no configuration file " + tree.Path("product/config/pt.ini"))
    );
}

TEST_F(PlanReportTest, AServiceThatCannotBeStartedAnswersAsTheRun) {
    arguments.offlineServices = true;
    GivenSoundScript("[install]\nservice=start,inspp-none\n");
    const Outcome plan = PlanInstall();
    EXPECT_EQ(plan.exitCode, KSETUP::ExitCode::noService);
    EXPECT_THAT(plan.out, HasSubstr("would end here: there is no service inspp-none by then"));
}

TEST_F(PlanReportTest, WhatDoesNotFailIsNoObstacle) {
    tree.Directory("product/dir");
    tree.Write("product/list.ini", "[S]\nk=" + tree.Path("product/dir") + "\n");
    GivenSoundScript(
        "[install]\nprofile=remove_file,$pathTarget$list.ini,S,dir\n"
        "profile=put," +
        tree.Path("product/made.ini").substr(1) + ",S,K,V\n"
    );
    const Outcome plan = PlanInstall();
    EXPECT_EQ(plan.exitCode, 0) << plan.out;
}

TEST_F(PlanReportTest, NamesThatAreTooLongAreTold) {
    tree.Write("kit/a", "x");
    tree.Directory("product");
    GivenSoundScript(
        "[install]\nfile=copy,a,$pathSource$,$pathTarget$," + std::string(256, 'n') + "\n"
    );
    const Outcome plan = PlanInstall();
    EXPECT_EQ(plan.exitCode, KSETUP::ExitCode::ruleFailed);
    EXPECT_THAT(plan.out, HasSubstr("would end here: a name or a path is too long: "));
}

} // namespace
