// SPDX-License-Identifier: MIT
//
// ins-setup as its users meet it: what it prints, and what it answers.
#include "SetupRig.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using Json = nlohmann::json;

using KTEST::SetupProgramTest;
using KTEST::Slurp;

TEST_F(SetupProgramTest, InstallsTellsAndRemoves) {
    EXPECT_EQ(RunSetup("status").exitCode, 3);
    const Outcome installed = RunSetup("install");
    EXPECT_EQ(installed.exitCode, 0) << installed.err;
    EXPECT_THAT(
        installed.out, HasSubstr("Setup Test 1.5 (build 9) is installed in " + tree.Path("product"))
    );
    EXPECT_THAT(installed.out, HasSubstr("6 rules done. Log: /var/log/Setup Test Setup Log.txt"));
    const Outcome status = RunSetup("status");
    EXPECT_EQ(status.exitCode, 0);
    EXPECT_EQ(
        status.out, "Setup Test 1.5 (build 9) is installed in " + tree.Path("product") + ".\n"
    );
    const Outcome removed = RunSetup("remove");
    EXPECT_EQ(removed.exitCode, 0) << removed.err;
    EXPECT_FALSE(tree.Exists("product"));
    EXPECT_EQ(RunSetup("status").out, "Setup Test is not installed.\n");
}

TEST_F(SetupProgramTest, ARemovalTellsWhatItLeaves) {
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    tree.Write("product/mine/notes.txt", "not the product's");
    const Outcome removed = RunSetup("remove");
    EXPECT_EQ(removed.exitCode, 0);
    EXPECT_THAT(removed.out, HasSubstr("The directory is still there"));
    EXPECT_EQ(tree.Read("product/mine/notes.txt"), "not the product's");
}

TEST_F(SetupProgramTest, ARemovalThatLeavesTheLinkSaysSo) {
    GivenScript();
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    tree.Write("kit/install.ini", "[remove]\ndirectory=delete,$pathTargetConfig$\n");
    const Outcome removed = RunSetup("remove");
    EXPECT_EQ(removed.exitCode, 1);
    EXPECT_THAT(removed.err, HasSubstr("Setup Test still counts as installed"));
}

TEST_F(SetupProgramTest, ARemovalOfNothingIsDone) {
    const Outcome removed = RunSetup("remove");
    EXPECT_EQ(removed.exitCode, 0);
    EXPECT_EQ(removed.out, "Setup Test is not installed: there is nothing to remove.\n");
}

TEST_F(SetupProgramTest, APipeGetsOnePlainLineARule) {
    EXPECT_THAT(
        RunSetup("install").out,
        HasSubstr("[4/6] Copying file " + tree.Path("product") + "/lin/x86_64/svc\n")
    );
}

TEST_F(SetupProgramTest, ATerminalGetsOneLineThatIsDrawnOver) {
    const Outcome installed =
        Run("TERM=xterm script -qec 'SETUP install --kit " + tree.Path("kit") + "' /dev/null");
    EXPECT_EQ(installed.exitCode, 0);
    EXPECT_THAT(installed.out, HasSubstr("\r[6/6] "));
    EXPECT_THAT(installed.out, Not(HasSubstr("\n[")));
}

TEST_F(SetupProgramTest, AFailedRuleIsToldInWords) {
    GivenScript("file=copy,missing,$pathSource$lib,$pathTargetBin$\n");
    const Outcome failed = RunSetup("install", "--no-check");
    EXPECT_EQ(failed.exitCode, 1);
    EXPECT_THAT(
        failed.err, HasSubstr("Setup Test 1.5 (build 9): Installing failed after 4 of 7 rules.")
    );
    EXPECT_THAT(
        failed.err,
        HasSubstr(
            "Error 2: cannot read " + tree.Path("kit/lib/missing") + ": No such file or directory"
        )
    );
    EXPECT_THAT(
        failed.err,
        HasSubstr(
            "\nRule: " + tree.Path("kit/install.ini") +
            ":7: file=copy,missing,$pathSource$lib,$pathTargetBin$\n"
        )
    );
    EXPECT_THAT(
        failed.err, HasSubstr("    KINS::KInstallRuleManager: Executing rule -> File copy")
    );
    EXPECT_EQ(RunSetup("status").exitCode, 3);
}

