// SPDX-License-Identifier: MIT
//
// What ins-setup remembers of its runs, also where that is damaged, and what it tells of runs that
// go on or did not come to their end.
#include "SetupRig.h"

#include <filesystem>
#include <string>

namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

class SetupStateTest : public KTEST::SetupProgramTest {
  protected:
    static constexpr const char* directory = "/var/lib/ins++/setuptest";
    static constexpr const char* notUnderstood = "state cannot be understood";

    void GivenDamage(const std::string& name) {
        const std::string file = std::string(directory) + "/" + name;
        ASSERT_EQ(Run("mkdir -p -m 700 /var/lib/ins++ " + std::string(directory)).exitCode, 0);
        ASSERT_EQ(Run("echo x > " + file + "; chmod 600 " + file).exitCode, 0);
    }
    /// A run that waits in a rule until "go" is there.
    void GivenScriptThatWaits() {
        GivenScript(
            "process=start,touch " + tree.Path("started") + "; n=0; until [ -e " + tree.Path("go") +
            " ] || [ $((n += 1)) -gt 3000 ]; do sleep 0.01; done\n"
        );
    }
    static constexpr const char* whenStarted =
        "n=0; until [ -e TREE/started ] || [ $((n += 1)) -gt 3000 ]; do sleep 0.01; done; ";
};

TEST_F(SetupStateTest, ADamagedManifestIsWrittenAnewByAnInstall) {
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    GivenDamage("manifest");
    EXPECT_EQ(RunSetup("status", "--verify").exitCode, 65);
    const Outcome again = RunSetup("install");
    EXPECT_EQ(again.exitCode, 0) << again.err;
    EXPECT_THAT(again.out, HasSubstr("The former manifest could not be understood"));
    EXPECT_EQ(RunSetup("status", "--verify").exitCode, 0);
}

TEST_F(SetupStateTest, ADamagedManifestHoldsNoRemovalUp) {
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    GivenDamage("manifest");
    const Outcome removed = RunSetup("remove");
    EXPECT_EQ(removed.exitCode, 0) << removed.err;
    EXPECT_THAT(removed.err, IsEmpty());
    EXPECT_THAT(
        removed.out,
        AllOf(
            HasSubstr("Setup Test is removed from "),
            HasSubstr("\n/var/lib/ins++/setuptest/manifest could not be understood")
        )
    );
    EXPECT_FALSE(fs::exists(directory));
    EXPECT_THAT(KTEST::Slurp(setupLog), HasSubstr("End remove of Setup Test 1.5 (build 9): done"));
    EXPECT_EQ(RunSetup("status").out, "Setup Test is not installed.\n");
}

TEST_F(SetupStateTest, ADamagedStateIsToldAndMendedByTheNextInstall) {
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    GivenDamage("state");
    const Outcome status = RunSetup("status");
    EXPECT_EQ(status.exitCode, 0) << status.err;
    EXPECT_THAT(status.out, AllOf(HasSubstr(notUnderstood), HasSubstr("is installed in")));
    const Outcome next = RunSetup("install");
    EXPECT_EQ(next.exitCode, 0) << next.err;
    EXPECT_THAT(next.out, HasSubstr(notUnderstood));
    EXPECT_FALSE(fs::exists(stateFile));
    EXPECT_THAT(RunSetup("status").out, Not(HasSubstr("understood")));
}

/// Too late for a refusal: the product is installed, and the next run would hear that it is not.
TEST_F(SetupStateTest, AStateThatCannotBeTakenAwayIsAFailure) {
    GivenScript(
        "process=start,cd /var/lib/ins++/setuptest && rm state && mkdir -p state/in-the-way\n"
    );
    const Outcome failed = RunSetup("install");
    EXPECT_EQ(failed.exitCode, 73) << failed.out;
    EXPECT_THAT(failed.err, HasSubstr("/var/lib/ins++/setuptest/state"));
    EXPECT_THAT(
        KTEST::Slurp(setupLog), HasSubstr("End install of Setup Test 1.5 (build 9): failed")
    );
    EXPECT_EQ(Run("rm -r /var/lib/ins++/setuptest/state; SETUP status --kit KIT").exitCode, 0);
}

TEST_F(SetupStateTest, ADamagedStateHoldsNoRemovalUp) {
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    GivenDamage("state");
    const Outcome removed = RunSetup("remove");
    EXPECT_EQ(removed.exitCode, 0) << removed.err;
    EXPECT_THAT(removed.out, AllOf(HasSubstr(notUnderstood), HasSubstr("is removed from")));
    EXPECT_FALSE(tree.Exists("product"));
    EXPECT_FALSE(fs::exists(directory));
}

TEST_F(SetupStateTest, ADamagedStateOfAProductThatIsNotInstalledIsToldToo) {
    GivenDamage("state");
    const Outcome status = RunSetup("status");
    EXPECT_EQ(status.exitCode, 3) << status.err;
    EXPECT_THAT(status.out, HasSubstr(notUnderstood));
    const Outcome removed = RunSetup("remove");
    EXPECT_EQ(removed.exitCode, 0) << removed.err;
    EXPECT_THAT(removed.out, AllOf(HasSubstr(notUnderstood), HasSubstr("nothing to remove")));
    EXPECT_EQ(RunSetup("install").exitCode, 0);
    EXPECT_FALSE(fs::exists(stateFile));
}

