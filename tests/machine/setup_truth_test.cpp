// SPDX-License-Identifier: MIT
//
// What ins-setup does and writes down is what there was when it held the product's lock, and what was
// done: also beside another run, behind commands, and after a run that was killed.
#include "SetupRig.h"

#include <chrono>
#include <filesystem>
#include <string>

namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

class SetupTruthTest : public KTEST::SetupProgramTest {
  protected:
    ~SetupTruthTest() override { fs::remove_all(outside); }

    /// A run that waits in a rule until "go" is there; `more` comes behind that rule.
    void GivenScriptThatWaits(const std::string& before = "", const std::string& more = "") {
        GivenScript(
            before + "process=start,touch " + tree.Path("started") + "; n=0; until [ -e " +
            tree.Path("go") + " ] || [ $((n += 1)) -gt 3000 ]; do sleep 0.01; done\n" + more
        );
    }
    static constexpr const char* whenStarted =
        "n=0; until [ -e TREE/started ] || [ $((n += 1)) -gt 3000 ]; do sleep 0.01; done; ";
    /// Kills a run of `action` in its rule that waits, lets go of the rule, and runs `line`.
    Outcome KilledAndThen(const std::string& action, const std::string& line) {
        return Run(
            "SETUP " + action + " --kit KIT > TREE/first 2>&1 & " + whenStarted +
            "kill -9 $!; wait; touch TREE/go; " + line
        );
    }
    static constexpr const char* outside = "/var/lib/setuptest-data";
    static constexpr const char* manifest = "/var/lib/ins++/setuptest/manifest";
};

// Lock, then look

TEST_F(SetupTruthTest, ARemovalBesideAnInstallIsRefused) {
    GivenScriptThatWaits();
    const Outcome all =
        Run(std::string("SETUP install --kit KIT > TREE/first 2>&1 & ") + whenStarted +
            "SETUP remove --kit KIT; code=$?; touch TREE/go; wait; exit $code");
    EXPECT_EQ(all.exitCode, 75) << all.out << all.err;
    EXPECT_THAT(all.err, StartsWith("ins-setup: another run for setuptest goes on: process "));
    EXPECT_EQ(RunSetup("status").exitCode, 0);
}

TEST_F(SetupTruthTest, ARemovalThatWaitedRemovesWhatThatInstallLeft) {
    GivenScriptThatWaits();
    const Outcome all =
        Run(std::string("SETUP install --kit KIT > TREE/first 2>&1 & ") + whenStarted +
            "(sleep 0.3; touch TREE/go) & SETUP remove --kit KIT --wait 60");
    EXPECT_EQ(all.exitCode, 0) << all.err;
    EXPECT_THAT(all.out, HasSubstr("Setup Test is removed from " + tree.Path("product")));
    EXPECT_EQ(RunSetup("status").exitCode, 3);
}

TEST_F(SetupTruthTest, AnInstallThatWaitedRunsWhatItPlanned) {
    GivenScriptThatWaits("", "file=copy,svc,$pathSource$lib,$pathTarget$,was-$targetVerInfo$\n");
    const Outcome all =
        Run(std::string("SETUP install --kit KIT > TREE/first 2>&1 & ") + whenStarted +
            "(sleep 0.3; touch TREE/go) & SETUP install --reinstall --backup --kit KIT --wait 60; "
            "code=$?; wait; "
            "ls TREE/product; SETUP restore --kit KIT; ls TREE/product; exit $code");
    EXPECT_EQ(all.exitCode, 0) << all.err;
    const std::size_t restored =
        all.out.find("Setup Test: what the last run replaced is put back.");
    ASSERT_NE(restored, std::string::npos) << all.out;
    EXPECT_THAT(all.out.substr(0, restored), HasSubstr("\nwas-1.5-9\n"));
    // The backup knew the name under which the file was copied, so "restore" took it away again.
    EXPECT_THAT(all.out.substr(restored), Not(HasSubstr("was-1.5-9")));
}

// The manifest is of what was done

TEST_F(SetupTruthTest, TheManifestHasWhatACommandUnpackedAndARuleCopied) {
    tree.Directory("kit/more");
    GivenScript(
        "process=start,echo data > " + tree.Path("kit/more/unpacked") +
        "\nfile=copy,*,$pathSource$more,$pathTarget$\n"
    );
    ASSERT_EQ(RunSetup("install", "--no-check").exitCode, 0);
    ASSERT_EQ(RunSetup("status", "--verify").exitCode, 0);
    tree.Remove("product/unpacked");
    const Outcome verified = RunSetup("status", "--verify");
    EXPECT_EQ(verified.exitCode, 4);
    EXPECT_THAT(verified.out, HasSubstr(tree.Path("product/unpacked") + " is missing"));
}

TEST_F(SetupTruthTest, TheManifestHasTheDirectoriesOfARunThatWasKilled) {
    GivenScriptThatWaits(std::string("directory=create,") + outside + "\n");
    ASSERT_EQ(KilledAndThen("install", "SETUP install --kit KIT").exitCode, 0);
    fs::remove(outside);
    EXPECT_THAT(
        RunSetup("status", "--verify").out, HasSubstr(std::string(outside) + " is missing")
    );
}