TEST_F(SetupProgramTest, WhatCommandsWriteIsKeptBesideTheLogAndTold) {
    GivenScript("process=start,echo first; echo second >&2; false\n");
    const Outcome installed = RunSetup("install");
    EXPECT_EQ(installed.exitCode, 0) << installed.err;
    EXPECT_THAT(
        installed.out,
        HasSubstr(std::string("Log.txt\nWhat commands wrote: ") + commandOutput + "\n")
    );
    EXPECT_EQ(Slurp(commandOutput), "first\nsecond\n");
    EXPECT_EQ(std::filesystem::status(commandOutput).permissions(), std::filesystem::perms{0640});
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    EXPECT_EQ(Slurp(commandOutput), "first\nsecond\nfirst\nsecond\n");
}

TEST_F(SetupProgramTest, CommandsThatWriteNothingAreNotMentioned) {
    GivenScript("process=start,echo something\n");
    ASSERT_THAT(RunSetup("install").out, HasSubstr("What commands wrote"));
    GivenScript("process=start,true\n"); // with the former run's output still there
    EXPECT_THAT(RunSetup("install").out, Not(HasSubstr("What commands wrote")));
    EXPECT_THAT(RunSetup("remove").out, Not(HasSubstr("What commands wrote")));
}

TEST_F(SetupProgramTest, AFailureTellsWhatCommandsWroteBefore) {
    GivenScript(
        "process=start,/nowhere/prepare\nfile=copy,missing,$pathSource$lib,$pathTargetBin$\n"
    );
    const Outcome failed = RunSetup("install", "--no-check");
    EXPECT_EQ(failed.exitCode, 1);
    EXPECT_THAT(
        failed.err, HasSubstr(std::string("\nWhat commands wrote: ") + commandOutput + "\n")
    );
    EXPECT_THAT(Slurp(commandOutput), HasSubstr("/nowhere/prepare: not found"));
}

TEST_F(SetupProgramTest, ALinkThatComesInThePlaceOfTheCommandsFileIsNotFollowed) {
    tree.Write("victim", "mine\n");
    GivenScript(
        "file=symlink,victim," + tree.Path() +
        ",/var/log,Setup Test Setup Commands.txt\nprocess=start,echo something\n"
    );
    const Outcome failed = RunSetup("install", "--no-check");
    EXPECT_EQ(failed.exitCode, 1);
    EXPECT_THAT(
        failed.err,
        HasSubstr(
            "Error 172: A process could not be started or stopped: " + std::string(commandOutput) +
            ": a symbolic link"
        )
    );
    EXPECT_THAT(failed.err, HasSubstr(std::string(commandOutput) + ": a symbolic link"));
    EXPECT_EQ(tree.Read("victim"), "mine\n");
}

TEST_F(SetupProgramTest, AMissingRecordFileIsToldInWords) {
    GivenScript("directory=delete,$pathTargetConfig$\n");
    const Outcome failed = RunSetup("install", "--no-check");
    EXPECT_EQ(failed.exitCode, 1);
    EXPECT_THAT(failed.err, HasSubstr("The product's configuration file is missing"));
    EXPECT_THAT(failed.err, HasSubstr("All rules were done; writing the record"));
}

TEST_F(SetupProgramTest, AMissingLinkIsToldInWords) {
    GivenScript();
    tree.Write("kit/install.ini", "[install]\ndefaultPath.$os$=" + tree.Path("product") + "\n");
    const Outcome failed = RunSetup("install", "--no-check");
    EXPECT_EQ(failed.exitCode, 1);
    EXPECT_THAT(failed.err, HasSubstr("Error 64: The product's link is missing or no link."));
}

TEST_F(SetupProgramTest, ADeletionThatFailsIsToldInWords) {
    GivenScript("file=delete,lib,$pathSource$\n");
    const Outcome failed = RunSetup("install", "--no-check");
    EXPECT_EQ(failed.exitCode, 1);
    EXPECT_THAT(
        failed.err,
        HasSubstr("Error 21: cannot delete " + tree.Path("kit/lib") + ": Is a directory\nRule: ")
    );
}

TEST_F(SetupProgramTest, AnIgnoredHangUpStaysIgnored) {
    std::filesystem::resize_file(tree.Path("kit/lib/svc"), 1ULL << 30U);
    const Outcome installed =
        Run("(trap '' HUP; exec SETUP install --kit " + tree.Path("kit") + ") & " + WhenItCopies() +
            "kill -HUP $!; wait $!");
    EXPECT_EQ(installed.exitCode, 0) << installed.err;
}

