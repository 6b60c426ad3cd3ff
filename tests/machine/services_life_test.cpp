// SPDX-License-Identifier: MIT
//
// Services against a real systemd: how they start, stop and go.
#include "../support/NameOfRow.h"
#include "../support/ServiceErrors.h"
#include "ServicesRig.h"

#include <sup++/SvcService.h>

#include <algorithm>
#include <filesystem>
#include <thread>

namespace {

namespace fs = std::filesystem;
using namespace KTEST;
using namespace std::chrono_literals;
using ::testing::IsEmpty;

// Starting

TEST_F(ServicesTest, StartReturnsWhenTheServiceRuns) {
    GivenService(sleeps);
    EXPECT_EQ(State(), 1U);
    EXPECT_EQ(SvcStartService(0, service), 0U);
    EXPECT_EQ(StateOfService(), "active running");
    EXPECT_EQ(State(), 4U);
}

TEST_F(ServicesTest, StartOfARunningOneSucceedsAtOnce) {
    GivenRunningService();
    const std::string process = Property("MainPID");
    auto fastest = std::chrono::steady_clock::duration::max();
    for (int tries = 5; tries > 0 && fastest >= 900ms; --tries) { // a busy machine delays some
        fastest = std::min(fastest, TimeOf([] { EXPECT_EQ(SvcStartService(0, service), 0U); }));
    }
    EXPECT_LT(fastest, 900ms) << "the first second of a program is not waited for again";
    EXPECT_EQ(Property("MainPID"), process);
}

struct BadProgramRow {
    const char* name;
    const char* type;
    std::string script; // empty: there is no program
    const char* reason;
};

class ServicesBadProgramTest : public ServicesTest,
                               public ::testing::WithParamInterface<BadProgramRow> {};

TEST_P(ServicesBadProgramTest, IsAFailureOfTheStartInWords) {
    const BadProgramRow& row = GetParam();
    const std::string program =
        row.script.empty() ? tree.Path("missing") : GivenProgram(row.script);
    GivenForeignUnit(std::string("Type=") + row.type + "\nExecStart=" + program);
    EXPECT_EQ(SvcStartService(0, service), 182U);
    ExpectErrorText(row.reason);
}

const std::string endsSoonWith1 = "sleep 0.2; exit 1";

INSTANTIATE_TEST_SUITE_P(
    That,
    ServicesBadProgramTest,
    ::testing::Values(
        BadProgramRow{"IsMissing", "exec", "", "could not be run"},
        BadProgramRow{"IsMissingUnseen", "simple", "", "could not be run"},
        BadProgramRow{"EndsAtOnceWith1", "exec", endsWith1, "exit status 1"},
        BadProgramRow{"EndsAtOnceWith1Unseen", "simple", endsWith1, "exit status 1"},
        BadProgramRow{"EndsSoonWith1", "exec", endsSoonWith1, "ended at once"},
        BadProgramRow{"EndsAtOnceWith0", "exec", endsWith0, "exit status 0"},
        BadProgramRow{"IsKilled", "exec", "sleep 0.1; kill -9 $$", "killed by signal 9"},
        BadProgramRow{"CannotBeRun", "exec", "\x01", "status"},
        BadProgramRow{"FailsAsAOneshot", "oneshot", endsWith1, "exit status 1"},
        BadProgramRow{"NeverForks", "forking\nTimeoutStartSec=1", sleeps, "timeout"},
        BadProgramRow{"IsNeverReady", "notify\nTimeoutStartSec=1", sleeps, "timeout"}
    ),
    NameOfRow()
);

TEST_F(ServicesTest, AMissingProgramOfOursIsAFailureAndIsTriedAgainBySystemd) {
    ASSERT_EQ(Create(tree.Path("missing")), 0U);
    EXPECT_EQ(SvcStartService(0, service), 182U);
    ExpectErrorText("its program could not be run");
}

TEST_F(ServicesTest, OneOfOursThatEndsAtOnceIsAFailureThoughSystemdStartsItAgain) {
    GivenService("sleep 0.1; exit 1");
    EXPECT_EQ(SvcStartService(0, service), 182U);
    ExpectErrorText("exit status 1");
}

/// At most moments it is active, and at none of them for long.
TEST_F(ServicesTest, OneThatDiesAgainAndAgainNeverCountsAsStartedBefore) {
    GivenService("sleep 0.4; exit 1");
    GivenSetting("Restart=always\nRestartSec=100ms\nStartLimitBurst=1000");
    Output("systemctl start inspp-test");
    for (int start = 0; start < 6; ++start) {
        std::this_thread::sleep_for(250ms);
        EXPECT_EQ(SvcStartService(0, service), 182U) << "start " << start;
        ExpectErrorText("ended at once");
    }
}

TEST_F(ServicesTest, OneThatHasJustBeenStartedIsWatchedLikeANewOne) {
    GivenService("sleep 0.6; exit 1");
    Output("systemctl start inspp-test");
    ASSERT_EQ(StateOfService(), "active running");
    EXPECT_EQ(SvcStartService(0, service), 182U);
    ExpectErrorText("ended at once");
}

TEST_F(ServicesTest, OneThatHasJustBeenStartedAndStaysHasStarted) {
    GivenService(sleeps);
    Output("systemctl start inspp-test");
    const std::string process = Property("MainPID");
    EXPECT_EQ(SvcStartService(0, service), 0U) << SvcGetServiceErrorText();
    EXPECT_EQ(Property("MainPID"), process);
}

/// What it did long ago is no reason to watch it.
TEST_F(ServicesTest, OneThatWasRestartedAndStaysHasStarted) {
    GivenRunningService();
    Output("systemctl kill -s KILL inspp-test");
    Await([] { return Property("NRestarts") == "1" && StateOfService() == "active running"; });
    std::this_thread::sleep_for(1100ms);
    EXPECT_EQ(SvcStartService(0, service), 0U) << SvcGetServiceErrorText();
}

TEST_F(ServicesTest, AStartAfterManyFailuresIsNotRefusedForTheirNumber) {
    const std::string program = GivenProgram(endsWith1);
    ASSERT_EQ(Create(program), 0U);
    EXPECT_EQ(SvcStartService(0, service), 182U);
    Await([] { return StateOfService() == "failed failed"; });
    EXPECT_EQ(StateOfService(), "failed failed") << "systemd has given up";
    GivenProgram(sleeps);
    EXPECT_EQ(SvcStartService(0, service), 0U) << SvcGetServiceErrorText();
}

TEST_F(ServicesTest, AOneshotThatDidItsWorkHasStarted) {
    GivenForeignUnit("Type=oneshot\nExecStart=/bin/true");
    EXPECT_EQ(SvcStartService(0, service), 0U) << SvcGetServiceErrorText();
    EXPECT_EQ(StateOfService(), "inactive dead");
}

TEST_F(ServicesTest, AOneshotThatRemainsIsRunning) {
    GivenForeignUnit("Type=oneshot\nRemainAfterExit=yes\nExecStart=/bin/true");
    EXPECT_EQ(SvcStartService(0, service), 0U);
    EXPECT_EQ(State(), 4U);
}

TEST_F(ServicesTest, AServiceThatTellsWhenItIsReadyIsWaitedFor) {
    GivenForeignUnit(
        "Type=notify\nNotifyAccess=all\nExecStart=" +
        GivenProgram("sleep 1.5; systemd-notify --ready; " + std::string(sleeps))
    );
    EXPECT_GT(TimeOf([] { EXPECT_EQ(SvcStartService(0, service), 0U); }), 1400ms);
    EXPECT_EQ(StateOfService(), "active running");
}

TEST_F(ServicesTest, AStartThatTakesTooLongIsGivenUpAndGoesOn) {
    GivenForeignUnit("Type=notify\nTimeoutStartSec=infinity\nExecStart=/bin/sleep 1000");
    const KSYS::KServiceError error = KTEST::ServiceErrorOf([] { Impatient(1500ms).Start(); });
    EXPECT_EQ(error.GetStatus(), 183U);
    EXPECT_STREQ(
        error.what(), "inspp-test.service: the time is up; the service is activating (start)"
    );
    EXPECT_EQ(State(), 2U);
}

TEST_F(ServicesTest, AStartThatSomebodyCallsOffIsAFailure) {
    GivenForeignUnit("Type=notify\nExecStart=/bin/sleep 1000");
    std::thread other([] {
        Await([] { return StateOfService() == "activating start"; });
        Output("systemctl stop inspp-test");
    });
    EXPECT_EQ(SvcStartService(0, service), 182U);
    other.join();
    ExpectErrorText("canceled");
}

TEST_F(ServicesTest, AStartWhoseDependencyFailsIsAFailure) {
    GivenForeignUnit("ExecStart=/bin/sleep 1000\n[Unit]\nRequires=inspp-no-such.service");
    EXPECT_EQ(SvcStartService(0, service), 182U);
    ExpectErrorText("inspp-no-such.service");
}

TEST_F(ServicesTest, AMaskedServiceDoesNotStart) {
    fs::create_symlink("/dev/null", unitPath);
    Output("systemctl daemon-reload");
    EXPECT_EQ(SvcStartService(0, service), 182U);
    ExpectErrorText("masked");
    EXPECT_EQ(SvcStopService(0, service), 0U);
    EXPECT_EQ(State(), 1U);
}

// Stopping

TEST_F(ServicesTest, StopReturnsWhenTheServiceIsStopped) {
    GivenRunningService();
    EXPECT_EQ(SvcStopService(0, service), 0U);
    EXPECT_EQ(StateOfService(), "inactive dead");
    EXPECT_EQ(State(), 1U);
}

TEST_F(ServicesTest, StopOfAStoppedOneSucceeds) {
    GivenService(sleeps);
    EXPECT_EQ(SvcStopService(0, service), 0U);
    EXPECT_EQ(SvcStopServiceEx(0, service, 1000), 0U);
    EXPECT_EQ(SvcStopServiceEx(0, service, 0), 0U);
}

TEST_F(ServicesTest, StopOfOneThatSystemdKeepsStartingSucceeds) {
    GivenService(endsWith1);
    GivenSetting("RestartSec=1000");
    EXPECT_EQ(SvcStartService(0, service), 182U);
    EXPECT_EQ(StateOfService(), "activating auto-restart");
    EXPECT_EQ(State(), 2U);
    EXPECT_EQ(SvcStopService(0, service), 0U);
    EXPECT_EQ(State(), 1U);
}

TEST_F(ServicesTest, StopOfOneThatIsStartingCallsTheStartOff) {
    GivenForeignUnit("Type=notify\nExecStart=/bin/sleep 1000");
    Output("systemctl start --no-block inspp-test");
    Await([] { return StateOfService() == "activating start"; });
    EXPECT_EQ(State(), 2U);
    EXPECT_EQ(SvcStopService(0, service), 0U);
    EXPECT_EQ(State(), 1U);
}

TEST_F(ServicesTest, AServiceThatIgnoresSigtermIsStoppedWhenSystemdKillsIt) {
    GivenSetting("TimeoutStopSec=1");
    GivenRunningService(ignoresTerm);
    EXPECT_EQ(SvcStopService(0, service), 0U) << SvcGetServiceErrorText();
    EXPECT_EQ(StateOfService(), "failed failed") << "systemd's word for it";
}

TEST_F(ServicesTest, StopExWaitsNoLongerThanItMay) {
    GivenRunningService(ignoresTerm);
    const auto time = TimeOf([] { EXPECT_EQ(SvcStopServiceEx(0, service, 1500), 183U); });
    EXPECT_GE(time, 1500ms);
    EXPECT_LT(time, 30s) << "systemd gives it 90";
    ExpectErrorText("the time is up; the service is deactivating (stop-sigterm)");
    EXPECT_EQ(State(), 3U);
}

TEST_F(ServicesTest, StopExWithoutTimeAsksAndDoesNotWait) {
    GivenRunningService(ignoresTerm);
    const auto time = TimeOf([] { EXPECT_EQ(SvcStopServiceEx(0, service, 0), 183U); });
    EXPECT_LT(time, 30s) << "systemd gives it 90";
    EXPECT_EQ(State(), 3U);
}

TEST_F(ServicesTest, StopExIsInTimeForAServiceThatStops) {
    GivenRunningService();
    EXPECT_EQ(SvcStopServiceEx(0, service, 30000), 0U);
    EXPECT_EQ(State(), 1U);
}

TEST_F(ServicesTest, AServiceThatIsKilledDuringTheStopIsStopped) {
    GivenRunningService(ignoresTerm);
    std::thread other([] {
        Await([] { return StateOfService() == "deactivating stop-sigterm"; });
        Output("systemctl kill -s KILL inspp-test");
    });
    EXPECT_EQ(SvcStopService(0, service), 0U) << SvcGetServiceErrorText();
    other.join();
    EXPECT_EQ(State(), 1U);
}

TEST_F(ServicesTest, AStopThatSomebodyElseAskedForIsWaitedFor) {
    GivenSetting("TimeoutStopSec=2");
    GivenRunningService(ignoresTerm);
    Output("systemctl stop --no-block inspp-test");
    EXPECT_EQ(SvcStopService(0, service), 0U) << SvcGetServiceErrorText();
    EXPECT_EQ(State(), 1U);
}

// Deleting

TEST_F(ServicesTest, DeleteLeavesNothing) {
    const std::string before = Output("find /etc/systemd /run/systemd/system | sort");
    GivenRunningService();
    EXPECT_EQ(SvcDeleteService(0, service), 0U) << SvcGetServiceErrorText();
    EXPECT_EQ(Output("find /etc/systemd /run/systemd/system | sort"), before);
    EXPECT_EQ(Property("LoadState"), "not-found");
    EXPECT_EQ(StateOfService(), "inactive dead");
    EXPECT_THAT(Output("systemctl list-units --all 'inspp-test*' --no-legend"), IsEmpty());
}

TEST_F(ServicesTest, DeleteForgetsAFailure) {
    GivenService(endsWith1);
    EXPECT_EQ(SvcStartService(0, service), 182U);
    EXPECT_EQ(SvcDeleteService(0, service), 0U) << SvcGetServiceErrorText();
    EXPECT_THAT(Output("systemctl list-units --all 'inspp-test*' --no-legend"), IsEmpty());
}

TEST_F(ServicesTest, DeleteOfAForeignUnitStopsAndDisablesItAndLeavesItsFile) {
    GivenForeignUnit("ExecStart=/bin/sleep 1000");
    Output("systemctl enable --now inspp-test");
    const std::string before = ReadText(unitPath);
    EXPECT_EQ(SvcDeleteService(0, service), 0U) << SvcGetServiceErrorText();
    EXPECT_EQ(ReadText(unitPath), before);
    EXPECT_EQ(Property("UnitFileState"), "disabled");
    EXPECT_EQ(StateOfService(), "inactive dead");
}

/// Somebody's word that it is never to run stays, also for the product's next installation.
TEST_F(ServicesTest, DeleteOfAMaskedOneLeavesTheMask) {
    fs::create_symlink("/dev/null", unitPath);
    Output("systemctl daemon-reload");
    EXPECT_EQ(SvcDeleteService(0, service), 0U) << SvcGetServiceErrorText();
    EXPECT_TRUE(fs::is_symlink(unitPath));
    HideSystemd();
    EXPECT_EQ(SvcDeleteService(0, service), 0U) << SvcGetServiceErrorText();
    EXPECT_TRUE(fs::is_symlink(unitPath));
}

TEST_F(ServicesTest, DeleteOfALinkedUnitLeavesTheLinkAndTheFile) {
    tree.Write(
        "inspp-test.service",
        "[Service]\nExecStart=/bin/sleep 1000\n[Install]\nWantedBy=multi-user.target\n"
    );
    const std::string file = tree.Path("inspp-test.service");
    Output("systemctl enable --now " + file);
    ASSERT_EQ(StateOfService(), "active running");
    ASSERT_EQ(file, fs::read_symlink(unitPath));
    EXPECT_EQ(SvcDeleteService(0, service), 0U) << SvcGetServiceErrorText();
    EXPECT_EQ(StateOfService(), "inactive dead");
    EXPECT_TRUE(fs::exists(file));
    EXPECT_TRUE(fs::is_symlink(unitPath));
    EXPECT_FALSE(fs::is_symlink(enablingLink));
}

TEST_F(ServicesTest, DeleteKillsWhatDoesNotStop) {
    GivenSetting("TimeoutStopSec=infinity");
    GivenRunningService(ignoresTerm);
    const std::string process = Property("MainPID");
    Impatient(1s).Delete();
    EXPECT_FALSE(fs::exists("/proc/" + process));
    EXPECT_FALSE(fs::exists(unitPath));
}

TEST_F(ServicesTest, DeleteOfOneThatSystemdCannotUseRemovesIt) {
    GivenService(sleeps);
    WriteText(unitPath, ReadText(unitPath) + "\n[Service]\nExecStart=bin/relative\n");
    Output("systemctl daemon-reload");
    EXPECT_EQ(SvcDeleteService(0, service), 0U) << SvcGetServiceErrorText();
    EXPECT_FALSE(fs::exists(unitPath));
}

TEST_F(ServicesTest, DeleteOfOneThatLostItsFileStopsIt) {
    GivenRunningService();
    fs::remove(unitPath);
    Output("systemctl daemon-reload");
    EXPECT_EQ(SvcDeleteService(0, service), 0U) << SvcGetServiceErrorText();
    EXPECT_EQ(StateOfService(), "inactive dead");
    EXPECT_FALSE(fs::is_symlink(enablingLink));
}

TEST_F(ServicesTest, ADeletedServiceCanBeMadeAgain) {
    GivenRunningService();
    EXPECT_EQ(SvcDeleteService(0, service), 0U);
    EXPECT_EQ(SvcDeleteService(0, service), 180U) << "a second time";
    GivenRunningService();
}

} // namespace