TEST_F(SetupTruthTest, TheManifestHasNotWhatTheRunFoundThere) {
    fs::create_directory(outside);
    GivenScript(std::string("directory=create,") + outside + "\n");
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    fs::remove(outside);
    EXPECT_EQ(RunSetup("status", "--verify").exitCode, 0);
}

TEST_F(SetupTruthTest, TheManifestHasTheUnitFileOfAService) {
    GivenScript("service=install,setuptest,Setup Test,$pathTargetBin$svc,-x\n");
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    EXPECT_EQ(RunSetup("status", "--verify").exitCode, 0);
    const std::string unit = "/etc/systemd/system/setuptest.service";
    Run("echo '# mine' >> " + unit);
    EXPECT_THAT(RunSetup("status", "--verify").out, HasSubstr(unit + " has "));
    Run("systemctl disable setuptest; rm " + unit + "; systemctl daemon-reload");
    EXPECT_THAT(
        RunSetup("status", "--verify").out,
        AllOf(
            HasSubstr(unit + " is missing"),
            HasSubstr("/etc/systemd/system/multi-user.target.wants/setuptest.service is missing")
        )
    );
}

// A manifest that is not there is told

TEST_F(SetupTruthTest, AManifestThatCannotBeWrittenIsAFailureAndTheRunInterrupted) {
    ASSERT_EQ(
        Run("mkdir -p -m 700 /var/lib/ins++ /var/lib/ins++/setuptest/manifest.new").exitCode, 0
    );
    ASSERT_EQ(Run("chmod 700 /var/lib/ins++/setuptest").exitCode, 0);
    const Outcome quiet = RunSetup("install", "--quiet");
    EXPECT_EQ(quiet.exitCode, 73);
    EXPECT_THAT(quiet.out, IsEmpty());
    EXPECT_THAT(
        quiet.err,
        HasSubstr("Setup Test is installed, but not what it consists of written down: cannot ")
    );
    EXPECT_THAT(RunSetup("status").out, HasSubstr("was interrupted"));
    ASSERT_EQ(Run("rmdir /var/lib/ins++/setuptest/manifest.new").exitCode, 0);
    EXPECT_EQ(RunSetup("install").exitCode, 0);
    EXPECT_EQ(RunSetup("status", "--verify").exitCode, 0);
}

TEST_F(SetupTruthTest, ASignalAtTheEndNeverCostsTheManifest) {
    tree.Write("kit/lib/data", std::string(4'000'000, 'x'));
    GivenScript("file=copy,data,$pathSource$lib,$pathTargetBin$\n");
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_EQ(RunSetup("install", "--quiet").exitCode, 0);
    const std::chrono::duration<double> whole = std::chrono::steady_clock::now() - begin;
    bool wasDone = false;
    // Around the end of a run, which takes longer or shorter each time.
    for (double part = 0.6; part < 1.4 || (!wasDone && part < 20); part += 0.05) {
        Forget();
        tree.Remove("product");
        const std::string pause = "sleep " + std::to_string(whole.count() * part);
        const Outcome run =
            Run("SETUP install --quiet --kit KIT & " + pause + "; kill -TERM $!; wait $!");
        ASSERT_THAT(run.exitCode, ::testing::AnyOf(0, 143)) << run.err;
        wasDone = wasDone || run.exitCode == 0;
        ASSERT_TRUE(run.exitCode != 0 || fs::exists(manifest)) << pause;
    }
    EXPECT_TRUE(wasDone);
}

// What a run that was killed leaves to the next one

TEST_F(SetupTruthTest, TheBackupOfARunThatGoesOnIsOfBeforeTheFirst) {
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    tree.Write("kit/lib/svc", "a newer program", 0755);
    GivenScriptThatWaits();
    const Outcome all = KilledAndThen(
        "install --backup",
        "SETUP install --backup --kit KIT && cat TREE/product/lin/x86_64/svc && "
        "SETUP restore --kit KIT"
    );
    EXPECT_EQ(all.exitCode, 0) << all.err;
    EXPECT_THAT(all.out, HasSubstr("a newer program"));
    EXPECT_EQ(tree.Read("product/lin/x86_64/svc"), "program");
}