TEST_F(SetupProgramTest, LinesThatAreNoRulesAreRefusedTogetherWhateverIsAskedFor) {
    GivenScript("file=copy,a\nfiles=copy,a,b,c\n");
    const Outcome refused = RunSetup("install", "--no-check");
    const std::string script = tree.Path("kit/install.ini");
    EXPECT_EQ(refused.exitCode, 65);
    EXPECT_THAT(
        refused.err,
        HasSubstr(
            "ins-setup: the script cannot be loaded. Nothing was changed.\n" + script +
            ":7: a file rule has 3 to 5 fields, and this line 2. Empty fields do not count.\n" +
            script + ":8: \"files\" is no type of rule. They are "
        )
    );
    EXPECT_FALSE(tree.Exists("product"));
    EXPECT_EQ(Slurp(setupLog), "");
}

TEST_F(SetupProgramTest, AnAddedLineThatIsNoOptionIsRefused) {
    const Outcome refused = RunSetup("install", "--addProfileLine a,b,c --addProfileLine General");
    EXPECT_EQ(refused.exitCode, 64);
    EXPECT_EQ(
        refused.err,
        "ins-setup: --addProfileLine General: a line is SECTION,KEY,VALUE, none of them empty or "
        "with a comma in it. Nothing was changed.\n"
    );
    EXPECT_EQ(RunSetup("install", "--addProfileLine General,Name,Value").exitCode, 0);
    EXPECT_THAT(tree.Read("product/config/st.ini"), HasSubstr("Name=Value\n"));
}

TEST_F(SetupProgramTest, AScriptWithErrorsIsRefusedWithTheirPlaces) {
    GivenScript("file=copy,missing,$pathSource$lib,$pathTargetBin$\n");
    const Outcome refused = RunSetup("install");
    EXPECT_EQ(refused.exitCode, 65);
    EXPECT_THAT(
        refused.err,
        HasSubstr(
            "\n" + tree.Path("kit/install.ini") +
            ":7:11: error: \"lib/missing\" is not in the kit; "
        )
    );
    EXPECT_FALSE(tree.Exists("product"));
}

TEST_F(SetupProgramTest, ACircleIsRefusedWhateverIsAskedFor) {
    GivenScript("section=install\n");
    const Outcome refused = RunSetup("install", "--no-check");
    EXPECT_EQ(refused.exitCode, 65);
    EXPECT_THAT(
        refused.err, HasSubstr("install.ini:7:9: error: section [install] includes itself")
    );
}

TEST_F(SetupProgramTest, AnInterruptedRunIsToldByTheNext) {
    GivenScript("file=delete,lib,$pathSource$\n"); // fails: a directory
    ASSERT_EQ(RunSetup("install", "--no-check").exitCode, 1);
    GivenScript();
    const Outcome next = RunSetup("install");
    EXPECT_EQ(next.exitCode, 0);
    EXPECT_THAT(
        next.out,
        HasSubstr(
            "installing Setup Test 1.5 in " + tree.Path("product") +
            " was interrupted at rule 5 of 7. Run \"ins-setup install\" again to go on.\n"
        )
    );
    EXPECT_THAT(RunSetup("install").out, Not(HasSubstr("interrupted")));
}

TEST_F(SetupProgramTest, VerifyComparesWithWhatWasInstalled) {
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    const Outcome same = RunSetup("status", "--verify");
    EXPECT_EQ(same.exitCode, 0);
    EXPECT_THAT(same.out, HasSubstr("It is as it was installed."));
    tree.Write("product/config/st.ini", "[installControl]\ninstalledVersion=1.5\n[My]\nown=1\n");
    EXPECT_EQ(RunSetup("status", "--verify").exitCode, 0); // a configuration is there to be edited
    tree.Write("product/lin/x86_64/svc", "changed", 0755);
    const Outcome differs = RunSetup("status", "--verify");
    EXPECT_EQ(differs.exitCode, 4);
    EXPECT_THAT(differs.out, HasSubstr("    " + tree.Path("product/lin/x86_64/svc") + " "));
    EXPECT_THAT(
        RunSetup("status", "--verify --json").out,
        HasSubstr("\"result\":\"differs\",\"exitCode\":4")
    );
}

