// SPDX-License-Identifier: MIT
//
// Services where systemd cannot be asked: the bus is down, dies or hangs, or systemd does not run.
#include "../support/NameOfRow.h"
#include "ServicesRig.h"

#include <sup++/SvcService.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <thread>

#include <pthread.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using namespace KTEST;
using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// The bus

TEST_F(ServicesTest, WithoutTheBusEveryCallFailsAndChangesNothing) {
    GivenRunningService();
    const std::string before = ReadText(unitPath);
    StopBus();
    EXPECT_EQ(Create("/bin/false"), 185U);
    ExpectErrorText("the system bus cannot be reached");
    EXPECT_EQ(SvcStartService(0, service), 185U);
    EXPECT_EQ(SvcStopService(0, service), 185U);
    EXPECT_EQ(SvcStopServiceEx(0, service, 1000), 185U);
    EXPECT_EQ(SvcDeleteService(0, service), 185U);
    EXPECT_EQ(State(), 1185U);
    EXPECT_EQ(ReadText(unitPath), before);
    EXPECT_EQ(StateOfService(), "active running");
}

TEST_F(ServicesTest, WithoutTheBusAFreshServiceIsNotWritten) {
    StopBus();
    EXPECT_EQ(Create("/bin/true"), 185U);
    EXPECT_FALSE(fs::exists(unitPath));
}

/// Breaks the bus when the service has come to a state.
std::thread BreakBusIn(const std::string& state, const std::string& command) {
    return std::thread([=] {
        Await([&] { return StateOfService() == state; });
        Output(command);
    });
}

constexpr const char* killBus = "systemctl kill -s KILL dbus.service";
constexpr const char* stopBus = "systemctl stop dbus.socket dbus.service";

TEST_F(ServicesTest, ABusThatDiesDuringAStartIsFoundAgainAndTheServiceWithIt) {
    GivenForeignUnit("ExecStartPre=/bin/sleep 2\nExecStart=/bin/sleep 1000");
    std::thread other = BreakBusIn("activating start-pre", killBus);
    EXPECT_EQ(SvcStartService(0, service), 0U) << SvcGetServiceErrorText();
    other.join();
    EXPECT_EQ(StateOfService(), "active running");
}

TEST_F(ServicesTest, ABusThatDiesDuringAStartThatFailsDoesNotHideIt) {
    GivenForeignUnit("ExecStartPre=/bin/sleep 2\nExecStartPre=/bin/false\nExecStart=/bin/sleep 1000"
    );
    std::thread other = BreakBusIn("activating start-pre", killBus);
    EXPECT_EQ(SvcStartService(0, service), 182U);
    other.join();
    ExpectErrorText("failed");
}

TEST_F(ServicesTest, ABusThatDiesDuringAStopIsFoundAgain) {
    GivenSetting("TimeoutStopSec=2");
    GivenRunningService(ignoresTerm);
    std::thread other = BreakBusIn("deactivating stop-sigterm", killBus);
    EXPECT_EQ(SvcStopService(0, service), 0U) << SvcGetServiceErrorText();
    other.join();
    EXPECT_EQ(State(), 1U);
}

TEST_F(ServicesTest, ABusThatDiesDuringADeletionIsFoundAgain) {
    GivenSetting("TimeoutStopSec=2");
    GivenRunningService(ignoresTerm);
    std::thread other = BreakBusIn("deactivating stop-sigterm", killBus);
    EXPECT_EQ(SvcDeleteService(0, service), 0U) << SvcGetServiceErrorText();
    other.join();
    EXPECT_FALSE(fs::exists(unitPath));
    EXPECT_EQ(StateOfService(), "inactive dead");
}

/// As the upgrade of a package of systemd's own does.
TEST_F(ServicesTest, ASystemdThatExecutesItselfAnewDuringAStartIsWaitedFor) {
    GivenForeignUnit("ExecStartPre=/bin/sleep 3\nExecStart=/bin/sleep 1000");
    std::thread other = BreakBusIn("activating start-pre", "systemctl daemon-reexec");
    EXPECT_LT(TimeOf([] { EXPECT_EQ(SvcStartService(0, service), 0U); }), 60s)
        << SvcGetServiceErrorText();
    other.join();
    EXPECT_EQ(StateOfService(), "active running");
}

TEST_F(ServicesTest, ASystemdThatReadsItsFilesAnewDuringAStopIsWaitedFor) {
    GivenSetting("TimeoutStopSec=3");
    GivenRunningService(ignoresTerm);
    std::thread other =
        BreakBusIn("deactivating stop-sigterm", "systemctl daemon-reload; systemctl daemon-reexec");
    EXPECT_LT(TimeOf([] { EXPECT_EQ(SvcStopService(0, service), 0U); }), 60s)
        << SvcGetServiceErrorText();
    other.join();
    EXPECT_EQ(State(), 1U);
}

