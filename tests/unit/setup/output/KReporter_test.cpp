// SPDX-License-Identifier: MIT
#include <setup/KSetupFailure.h>
#include <setup/output/KReporter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

namespace {

using KSETUP::KReporter;
using KSETUP::KRunReport;
using KSETUP::KRunResult;
using KSETUP::KSetupArguments;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class KReporterTest : public ::testing::Test {
  protected:
    KReporterTest() {
        report.command = "install";
        report.product = "DPS";
        report.version = "2.2";
        report.buildNumber = 41;
        report.productPath = "/opt/dps";
        report.rulesAll = 2;
        report.rulesDone = 2;
        report.changed = true;
        report.log = "/var/log/DPS Setup Log.txt";
    }
    void GivenFailure() {
        report.result = KRunResult::Failed;
        report.rulesDone = 1;
        report.errorCode = 28;
        report.error = "cannot write /opt/dps/\x1b[2Ja: No space left on device";
        report.place = "/kit/install.ini:12";
        report.rule = "file=copy,a,b,c";
        report.logEnd = {"a line"};
    }

    /// A run of two rules as the arguments want it told.
    void Tell() {
        ::testing::internal::CaptureStdout();
        ::testing::internal::CaptureStderr();
        {
            KReporter reporter(arguments);
            reporter.Start(report);
            KSETUP::KProgressView view;
            view.rule = 1;
            view.rules = 2;
            view.words = "Creating directory /opt/dps";
            reporter.RuleStarted(view, "/kit/install.ini:11");
            reporter.RuleDone(1, 50);
            reporter.Say("a sentence");
            reporter.Finish(report);
        }
        out = ::testing::internal::GetCapturedStdout();
        err = ::testing::internal::GetCapturedStderr();
    }

    KSetupArguments arguments;
    KRunReport report;
    std::string out;
    std::string err;
};

TEST_F(KReporterTest, TextHasALineARuleAndTheResult) {
    Tell();
    EXPECT_EQ(
        out,
        "[1/2] Creating directory /opt/dps\n"
        "a sentence\n"
        "DPS 2.2 (build 41) is installed in /opt/dps.\n"
        "2 rules done in 0.0 s.\n"
        "Log: /var/log/DPS Setup Log.txt\n"
    );
    EXPECT_THAT(err, IsEmpty());
}

TEST_F(KReporterTest, AnInstallThatDidNothingSaysSo) {
    report.rulesAll = report.rulesDone = 0;
    report.changed = false;
    Tell();
    EXPECT_THAT(
        out,
        HasSubstr(
            "\nDPS 2.2 (build 41) is installed in /opt/dps already as this kit has it; nothing "
            "was done. --reinstall does it again.\n"
        )
    );
}

TEST_F(KReporterTest, AFailureIsToldOnStandardErrorWithoutControlCharacters) {
    GivenFailure();
    Tell();
    EXPECT_EQ(
        err,
        "DPS 2.2 (build 41): Installing failed after 1 of 2 rules.\n"
        "Error 28: cannot write /opt/dps/?[2Ja: No space left on device\n"
        "Rule: /kit/install.ini:12: file=copy,a,b,c\n"
        "Log: /var/log/DPS Setup Log.txt, which ends with\n"
        "    a line\n"
    );
}

TEST_F(KReporterTest, WhatAFailedCommandWroteIsToldWithoutControlCharacters) {
    GivenFailure();
    report.commandEnd = {"one", "\x1b]0;two"};
    Tell();
    EXPECT_THAT(
        err, HasSubstr("a,b,c\nWhat the command wrote ends with\n    one\n    ?]0;two\nLog: ")
    );
}

TEST_F(KReporterTest, AFailureWithoutANumberHasNone) {
    GivenFailure();
    report.errorCode = 0;
    report.error = "still installed";
    Tell();
    EXPECT_THAT(err, HasSubstr(" rules.\nstill installed\nRule: "));
}

TEST_F(KReporterTest, ARefusalIsItsOwnWords) {
    report.result = KRunResult::Refused;
    report.error = "/kit: no such directory. Name the kit's with --kit DIR.";
    Tell();
    EXPECT_EQ(err, "ins-setup: /kit: no such directory. Name the kit's with --kit DIR.\n");
}

TEST_F(KReporterTest, QuietSaysNothingOfWhatGoesWell) {
    arguments.quiet = true;
    Tell();
    EXPECT_THAT(out + err, IsEmpty());
    GivenFailure();
    Tell();
    EXPECT_THAT(out, IsEmpty());
    EXPECT_THAT(err, HasSubstr("No space left on device"));
}

TEST_F(KReporterTest, JsonIsOneObjectAtTheEndAlsoOfAFailure) {
    arguments.json = true;
    Tell();
    EXPECT_EQ(nlohmann::json::parse(out)["result"], "done");
    GivenFailure();
    Tell();
    EXPECT_EQ(nlohmann::json::parse(out)["error"]["code"], 28);
    EXPECT_THAT(err, HasSubstr("No space left on device"));
}

TEST_F(KReporterTest, EventsOnStandardOutputTakeThePlaceOfTexts) {
    arguments.jsonEvents = true;
    Tell();
    EXPECT_THAT(out, StartsWith("{\"event\":\"start\""));
    EXPECT_THAT(out, HasSubstr("\n{\"event\":\"rule started\""));
    EXPECT_THAT(out, testing::Not(HasSubstr("a sentence")));
}

TEST_F(KReporterTest, EventsElsewhereLeaveTheTexts) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    arguments.progressDescriptor = ends[1];
    Tell();
    char bytes[16] = {};
    EXPECT_GT(::read(ends[0], bytes, sizeof(bytes) - 1), 0);
    EXPECT_STREQ(bytes, "{\"event\":\"start");
    EXPECT_THAT(out, HasSubstr("is installed in /opt/dps"));
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST_F(KReporterTest, AClosedDescriptorIsRefused) {
    arguments.progressDescriptor = 999;
    EXPECT_THROW(KReporter reporter(arguments), KSETUP::KSetupFailure);
}

TEST_F(KReporterTest, WhatARemovalLeavesIsListed) {
    report.command = "remove";
    report.leftBehind = {"/opt/dps/mine"};
    report.notes = {"A note."};
    Tell();
    EXPECT_THAT(
        out,
        HasSubstr("DPS is removed from /opt/dps.\n2 rules done in 0.0 s.\nStill there:\n    "
                  "/opt/dps/mine\nA note.\nLog: /var/log/DPS Setup Log.txt\n")
    );
}

TEST_F(KReporterTest, AnUpgradeIsToldInThreeLinesAndWhereItsLogIs) {
    report.formerVersion = "2.1";
    report.filesCopied = 312;
    report.bytesCopied = 800ULL << 20U;
    report.seconds = 4.04;
    report.keptConfiguration = {{"/opt/dps/config/dps.ini", ""}};
    report.obsolete = {"/opt/dps/old", "/opt/dps/older"};
    report.outdated = {"dps.service still runs the former program."};
    Tell();
    EXPECT_THAT(
        out,
        HasSubstr("DPS 2.2 (build 41) is installed in /opt/dps, upgraded from 2.1.\n"
                  "2 rules done: 312 files (800.0 MiB) copied in 4.0 s.\n"
                  "1 edited file kept, 2 obsolete entries deleted, 1 program or service still uses "
                  "what was replaced.\n")
    );
    EXPECT_THAT(out, testing::EndsWith("\nLog: /var/log/DPS Setup Log.txt\n"));
}

TEST_F(KReporterTest, AnOlderVersionIsNoUpgrade) {
    report.formerVersion = "2.3";
    report.wasNewer = true;
    Tell();
    EXPECT_THAT(out, HasSubstr("is installed in /opt/dps, in place of 2.3.\n"));
}

TEST_F(KReporterTest, AServiceThatFailsIsToldWithItsJournal) {
    GivenFailure();
    report.ruleAtWork = 2;
    report.service = "dps";
    report.journal = {"dps: cannot open /etc/dps.key", "dps.service: Failed"};
    Tell();
    EXPECT_THAT(
        err,
        HasSubstr("The journal of dps ends with\n    dps: cannot open /etc/dps.key\n"
                  "    dps.service: Failed\n"
                  "\"journalctl -u dps\" and \"systemctl status dps\" tell more.\n")
    );
}

TEST_F(KReporterTest, ColoursComeWhereTheyAreAskedFor) {
    arguments.colour = KSETUP::KColourChoice::Always;
    Tell();
    EXPECT_THAT(out, HasSubstr("\x1b[1;32mDPS 2.2 (build 41) is installed in /opt/dps.\x1b[0m\n"));
}

TEST_F(KReporterTest, NotInstalledIsSaid) {
    report.command = "status";
    report.result = KRunResult::NotInstalled;
    report.rulesAll = 0;
    Tell();
    EXPECT_THAT(out, testing::EndsWith("DPS is not installed.\n"));
}

} // namespace