TEST_F(SetupProgramTest, WhatRulesWriteIntoACopyIsNoDifference) {
    tree.Write("kit/lib/options", "[A]\nK=1\n");
    tree.Write("kit/lib/list", "1\n");
    GivenScript("file=copy,options,$pathSource$lib,$pathTarget$\n"
                "file=copy,list,$pathSource$lib,$pathTarget$\n"
                "profile=put,$pathTarget$options,A,K,2\n");
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    ASSERT_EQ(tree.Read("product/options"), "[A]\nK=2\n"); // as long as what was copied
    EXPECT_EQ(RunSetup("status", "--verify").exitCode, 0);
    GivenScript("file=copy,list,$pathSource$lib,$pathTarget$\n"
                "process=start,echo 2 > \"$pathTarget$list\"\n");
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    ASSERT_EQ(tree.Read("product/list"), "2\n");
    EXPECT_EQ(RunSetup("status", "--verify").exitCode, 0);
}

TEST_F(SetupProgramTest, VerifyWithoutAManifestSaysSo) {
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    std::filesystem::remove_all("/var/lib/ins++/setuptest");
    const Outcome refused = RunSetup("status", "--verify");
    EXPECT_EQ(refused.exitCode, 66);
    EXPECT_THAT(refused.err, HasSubstr("there is nothing to compare with"));
}

TEST_F(SetupProgramTest, ARemovalLeavesNothingOfWhatIsRemembered) {
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    EXPECT_TRUE(std::filesystem::exists("/var/lib/ins++/setuptest/manifest"));
    ASSERT_EQ(RunSetup("remove").exitCode, 0);
    EXPECT_FALSE(std::filesystem::exists("/var/lib/ins++/setuptest"));
}

TEST_F(SetupProgramTest, VerifyKnowsWhatAnUpgradeCopiedTwice) {
    GivenScript("file=copy,svc,$pathTargetBin$,$pathTargetBin$,twin\n");
    tree.Write("kit/lib/svc", "old", 0755);
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    tree.Write("kit/lib/svc", "new", 0755); // no longer than it was: only the contents tell
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    ASSERT_EQ(tree.Read("product/lin/x86_64/twin"), "new");
    const Outcome same = RunSetup("status", "--verify");
    EXPECT_EQ(same.exitCode, 0) << same.out;
}

TEST_F(SetupProgramTest, RestorePutsBackWhatAnUpgradeReplaced) {
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    const std::vector<std::string> before = tree.List("product");
    tree.Write("kit/lib/svc", "another program", 0755);
    tree.Write("kit/lib/more", "more");
    GivenScript("file=copy,more,$pathSource$lib,$pathTargetBin$\n");
    tree.Write(
        "kit/product.ini",
        "[product]\nname=Setup Test\nserviceName=setuptest\niniFile=st.ini\nversion=1.6\n"
    );
    ASSERT_EQ(RunSetup("install", "--backup").exitCode, 0);
    ASSERT_NE(tree.List("product"), before);
    const Outcome restored = RunSetup("restore");
    EXPECT_EQ(restored.exitCode, 0) << restored.err;
    EXPECT_THAT(restored.out, HasSubstr("Setup Test is as it was before.\n"));
    EXPECT_EQ(tree.List("product"), before);
    EXPECT_THAT(RunSetup("status", "--verify").out, HasSubstr("Setup Test 1.5 (build 9)"));
    EXPECT_EQ(RunSetup("status", "--verify").exitCode, 0);
}

TEST_F(SetupProgramTest, RestorePutsBackWhatARemovalDeleted) {
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    const std::vector<std::string> before = tree.List("product");
    ASSERT_EQ(RunSetup("remove", "--backup").exitCode, 0);
    ASSERT_EQ(RunSetup("status").exitCode, 3);
    const Outcome restored = RunSetup("restore", "--quiet");
    ASSERT_EQ(restored.exitCode, 0) << restored.err;
    EXPECT_THAT(restored.out + restored.err, IsEmpty());
    EXPECT_EQ(tree.List("product"), before);
    EXPECT_EQ(RunSetup("status").exitCode, 0);
}