TEST_F(ServicesTest, ABusThatDoesNotComeBackIsNoGuess) {
    GivenForeignUnit("Type=notify\nExecStart=/bin/sleep 1000");
    std::thread other = BreakBusIn("activating start", stopBus);
    EXPECT_EQ(SvcStartService(0, service), 185U);
    other.join();
    ExpectErrorText("what became of the service is not known");
}

TEST_F(ServicesTest, ABusThatHangsDoesNotHoldACallForLongerThanItMayWait) {
    GivenRunningService();
    Output("systemctl kill -s STOP dbus.service");
    const auto time = TimeOf([] { EXPECT_NE(SvcStopServiceEx(0, service, 1500), 0U); });
    EXPECT_LT(time, 20s) << "a call on the bus would be given 25";
    Output("systemctl kill -s CONT dbus.service");
    EXPECT_EQ(State(), 4U);
}

TEST_F(ServicesTest, AUnitThatAppearsWhileTheBusIsWaitedForIsNotReplaced) {
    tree.Write("victim", "somebody's");
    Output("systemctl kill -s STOP dbus.service");
    std::thread other([&] {
        std::this_thread::sleep_for(1s); // later than the first look; an earlier one is no failure
        fs::create_symlink(tree.Path("victim"), unitPath);
        Output("systemctl kill -s CONT dbus.service");
    });
    EXPECT_EQ(Create("/bin/true"), 181U);
    other.join();
    EXPECT_EQ(tree.Read("victim"), "somebody's");
    EXPECT_TRUE(fs::is_symlink(unitPath));
}

TEST_F(ServicesTest, AnotherUserMayNotStartServices) {
    GivenService(sleeps);
    unsigned status = 0;
    std::string text;
    // Credentials of one thread: those that the bus sees are the connecting thread's.
    std::thread([&] {
        ASSERT_EQ(::seteuid(65534) == 0 ? 0 : errno, 0);
        status = SvcStartService(0, service);
        text = SvcGetServiceErrorText();
        ASSERT_EQ(::seteuid(0), 0);
    }).join();
    EXPECT_EQ(status, unsigned{EACCES}) << text;
    EXPECT_EQ(StateOfService(), "inactive dead");
}

/// Sends a signal that interrupts system calls to the thread that made it, again and again.
class Interruptions {
  public:
    Interruptions() {
        struct sigaction action {};
        action.sa_handler = [](int) { ++count; };
        ::sigaction(SIGUSR1, &action, &former);
        sender = std::thread([this, disturbed = ::pthread_self()] {
            while (!ended) {
                ::pthread_kill(disturbed, SIGUSR1);
                std::this_thread::sleep_for(100us);
            }
        });
    }
    ~Interruptions() {
        ended = true;
        sender.join();
        ::sigaction(SIGUSR1, &former, nullptr);
    }
    static inline std::atomic<unsigned> count{0};

  private:
    struct sigaction former {};
    std::atomic<bool> ended{false};
    std::thread sender;
};

TEST_F(ServicesTest, SignalsDisturbNoCall) {
    const std::string program = GivenProgram(sleeps);
    for (int round = 0; round < 5; ++round) {
        const Interruptions interruptions;
        Interruptions::count = 0;
        ASSERT_EQ(Create(program), 0U) << SvcGetServiceErrorText();
        ASSERT_EQ(SvcStartService(0, service), 0U) << SvcGetServiceErrorText();
        ASSERT_EQ(State(), 4U) << SvcGetServiceErrorText();
        ASSERT_EQ(SvcStopServiceEx(0, service, 30000), 0U) << SvcGetServiceErrorText();
        ASSERT_EQ(SvcDeleteService(0, service), 0U) << SvcGetServiceErrorText();
        EXPECT_LT(100U, Interruptions::count);
    }
}

// Where systemd does not run

TEST_F(ServicesTest, OfflineTheCallsWorkOnTheDiskAlone) {
    HideSystemd();
    EXPECT_EQ(Create("/bin/sleep", "1000"), 0U);
    EXPECT_EQ(fs::read_symlink(enablingLink), unitPath);
    EXPECT_EQ(SvcStartService(0, service), 184U);
    ExpectErrorText("systemd does not run here");
    EXPECT_EQ(SvcStopService(0, service), 184U);
    EXPECT_EQ(SvcStopServiceEx(0, service, 1000), 184U);
    EXPECT_EQ(State(), 1184U);
    EXPECT_EQ(SvcDeleteService(0, service), 0U);
    EXPECT_FALSE(fs::exists(unitPath));
    EXPECT_FALSE(fs::is_symlink(enablingLink));
    EXPECT_EQ(SvcDeleteService(0, service), 180U);
}