TEST_F(SetupTruthTest, ABackupDoesNotFollowWhatACommandWritesInPlace) {
    tree.Write("kit/lib/data", std::string(100'000, 'x'));
    const std::string copy = "file=copy,data,$pathSource$lib,$pathTargetBin$\n";
    GivenScript(copy);
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    const std::string command =
        "process=start,echo more >> " + tree.Path("product/lin/x86_64/data") + "\n";
    GivenScript(copy + command);
    ASSERT_EQ(RunSetup("install", "--backup").exitCode, 0);
    ASSERT_EQ(tree.Read("product/lin/x86_64/data").size(), 100'005U);
    GivenScript(command + copy);
    ASSERT_EQ(RunSetup("install", "--backup").exitCode, 0);
    ASSERT_EQ(RunSetup("restore").exitCode, 0);
    EXPECT_EQ(tree.Read("product/lin/x86_64/data").size(), 100'005U);
}

TEST_F(SetupTruthTest, AJournalThatFillsItsFileSystemIsTold) {
    ASSERT_EQ(
        Run("mkdir -p /var/lib/ins++ && mount -t tmpfs -o size=32m,mode=700 tmpfs /var/lib/ins++")
            .exitCode,
        0
    );
    std::string deep = outside; // for entries of more than a page, which the file has already
    for (int level = 0; level < 8; ++level) {
        deep += "/" + std::string(200, 'x');
    }
    GivenScript(
        "process=start,cat /dev/zero > /var/lib/ins++/fill\ndirectory=create," + deep +
        "\nfile=copy,missing,$pathSource$lib,$pathTargetBin$\n"
    );
    const Outcome failed = RunSetup("install", "--no-check");
    Run("umount /var/lib/ins++");
    EXPECT_EQ(failed.exitCode, 1);
    EXPECT_THAT(
        failed.err,
        HasSubstr("What the run made could not all be written down (No space left on device)")
    );
}

TEST_F(SetupTruthTest, ARestoreLeavesTheStateOfARunThatItDoesNotUndo) {
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    ASSERT_EQ(RunSetup("install", "--backup").exitCode, 0);
    GivenScriptThatWaits();
    const Outcome all = KilledAndThen("install", "SETUP restore --kit KIT; SETUP status --kit KIT");
    const std::size_t told = all.out.find("was interrupted");
    ASSERT_NE(told, std::string::npos) << all.out;
    EXPECT_NE(all.out.find("was interrupted", told + 1), std::string::npos) << all.out;
}

TEST_F(SetupTruthTest, AnInstallGoesOnWhereTheKilledOneWas) {
    GivenScriptThatWaits();
    const Outcome all = KilledAndThen("install TREE/elsewhere", "SETUP install --kit KIT");
    EXPECT_EQ(all.exitCode, 0) << all.err;
    EXPECT_THAT(all.out, HasSubstr("is installed in " + tree.Path("elsewhere")));
    EXPECT_FALSE(tree.Exists("product"));
}

TEST_F(SetupTruthTest, ARemovalTakesAwayWhatAKilledInstallLeft) {
    GivenScriptThatWaits(std::string("directory=create,") + outside + "\n");
    const Outcome all = KilledAndThen("install", "SETUP remove --kit KIT");
    EXPECT_EQ(all.exitCode, 0) << all.err;
    EXPECT_FALSE(tree.Exists("product"));
    EXPECT_FALSE(fs::exists(stateFile));
    // The script does not delete it, so it is named.
    EXPECT_THAT(all.out, HasSubstr(std::string("Still there:\n    ") + outside + "\n"));
}

TEST_F(SetupTruthTest, ADamagedStateOfNoProductIsToldOnce) {
    ASSERT_EQ(Run("mkdir -p -m 700 /var/lib/ins++ /var/lib/ins++/setuptest").exitCode, 0);
    ASSERT_EQ(Run(std::string("umask 077; echo x > ") + stateFile).exitCode, 0);
    const Outcome removed = RunSetup("remove");
    EXPECT_EQ(removed.exitCode, 0) << removed.err;
    EXPECT_THAT(removed.out, HasSubstr("What was remembered of the interrupted run is deleted"));
    EXPECT_FALSE(fs::exists(stateFile));
    EXPECT_THAT(RunSetup("remove").out, Not(HasSubstr("interrupted")));
}

TEST_F(SetupTruthTest, ARunThatCannotBeWrittenDownChangesNothing) {
    ASSERT_EQ(Run("mkdir -p -m 700 /var/lib/ins++ /var/lib/ins++/setuptest").exitCode, 0);
    ASSERT_EQ(Run("mkdir /var/lib/ins++/setuptest/written.new").exitCode, 0);
    EXPECT_EQ(RunSetup("install").exitCode, 73);
    EXPECT_FALSE(tree.Exists("product"));
    EXPECT_FALSE(fs::exists(stateFile));
    EXPECT_THAT(RunSetup("status").out, Not(HasSubstr("interrupted")));
}

// The journal warns of what went wrong only

TEST_F(SetupTruthTest, TheJournalGetsNoWarningInTheWholeLifeOfAProduct) {
    const auto warnings = [this] {
        return Run("journalctl --sync; journalctl -q -o cat -p warning -t ins-setup").out;
    };
    const std::string before = warnings();
    ASSERT_EQ(RunSetup("status").exitCode, 3);
    ASSERT_EQ(RunSetup("plan install").exitCode, 0);
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    ASSERT_EQ(RunSetup("status", "--verify").exitCode, 0);
    ASSERT_EQ(RunSetup("remove").exitCode, 0);
    ASSERT_EQ(RunSetup("remove").exitCode, 0);
    EXPECT_EQ(warnings(), before);
}

} // namespace