TEST_F(SetupProgramTest, RestoreWithoutABackupSaysSo) {
    const Outcome refused = RunSetup("restore");
    EXPECT_EQ(refused.exitCode, 66) << refused.out;
    EXPECT_THAT(refused.err, HasSubstr("there is no backup for setuptest"));
}

TEST_F(SetupProgramTest, ADowngradeIsRefusedUnlessItIsAllowed) {
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    tree.Write(
        "kit/product.ini",
        "[product]\nname=Setup Test\nserviceName=setuptest\niniFile=st.ini\nversion=1.4\n"
    );
    const Outcome refused = RunSetup("install");
    EXPECT_EQ(refused.exitCode, 64);
    EXPECT_THAT(
        refused.err,
        HasSubstr("Setup Test 1.5 (build 9) is installed, which is newer than 1.4 (build 0)")
    );
    EXPECT_EQ(RunSetup("install", "--allow-downgrade").exitCode, 0);
}

TEST_F(SetupProgramTest, TheLogTellsWhatTheRunIsAndHowItEnds) {
    ASSERT_EQ(RunSetup("install", "--quiet").exitCode, 0);
    const std::string log = Slurp("/var/log/Setup Test Setup Log.txt");
    EXPECT_THAT(
        log,
        HasSubstr(
            "ins-setup: Begin install of Setup Test 1.5 (build 9) in " + tree.Path("product") +
            ", from kit " + tree.Path("kit") + "\t"
        )
    );
    EXPECT_THAT(log, HasSubstr("ins-setup: Arguments: "));
    EXPECT_THAT(
        log, HasSubstr("ins-setup: End install of Setup Test 1.5 (build 9): done, 6 of 6 rules\t")
    );
}

TEST_F(SetupProgramTest, TheLogTellsWhichProgramRanOnWhichMachine) {
    ASSERT_EQ(RunSetup("install", "--quiet").exitCode, 0);
    const Outcome machine =
        Run("echo \"$(SETUP --version) on $(uname -n), $(uname -s) $(uname -r) $(uname -m)\"");
    const std::string line = machine.out.substr(0, machine.out.find('\n'));
    EXPECT_THAT(line, ::testing::MatchesRegex("ins-setup [0-9.]+ on .+, Linux .+ .+"));
    EXPECT_THAT(Slurp(setupLog), HasSubstr("ins-setup: " + line + "\t"));
}

TEST_F(SetupProgramTest, TheJournalTellsHowRunsEnd) {
    GivenScript("file=delete,lib,$pathSource$\n");
    ASSERT_EQ(RunSetup("install", "--no-check").exitCode, 1);
    const Outcome journal =
        Run("journalctl --sync; journalctl -o json INSPP_PRODUCT='Setup Test' INSPP_RESULT=failed");
    EXPECT_THAT(journal.out, HasSubstr("\"INSPP_COMMAND\":\"install\""));
    EXPECT_THAT(journal.out, HasSubstr("\"PRIORITY\":\"3\""));
}

TEST_F(SetupProgramTest, ProgramsThatRunAndAreReplacedOrDeletedAreNamed) {
    std::filesystem::copy_file(
        "/bin/sleep", tree.Path("kit/lib/svc"), std::filesystem::copy_options::overwrite_existing
    );
    const std::string program = tree.Path("product/lin/x86_64/svc");
    EXPECT_THAT(RunSetup("install").out, Not(HasSubstr("Running")));
    const Outcome both =
        Run(program + " 1000 & echo $!; SETUP install --kit KIT; kill $!; wait $!; " + program +
            " 1000 & echo $!; SETUP remove --kit KIT; kill $!");
    std::istringstream lines(both.out);
    std::vector<std::string> told;
    for (std::string line; std::getline(lines, line);) {
        if (line.find_first_not_of("0123456789") == std::string::npos ||
            line.starts_with("Running")) {
            told.push_back(line);
        }
    }
    ASSERT_EQ(told.size(), 4U) << both.out << both.err;
    EXPECT_EQ(told[1], "Running, and about to be replaced: svc (" + told[0] + "), " + program);
    EXPECT_EQ(told[3], "Running, and about to be deleted: svc (" + told[2] + "), " + program);
}