TEST_F(ServicesTest, WhatWasMadeOfflineRunsWhenSystemdDoes) {
    HideSystemd();
    ASSERT_EQ(Create(GivenProgram(sleeps)), 0U);
    ShowSystemd();
    Output("systemctl daemon-reload"); // a boot reads it anyway
    EXPECT_EQ(Property("UnitFileState"), "enabled");
    EXPECT_THAT(Property("WantedBy"), HasSubstr("multi-user.target"));
    EXPECT_EQ(SvcStartService(0, service), 0U) << SvcGetServiceErrorText();
}

std::vector<std::string> DescribeLeftServices() {
    std::vector<std::string> left;
    std::array<char, 256> name{};
    unsigned state = 0;
    for (unsigned cursor = 0;
         SvcEnumerateLeftServices(0, &cursor, name.size(), name.data(), &state) == 0;) {
        left.push_back(name.data() + (' ' + std::to_string(state)));
    }
    return left;
}

TEST_F(ServicesTest, OfflineStartsAndStopsCanBeLeftForTheNextBoot) {
    HideSystemd();
    ASSERT_EQ(SvcSetOfflineServices(0, 1), 0U);
    EXPECT_EQ(SvcStartService(0, service), 180U) << "what is not there cannot be left";
    ASSERT_EQ(Create("/bin/true"), 0U);
    EXPECT_EQ(SvcStopService(0, service), 0U);
    EXPECT_THAT(DescribeLeftServices(), ElementsAre("inspp-test 1"));
    EXPECT_EQ(SvcStartService(0, service), 0U);
    EXPECT_THAT(DescribeLeftServices(), ElementsAre("inspp-test 4"));
    EXPECT_EQ(SvcStopServiceEx(0, service, 30000), 0U);
    EXPECT_THAT(DescribeLeftServices(), ElementsAre("inspp-test 1"));
    char small[10] = "";
    unsigned cursor = 0;
    unsigned state = 0;
    EXPECT_EQ(SvcEnumerateLeftServices(0, &cursor, sizeof(small), small, &state), 36U);
    EXPECT_EQ(SvcDeleteService(0, service), 0U);
    EXPECT_THAT(DescribeLeftServices(), IsEmpty());
}

TEST_F(ServicesTest, WhereSystemdRunsNothingIsLeft) {
    GivenService(sleeps);
    ASSERT_EQ(SvcSetOfflineServices(0, 1), 0U);
    EXPECT_EQ(SvcStartService(0, service), 0U);
    EXPECT_EQ(StateOfService(), "active running");
    EXPECT_THAT(DescribeLeftServices(), IsEmpty());
}

// The links that are laid offline are those that systemd's own program lays.

struct OfflineRow {
    const char* name;
    const char* install;
};

class ServicesOfflineLinksTest : public ServicesTest,
                                 public ::testing::WithParamInterface<OfflineRow> {
  protected:
    void GivenTree(const std::string& top) {
        for (const char* unit : {"a.service", "b.service"}) {
            tree.Write(
                top + "/etc/systemd/system/" + unit,
                std::string("[Service]\nExecStart=/bin/true\n[Install]\n") +
                    (*unit == 'a' ? GetParam().install : "WantedBy=multi-user.target\n")
            );
        }
        tree.Write(
            top + "/usr/lib/systemd/system/c.service",
            "[Service]\nExecStart=/bin/true\n[Install]\nWantedBy=multi-user.target\n"
        );
    }
};

TEST_P(ServicesOfflineLinksTest, AreThoseOfSystemctl) {
    GivenTree("ours");
    GivenTree("theirs");
    const KSYS::KUnitFiles files(tree.Path("ours"));
    const std::string systemctl = "systemctl --root=" + tree.Path("theirs");
    files.Enable("a.service");
    Output(systemctl + " enable a.service");
    EXPECT_EQ(tree.List("theirs"), tree.List("ours")) << "enabled";
    files.Disable("a.service");
    Output(systemctl + " disable a.service");
    EXPECT_EQ(tree.List("theirs"), tree.List("ours")) << "disabled";
}

INSTANTIATE_TEST_SUITE_P(
    For,
    ServicesOfflineLinksTest,
    ::testing::Values(
        OfflineRow{"OneTarget", "WantedBy=multi-user.target\n"},
        OfflineRow{"SeveralTargets", "WantedBy=x.target y.target\nRequiredBy=z.target\n"},
        OfflineRow{"AnAlias", "WantedBy=multi-user.target\nAlias=other.service\n"},
        OfflineRow{"UnitsThatGoTogether", "WantedBy=x.target\nAlso=b.service c.service\n"},
        OfflineRow{"Specifiers", "WantedBy=%p.target %N-x.target\n"},
        OfflineRow{"AListThatBeginsAnew", "WantedBy=x.target\nWantedBy=\nWantedBy=y.target\n"},
        OfflineRow{"NoInstallSection", ""}
    ),
    NameOfRow()
);

} // namespace