TEST_F(SetupStateTest, ARemovalThatLeavesTheLinkFailedEverywhere) {
    tree.Write("kit/product.ini", KTEST::Replaced(product, "1.5", "72.1"));
    for (const char* const section : {"directory=delete,$pathTargetConfig$\n", ""}) {
        GivenScript();
        ASSERT_EQ(RunSetup("install").exitCode, 0);
        tree.Write("kit/install.ini", std::string("[remove]\n") + section);
        const Outcome removed = RunSetup("remove");
        EXPECT_EQ(removed.exitCode, 1);
        EXPECT_THAT(
            removed.err,
            AllOf(HasSubstr("rules.\nSetup Test still counts"), Not(HasSubstr("Error")))
        );
        const std::string count = *section == '\0' ? "0 of 0" : "1 of 1";
        const std::string log = KTEST::Slurp(setupLog);
        EXPECT_THAT(
            log.substr(log.rfind("ins-setup: End remove")),
            HasSubstr(": failed, " + count + " rules: Setup Test still counts as installed")
        );
        EXPECT_FALSE(fs::exists(stateFile));
        EXPECT_THAT(RunSetup("status").out, Not(HasSubstr("interrupted")));
    }
    const Outcome journal =
        Run("journalctl --sync; journalctl -q -o json INSPP_VERSION=72.1 INSPP_COMMAND=remove");
    EXPECT_THAT(
        journal.out,
        AllOf(HasSubstr("\"INSPP_RESULT\":\"failed\""), Not(HasSubstr("\"INSPP_RESULT\":\"done\"")))
    );
}

TEST_F(SetupStateTest, ARunThatFailsBehindItsLastRuleIsAtThatRule) {
    GivenScript("directory=delete,$pathTargetConfig$\n"); // where the record would go
    ASSERT_EQ(RunSetup("install", "--no-check").exitCode, 1);
    EXPECT_EQ(KTEST::Slurp(stateFile).substr(0, 11), "0000000007\n");
    EXPECT_THAT(RunSetup("status").out, HasSubstr("was interrupted at rule 7 of 7."));
}

TEST_F(SetupStateTest, ARunThatIsKilledInItsFirstRuleIsAtThatRule) {
    GivenScriptThatWaits();
    std::string script = tree.Read("kit/install.ini");
    const std::size_t at = script.find("process=");
    const std::string rule = script.substr(at, script.find('\n', at) + 1 - at);
    script.erase(at, rule.size());
    tree.Write("kit/install.ini", script.insert(script.find("directory="), rule));
    Run("SETUP install --kit KIT & " + std::string(whenStarted) +
        "kill -KILL $!; wait $!; touch TREE/go");
    ASSERT_TRUE(tree.Exists("started"));
    EXPECT_THAT(RunSetup("status").out, HasSubstr("was interrupted at rule 1 of 7."));
}

TEST_F(SetupStateTest, WhoWaitsAndWhoAsksIsToldOfTheRunThatGoesOn) {
    GivenScriptThatWaits();
    const Outcome all =
        Run("SETUP install --quiet --kit KIT & first=$!; echo $first > TREE/pid; " +
            std::string(whenStarted) +
            "SETUP install --wait 60 --kit KIT > TREE/second & second=$!; "
            "n=0; until grep -q Waiting TREE/second || [ $((n += 1)) -gt 500 ]; do sleep 0.01; "
            "done; SETUP status --kit KIT; sleep 0.5; touch TREE/go; wait $first; echo first $?; "
            "wait $second; echo second $?");
    const std::string pid = tree.Read("pid").substr(0, tree.Read("pid").find('\n'));
    const std::string process = "process " + pid + " (" + Program() + " install --quiet --kit ";
    EXPECT_THAT(
        all.out,
        AllOf(
            HasSubstr("A run is going on: " + process),
            Not(HasSubstr("interrupted")),
            HasSubstr("first 0\nsecond 0\n")
        )
    ) << all.err;
    const std::string waited = tree.Read("second");
    EXPECT_THAT(waited, StartsWith("Waiting for another run for setuptest: " + process));
    EXPECT_EQ(waited.find("Waiting"), waited.rfind("Waiting"));
}

TEST_F(SetupStateTest, AHolderThatDoesNotSayWhoItIsIsWaitedForAloud) {
    const Outcome refused =
        Run("flock /run/lock/ins++-setuptest.lock SETUP install --wait 1 --kit KIT");
    EXPECT_EQ(refused.exitCode, 75);
    EXPECT_EQ(refused.out, "Waiting for another run for setuptest.\n");
    EXPECT_EQ(
        Run("flock /run/lock/ins++-setuptest.lock SETUP restore --wait 1 --kit KIT").out,
        refused.out
    );
    EXPECT_THAT(
        Run("flock /run/lock/ins++-setuptest.lock SETUP install --wait 1 --quiet --kit KIT").out,
        IsEmpty()
    );
}

} // namespace