TEST_F(SetupProgramTest, ProgramsThatRunAreInTheAnswerToo) {
    std::filesystem::copy_file(
        "/bin/sleep", tree.Path("kit/lib/svc"), std::filesystem::copy_options::overwrite_existing
    );
    const std::string program = tree.Path("product/lin/x86_64/svc");
    EXPECT_FALSE(Json::parse(RunSetup("install", "--json").out).contains("running"));
    const Outcome told =
        Run(program + " 1000 & echo $! > TREE/pid; SETUP install --json --kit KIT; kill $!");
    const std::string pid = tree.Read("pid").substr(0, tree.Read("pid").find('\n'));
    const Json expected = {"svc (" + pid + "), " + program};
    EXPECT_EQ(Json::parse(told.out).value("running", Json()), expected) << told.out;
    const Outcome removed =
        Run(program + " 1000 & echo $! > TREE/pid; SETUP remove --json --yes --kit KIT; kill $!");
    EXPECT_THAT(
        Json::parse(removed.out).value("running", Json()).dump(),
        HasSubstr("(" + tree.Read("pid").substr(0, tree.Read("pid").find('\n')) + "), " + program)
    ) << removed.out;
}

TEST_F(SetupProgramTest, ARemovalTellsOfWhatAnEarlierVersionInstalled) {
    tree.Write("kit/lib/former", "of 1.5 only");
    tree.Write("kit/lib/gone", "of 1.5 only");
    GivenScript("file=copy,former,$pathSource$lib,$pathTargetBin$\n"
                "file=copy,gone,$pathSource$lib,$pathTargetBin$\n");
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    GivenScript("file=delete,gone,$pathTargetBin$\n");
    ASSERT_EQ(RunSetup("install").exitCode, 0); // an upgrade, whose script does not know of it
    tree.Write("product/lin/x86_64/former", "changed");
    const std::string former = tree.Path("product/lin/x86_64/former");
    EXPECT_THAT(RunSetup("status", "--verify").out, HasSubstr("\n    " + former + " "));
    tree.Write(
        "kit/install.ini",
        "[remove]\nfile=delete,svc,$pathTargetBin$\nfile=delete,$serviceName$,/etc/$serviceName$\n"
        "directory=delete,/etc/$serviceName$\ndirectory=delete,$pathTargetConfig$\n"
    );
    const Outcome removed = RunSetup("remove");
    EXPECT_EQ(removed.exitCode, 0) << removed.err;
    const std::string target = tree.Path("product");
    EXPECT_THAT(
        removed.out,
        HasSubstr(
            "Still there:\n    " + target + "\n    " + target + "/lin\n    " + target +
            "/lin/x86_64\n    " + former + "\n"
        )
    );
    EXPECT_THAT(removed.out, Not(HasSubstr("/gone")));
}

TEST_F(SetupProgramTest, OneRunAtATimeForAProduct) {
    std::filesystem::resize_file(tree.Path("kit/lib/svc"), 2ULL << 30U);
    const std::string call = "SETUP install --quiet --kit " + tree.Path("kit");
    const Outcome both =
        Run(call + " & until test -s /run/lock/ins++-setuptest.lock; do sleep 0.01; done; " + call +
            "; echo second $?; wait $!; echo first $?");
    EXPECT_EQ(both.out, "second 75\nfirst 0\n");
    EXPECT_THAT(both.err, HasSubstr("ins-setup"));
}

TEST_F(SetupProgramTest, TwentyRunsThatWaitAllComeToTheirEnd) {
    const std::string call = "SETUP install --quiet --wait 120 --kit " + tree.Path("kit");
    const Outcome all = Run(
        "for i in $(seq 20); do " + call +
        " & jobs=\"$jobs $!\"; done; for job in $jobs; do wait $job || echo failed; done; echo all"
    );
    EXPECT_EQ(all.out, "all\n") << all.err;
    EXPECT_EQ(RunSetup("status").exitCode, 0);
}

struct Refusal {
    const char* name;
    const char* line;
    int exitCode;
    const char* message;
};

class SetupRefusalTest : public SetupProgramTest, public ::testing::WithParamInterface<Refusal> {};

TEST_P(SetupRefusalTest, SaysWhatIsWrongAndWhatToDo) {
    const Outcome refused = Run(GetParam().line);
    EXPECT_EQ(refused.exitCode, GetParam().exitCode) << refused.err;
    EXPECT_THAT(refused.out + refused.err, HasSubstr(GetParam().message));
    EXPECT_FALSE(tree.Exists("product"));
}

INSTANTIATE_TEST_SUITE_P(
    Calls,
    SetupRefusalTest,
    ::testing::Values(
        Refusal{"NoAction", "SETUP", 64, "A subcommand is required"},
        Refusal{"UnknownAction", "SETUP instal --kit KIT", 64, "not expected: instal"},
        Refusal{"EmptyKit", "SETUP install --kit ''", 64, "--kit: is empty"},
        Refusal{"EmptyBundle", "SETUP kit bundle --kit KIT -o ''", 64, "--output: is empty"},
        Refusal{"EmptyTree", "SETUP kit add --kit KIT ''", 64, "tree: is empty"},
        Refusal{"EmptyDirectoryOfANewKit", "SETUP kit new ''", 64, "directory: is empty"},
        Refusal{"UnknownOption", "SETUP install --kit KIT --quickly", 64, "--quickly"},
        Refusal{"MissingKit", "SETUP install --kit /nowhere", 66, "/nowhere: no such directory"},
        Refusal{"NoKitAtAll", "SETUP install", 66, "product.ini: missing. A kit is"},
        Refusal{
            "NoScript", "rm KIT/install.ini; SETUP install --kit KIT", 66, "install.ini: missing"},
        Refusal{
            "ProductWithSlash",
            "sed -i s,=setuptest,=a/b, KIT/product.ini; SETUP install --kit KIT",
            65,
            "must be names without \"/\""},
        Refusal{"SystemPath", "SETUP install --kit KIT /usr", 64, "\"/usr\" cannot be used"},
        Refusal{"RelativePath", "SETUP install --kit KIT opt/x", 64, "does not begin with \"/\""},
        Refusal{
            "SystemDefault",
            "sed -i 's,^defaultPath.*,defaultPath.$os$=/etc,' KIT/install.ini; SETUP install --kit "
            "KIT",
            65,
            "\"/etc\" cannot be used"},
        Refusal{
            "RecordOfTheSystem",
            "mkdir /etc/setuptest; ln -s /usr/lin/x86/svc /etc/setuptest/setuptest; "
            "SETUP remove --kit KIT",
            65,
            "The record of the installed product is wrong"},
        Refusal{
            "KitThatOthersMayChange",
            "chmod o+w KIT; SETUP install --kit KIT",
            66,
            "others than root can change it"},
        Refusal{
            "NoSpace",
            "truncate -s 8T KIT/lib/svc; SETUP install --kit KIT",
            73,
            "too little space: 8.0 TiB needed"},
        Refusal{
            "ProgressDescriptor",
            "SETUP install --progress-fd 9 --kit KIT",
            64,
            "--progress-fd 9: no open descriptor"},
        Refusal{
            "NotRoot",
            "setpriv --reuid 65534 --regid 65534 --clear-groups SETUP install --kit /nowhere",
            77,
            "Only root can install"}
    ),
    [](const auto& each) { return each.param.name; }
);

TEST_F(SetupProgramTest, APathBesideTheInstalledProductIsRefused) {
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    const Outcome refused = RunSetup("install", "/opt/elsewhere");
    EXPECT_EQ(refused.exitCode, 64);
    EXPECT_THAT(refused.err, HasSubstr("Setup Test is installed in " + tree.Path("product")));
    EXPECT_EQ(RunSetup("install", tree.Path("product/")).exitCode, 0);
}

struct SignalRow {
    const char* name;
    int exitCode;
};

class SetupSignalTest : public SetupProgramTest, public ::testing::WithParamInterface<SignalRow> {};

TEST_P(SetupSignalTest, StopsTheRunAndSaysSo) {
    // Sparse: takes long to copy and no room in the kit.
    std::filesystem::resize_file(tree.Path("kit/lib/svc"), 3ULL << 30U);
    const Outcome stopped =
        Run("SETUP install --kit " + tree.Path("kit") + " & " + WhenItCopies() + "kill -" +
            GetParam().name + " $!; wait $!");
    EXPECT_EQ(stopped.exitCode, GetParam().exitCode);
    EXPECT_THAT(stopped.err, HasSubstr("Stopping.\nWaiting for: Copying file"));
    EXPECT_THAT(stopped.err, HasSubstr("Installing was stopped on request after 4 of 6 rules."));
    EXPECT_FALSE(tree.Exists("product/lin/x86_64/svc"));
    EXPECT_EQ(RunSetup("status").exitCode, 3);
}

INSTANTIATE_TEST_SUITE_P(
    Signals,
    SetupSignalTest,
    ::testing::Values(SignalRow{"INT", 130}, SignalRow{"TERM", 143}, SignalRow{"HUP", 129}),
    [](const auto& each) { return each.param.name; }
);

/// Ten files by one rule, of which the third is large.
class SetupStoppedWildcardTest : public SetupProgramTest {
  protected:
    SetupStoppedWildcardTest() {
        for (int number = 0; number < 10; ++number) {
            tree.Write("kit/many/f" + std::to_string(number), "1");
        }
        GivenScript("directory=create,$pathTarget$many\n"
                    "file=copy,*,$pathSource$many,$pathTarget$many\n");
    }
    /// Stops an install while it copies the large file.
    Outcome Stop() {
        std::filesystem::resize_file(tree.Path("kit/many/f2"), 3ULL << 30U);
        return Run("SETUP install --kit KIT & n=0; "
                   "until [ $(stat -c %s TREE/product/many/f2 2> /dev/null || echo 0) -gt 1 ] || "
                   "[ $((n += 1)) -gt 6000 ]; do sleep 0.01; done; kill -INT $!; wait $!");
    }
    std::vector<std::string> Installed() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(tree.Path("product/many"))) {
            names.push_back(entry.path().filename());
        }
        return names;
    }
};

TEST_F(SetupStoppedWildcardTest, AllThatItTakesAwayIsNamed) {
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    const Outcome stopped = Stop();
    EXPECT_EQ(stopped.exitCode, 130);
    EXPECT_THAT(Installed(), ::testing::UnorderedElementsAre("f0", "f1"));
    const std::string many = tree.Path("product/many/f");
    EXPECT_THAT(
        stopped.err,
        HasSubstr(
            "The files that were being copied were taken away: " + many + "2, " + many + "3, " +
            many + "4, " + many + "5, " + many + "6 and 3 more\n"
        )
    );
    EXPECT_THAT(
        stopped.err,
        HasSubstr("What was done stays in " + tree.Path("product") + "; run it again to go on.\n")
    );
}

TEST_F(SetupProgramTest, ARemovalThatIsStoppedSaysWhereTheRestIs) {
    std::string script = tree.Read("kit/install.ini");
    script.insert(
        script.find("[remove]") + sizeof("[remove]"),
        "process=start,touch " + tree.Path("started") + "; sleep 60\n"
    );
    tree.Write("kit/install.ini", script);
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    const Outcome stopped =
        Run("SETUP remove --kit KIT & n=0; until [ -e TREE/started ] || "
            "[ $((n += 1)) -gt 6000 ]; do sleep 0.01; done; kill -INT $!; wait $!");
    EXPECT_EQ(stopped.exitCode, 130);
    EXPECT_THAT(
        stopped.err,
        HasSubstr(
            "What was not yet removed stays in " + tree.Path("product") +
            "; run it again to go on.\n"
        )
    );
    EXPECT_THAT(stopped.err, Not(HasSubstr("What was done")));
}

TEST_F(SetupProgramTest, ARunThatFailsBeforeItMadeItsDirectorySaysNothingStaysThere) {
    std::string script = tree.Read("kit/install.ini");
    script.insert(sizeof("[install]"), "file=copy,missing,$pathSource$,$pathTargetBin$\n");
    tree.Write("kit/install.ini", script);
    const Outcome failed = RunSetup("install", "--no-check");
    EXPECT_EQ(failed.exitCode, 1);
    EXPECT_THAT(failed.err, HasSubstr("failed after 0 of 7 rules"));
    EXPECT_THAT(failed.err, HasSubstr("\nMend the cause and run it again.\n"));
    EXPECT_THAT(failed.err, Not(HasSubstr(" stays in ")));
}

TEST_F(SetupProgramTest, AReaderWhoGoesAwayStopsNothing) {
    EXPECT_EQ(Run("SETUP install --kit " + tree.Path("kit") + " | true").exitCode, 0);
    for (int tries = 100; tries > 0 && RunSetup("status").exitCode != 0; --tries) {
        std::system("sleep 0.05"); // NOLINT: the pipe's end is not the program's
    }
    EXPECT_EQ(RunSetup("status").exitCode, 0);
}

} // namespace
