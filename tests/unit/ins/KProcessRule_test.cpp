// SPDX-License-Identifier: MIT
#include "../../support/EngineRig.h"
#include "../../support/ErrorProbe.h"
#include "../../support/NameOfRow.h"
#include "../../support/SlotOf.h"
#include "Injected.h"

#include <ins/KProcessRule.h>
#include <sup++/SvcProcess.h>

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>
#include <stdexcept>
#include <thread>
#include <type_traits>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace KSAMPLE {

class KDerived : public KINS::KProcessRuleBase {
    using KProcessRuleBase::KProcessRuleBase;
};

} // namespace KSAMPLE

namespace {

using KINS::KProcessRule;
using KTEST::PlaceWithoutLine;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;
using Lines = std::vector<std::string>;

class KProcessRuleTest : public KTEST::RuleTest {};

TEST_F(KProcessRuleTest, OverridesInTheSlotsOfItsBase) {
    using KTEST::SlotOf;
    EXPECT_EQ(SlotOf(&KINS::KProcessRuleBase::Execute), 2);
    EXPECT_EQ(SlotOf(&KINS::KProcessRuleBase::Description), 4);
    EXPECT_EQ(SlotOf(&KINS::KProcessRuleBase::ParseRule), 6);
}

TEST_F(KProcessRuleTest, IsAnInstallRuleThatCounts) {
    const KProcessRule rule(&manager, "start,true");
    EXPECT_STREQ(rule.GetClassTag(), "KInstallRule");
    EXPECT_TRUE(rule.ShouldCount());
    EXPECT_TRUE((std::is_base_of_v<KINS::KProcessRuleBase, KProcessRule>));
    EXPECT_FALSE(std::is_copy_constructible_v<KProcessRule>);
}

TEST_F(KProcessRuleTest, TheDescriptionHasTheWholeTextUnexpanded) {
    EXPECT_EQ(
        DescriptionOf("process", "start,/etc/init.d/$serviceName$ restart"),
        "Execute command start,/etc/init.d/$serviceName$ restart"
    );
}

class KProcessRuleRefusalTest : public KTEST::RuleTest,
                                public ::testing::WithParamInterface<const char*> {};

TEST_P(KProcessRuleRefusalTest, IsError7000WithTheTextAndNoLogLine) {
    const std::string line = GetParam();
    const KSUP::KError error = RefusalOf("process", line);
    EXPECT_EQ(
        "48 7000.0 ins/KProcessRuleBase:? ParseRule \"" + line + '"', PlaceWithoutLine(error)
    );
    EXPECT_THAT(trace.Texts(48), ElementsAre(error.GetSummary().c_str()));
    EXPECT_EQ(manager.GetRuleCount(), 0U);
    EXPECT_THAT(LogLines(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    ALine,
    KProcessRuleRefusalTest,
    ::testing::Values("", "start", "start,", "start,echo a,b", "stop,$os$,x", ",,")
);

class KProcessRuleAcceptanceTest : public KTEST::RuleTest,
                                   public ::testing::WithParamInterface<const char*> {};

TEST_P(KProcessRuleAcceptanceTest, IsAddedWhateverItsAction) {
    EXPECT_EQ(DescriptionOf("process", GetParam()), std::string("Execute command ") + GetParam());
    EXPECT_EQ(manager.GetRuleCount(), 1U);
}

INSTANTIATE_TEST_SUITE_P(
    ALine,
    KProcessRuleAcceptanceTest,
    ::testing::Values("start,true", "stop,daemon", "Start,true", "restart,daemon", "start,,true")
);

// Execute

class KProcessRuleExecuteTest : public KTEST::RuleTest {
  protected:
    KProcessRuleExecuteTest() { SetCommandOutput(tree.Path("output").c_str()); }
    ~KProcessRuleExecuteTest() override { SetCommandOutput(nullptr); }

    static void SetCommandOutput(const char* path) {
        if (SvcSetCommandOutput(path) != 0) {
            throw std::runtime_error("SvcSetCommandOutput failed");
        }
    }
    /// What a rule of this line has to leave in the log: the manager's two entries and its own.
    Lines ExpectedLog(const std::string& line, Lines own) const {
        const std::string managers = "KINS::KInstallRuleManager: ";
        for (std::string& entry : own) {
            entry = "KINS::KProcessRule: " + entry;
        }
        own.insert(
            own.begin(),
            {managers + "Adding rule -> Execute command " + line,
             managers + "Executing rule -> Execute command " + line}
        );
        return own;
    }
    /// The log, with "?" for the source lines of errors.
    Lines Log() const {
        Lines lines = LogLines();
        for (std::string& line : lines) {
            line = std::regex_replace(line, std::regex(R"(:\d+, )"), ":?, ");
        }
        return lines;
    }
    std::string Output() const { return tree.Exists("output") ? tree.Read("output") : ""; }

    /// Error 172, without information, told at level 400; nothing is counted.
    void ExpectError172(const KSUP::KError& error) const {
        EXPECT_EQ(PlaceWithoutLine(error), "400 172.0 ins/KProcessRuleBase:? Execute");
        EXPECT_FALSE(error.HasInfo());
        EXPECT_EQ(error.GetDriver(), nullptr);
        EXPECT_THAT(trace.Texts(400), ElementsAre(error.GetSummary().c_str()));
        EXPECT_EQ(manager.GetCompletedCount(), 0U);
    }
};

TEST_F(KProcessRuleExecuteTest, ACommandIsLoggedToldAndRun) {
    Run("process", "start,echo one; echo two");
    EXPECT_EQ(
        ExpectedLog("start,echo one; echo two", {"Starting process: echo one; echo two"}), Log()
    );
    EXPECT_THAT(statuses.Lines(), ElementsAre("- Starting process echo one; echo two"));
    EXPECT_STREQ(manager.GetCurrentRuleStatus().c_str(), "Starting process echo one; echo two");
    EXPECT_EQ(Output(), "one\ntwo\n");
    EXPECT_EQ(manager.GetCompletedCount(), 1U);
    EXPECT_THAT(trace.Messages(), IsEmpty());
}

TEST_F(KProcessRuleExecuteTest, TheRuleIsDoneWhenTheCommandIs) {
    Run("process", "start,sleep 0.3; echo late");
    EXPECT_EQ(Output(), "late\n");
}

TEST_F(KProcessRuleExecuteTest, CommandsRunInTheOrderOfTheirRules) {
    Add("process", "start,sleep 0.2; echo one");
    Add("process", "start,echo two");
    Add("process", "start,echo three");
    manager.ExecuteRules();
    EXPECT_EQ(Output(), "one\ntwo\nthree\n");
    EXPECT_EQ(manager.GetCompletedCount(), 3U);
}

TEST_F(KProcessRuleExecuteTest, TheClassThatIsDerivedNamesItselfInTheLog) {
    manager.AddRule(new KSAMPLE::KDerived(&manager, "start,true"));
    manager.ExecuteRules();
    EXPECT_EQ(LogLines().back(), "KSAMPLE::KDerived: Starting process: true");
}

struct Ending {
    const char* name;
    const char* command;
};

class KProcessRuleEndingTest : public KProcessRuleExecuteTest,
                               public ::testing::WithParamInterface<Ending> {};

TEST_P(KProcessRuleEndingTest, CountsAsDone) {
    const std::string command = GetParam().command;
    Run("process", "start," + command);
    EXPECT_EQ(ExpectedLog("start," + command, {"Starting process: " + command}), Log());
    EXPECT_EQ(manager.GetCompletedCount(), 1U);
    EXPECT_THAT(trace.Messages(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    ACommandThat,
    KProcessRuleEndingTest,
    ::testing::Values(
        Ending{"Succeeds", "true"},
        Ending{"Fails", "exit 3"},
        Ending{"IsKilled", "kill -KILL $$"},
        Ending{"IsNotFound", "no-such-program"},
        Ending{"IsNoShellText", "if ("}
    ),
    KTEST::NameOfRow()
);

class KProcessRuleSilenceTest : public KProcessRuleExecuteTest,
                                public ::testing::WithParamInterface<const char*> {};

TEST_P(KProcessRuleSilenceTest, DoesNothingAndSaysNothing) {
    const std::string line = std::string(GetParam()) + ",echo ran";
    Run("process", line);
    EXPECT_EQ(ExpectedLog(line, {}), Log());
    EXPECT_THAT(statuses.Lines(), IsEmpty());
    EXPECT_EQ(Output(), "");
    EXPECT_EQ(manager.GetCompletedCount(), 1U);
    EXPECT_THAT(trace.Messages(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    AnAction,
    KProcessRuleSilenceTest,
    ::testing::Values(
        "Start", "START", "Stop", "STOP", " start", "start ", "starts", "kill", "$os$"
    )
);

TEST_F(KProcessRuleExecuteTest, TheActionIsNotExpanded) {
    world.GivenKey("processAction", "start");
    Run("process", "$processAction$,echo ran");
    EXPECT_EQ(Output(), "");
    EXPECT_EQ(manager.GetCompletedCount(), 1U);
}

// Macros

TEST_F(KProcessRuleExecuteTest, AMacroInAMacroHasTheValueOfTheExecution) {
    world.GivenKey("processOuter", "$processInner$");
    world.GivenKey("processInner", "parsed");
    Add("process", "start,echo $processOuter$ $processInner$");
    world.GivenKey("processOuter", "too late");
    world.GivenKey("processInner", "executed");
    manager.ExecuteRules();
    EXPECT_EQ(Output(), "executed parsed\n");
    EXPECT_EQ(
        ExpectedLog(
            "start,echo $processOuter$ $processInner$", {"Starting process: echo executed parsed"}
        ),
        Log()
    );
    EXPECT_THAT(statuses.Lines(), ElementsAre("- Starting process echo executed parsed"));
}

TEST_F(KProcessRuleExecuteTest, AMacroOfAStopIsExpandedAgainToo) {
    world.GivenKey("processName", "$processNested$");
    Add("process", "stop,@T@/$processName$");
    world.GivenKey("processNested", "nothing-runs-this");
    manager.ExecuteRules();
    const std::string program = tree.Path("nothing-runs-this");
    EXPECT_THAT(statuses.Lines(), ElementsAre("- Stopping process " + program));
    EXPECT_EQ("KINS::KProcessRule: Stopping process: " + program, LogLines().back());
}

// Stopping a program

TEST_F(KProcessRuleExecuteTest, AProgramIsLoggedToldAndStopped) {
    std::string program = tree.Path("sleeper");
    std::string time = "1000";
    std::filesystem::copy_file("/bin/sleep", program);
    char* const arguments[] = {program.data(), time.data(), nullptr};
    pid_t process = 0;
    ASSERT_EQ(::posix_spawn(&process, program.c_str(), nullptr, nullptr, arguments, environ), 0);
    Run("process", "stop,@T@/sleeper");
    ::kill(process, SIGKILL); // where it was not stopped
    int status = 0;
    ASSERT_EQ(::waitpid(process, &status, 0), process);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGTERM);
    EXPECT_EQ(ExpectedLog("stop," + program, {"Stopping process: " + program}), Log());
    EXPECT_THAT(statuses.Lines(), ElementsAre("- Stopping process " + program));
    EXPECT_EQ(manager.GetCompletedCount(), 1U);
}

TEST_F(KProcessRuleExecuteTest, AProgramThatIgnoresSigtermHasThreeSeconds) {
    std::string program = tree.Path("sleeper");
    std::string time = "1000";
    std::filesystem::copy_file("/bin/sleep", program);
    char* const arguments[] = {program.data(), time.data(), nullptr};
    pid_t process = 0;
    const auto former = std::signal(SIGTERM, SIG_IGN); // is inherited
    const int spawned =
        ::posix_spawn(&process, program.c_str(), nullptr, nullptr, arguments, environ);
    std::signal(SIGTERM, former);
    ASSERT_EQ(spawned, 0);
    const auto start = std::chrono::steady_clock::now();
    Run("process", "stop,@T@/sleeper");
    const auto taken = std::chrono::steady_clock::now() - start;
    int status = 0;
    ASSERT_EQ(::waitpid(process, &status, 0), process);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGKILL);
    EXPECT_GE(taken, std::chrono::milliseconds(3000));
    EXPECT_LT(taken, std::chrono::seconds(20)); // 4 s, and what a busy machine adds
}

TEST_F(KProcessRuleExecuteTest, AProgramThatDoesNotRunIsStopped) {
    Run("process", "stop,@T@/sleeper");
    EXPECT_EQ(manager.GetCompletedCount(), 1U);
    EXPECT_THAT(trace.Messages(), IsEmpty());
}

// Failures

TEST_F(KProcessRuleExecuteTest, ACommandThatCannotBeStartedIsError172) {
    SetCommandOutput(tree.Path("kit").c_str());
    ExpectError172(KTEST::ErrorOf([&] { Run("process", "start,echo ran"); }));
    EXPECT_EQ(
        ExpectedLog(
            "start,echo ran",
            {"Starting process: echo ran",
             "Failed to start process echo ran Error 21 (sup++/KShellCommand:?, Execute): " +
                 tree.Path("kit") + ": Is a directory"}
        ),
        Log()
    );
    EXPECT_THAT(statuses.Lines(), ElementsAre("- Starting process echo ran"));
    EXPECT_EQ(trace.Texts(24).size(), 1U) << "the cause is told where it was raised";
}

TEST_F(KProcessRuleExecuteTest, AProgramThatCannotBeStoppedIsError172) {
    world.GivenKey("processNothing", "");
    ExpectError172(KTEST::ErrorOf([&] { Run("process", "stop,$processNothing$"); }));
    EXPECT_EQ(
        ExpectedLog(
            "stop,$processNothing$",
            {"Stopping process: ",
             "Failed to stop process  Error 36 (sup++/KUtil:?, KillProcess): no program to stop"}
        ),
        Log()
    );
    EXPECT_THAT(statuses.Lines(), ElementsAre("- Stopping process "));
    EXPECT_EQ(trace.Texts(24).size(), 1U);
}

KSUP::KError SomeError() {
    KSUP::KError error(48, 4711, 3, 99, "a/Source", "Function", nullptr);
    error.SetInfo(KSUP::KVariant("info"));
    return error;
}

/// What the status call throws is none of the rule's failures.
class KProcessRuleStatusTest : public KProcessRuleExecuteTest,
                               public ::testing::WithParamInterface<const char*> {};

TEST_P(KProcessRuleStatusTest, LetsAnErrorOfTheStatusCallPassUnchanged) {
    statuses.At(1, [] { throw SomeError(); });
    const KSUP::KError error =
        KTEST::ErrorOf([&] { Run("process", std::string(GetParam()) + ",echo ran"); });
    EXPECT_EQ(KTEST::Place(error), "48 4711.3 a/Source:99 Function \"info\"");
    EXPECT_THAT(LogLines(), Not(Contains(testing::HasSubstr("Failed"))));
    EXPECT_EQ(LogLines().size(), 3U);
    EXPECT_EQ(Output(), "");
    EXPECT_THAT(trace.Messages(), IsEmpty());
}

TEST_P(KProcessRuleStatusTest, LetsAnyOtherExceptionOfTheStatusCallPass) {
    statuses.At(1, [] { throw std::runtime_error("mine"); });
    EXPECT_THROW(Run("process", std::string(GetParam()) + ",echo ran"), std::runtime_error);
    EXPECT_EQ(LogLines().size(), 3U);
    EXPECT_EQ(Output(), "");
    EXPECT_THAT(trace.Messages(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(ARuleThat, KProcessRuleStatusTest, ::testing::Values("start", "stop"));

// While the command runs

/// Asks the test whether the run is cancelled.
class AskingManager : public KINS::KInstallRuleManager {
  public:
    explicit AskingManager(KINS::KInstaller* owner) : KInstallRuleManager(owner) {}
    bool IsCancelled() const override { return ask(); }

    std::function<bool()> ask = [] { return false; };
};

class KProcessRuleWaitTest : public KProcessRuleExecuteTest {
  protected:
    /// Runs a rule alone, without what the manager does around it.
    void Execute(const std::string& line) {
        KProcessRule rule(&asking, line);
        rule.Initialize();
        rule.Execute();
    }
    /// The process that a command names in its output.
    pid_t Process() const { return std::stoi(Output()); }
    static bool IsThere(pid_t process) { return ::kill(process, 0) == 0; }

    AskingManager asking{installer.get()};
    const std::string endless = "start,echo $$; exec sleep 1000";
};

TEST_F(KProcessRuleWaitTest, EachDispatchIsFollowedByTheQuestionForCancellation) {
    std::string calls;
    KTEST::Injection inject;
    tree.Fifo("gate");
    inject.SvcPollingDispatch = [&] {
        calls += 'd';
        if (calls.size() == 5) { // the third time; the command waits until then
            std::ofstream(tree.Path("gate")) << "open\n";
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return 0U;
    };
    asking.ask = [&] {
        calls += 'c';
        return false;
    };
    Execute("start,read line <" + tree.Path("gate"));
    EXPECT_TRUE(std::regex_match(calls, std::regex("(dc)+"))) << calls;
    EXPECT_LE(6U, calls.size());
}

TEST_F(KProcessRuleWaitTest, ACancellationStopsTheCommandAndIsNoErrorOfTheRule) {
    asking.ask = [&] { return Output().find('\n') != std::string::npos; };
    EXPECT_NO_THROW(Execute(endless));
    EXPECT_FALSE(IsThere(Process()));
    EXPECT_THAT(LogLines(), ElementsAre(StartsWith("KINS::KProcessRule: Starting process: ")));
    EXPECT_THAT(trace.Messages(), IsEmpty());
}

TEST_F(KProcessRuleWaitTest, ACancellationThatCameBeforeStopsTheCommandToo) {
    asking.ask = [] { return true; };
    EXPECT_NO_THROW(Execute("start,exec sleep 1000"));
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "nothing runs on";
}

TEST_F(KProcessRuleWaitTest, AnErrorWhileItWaitsIsError172AndTheCommandIsStopped) {
    asking.ask = [&] {
        if (Output().find('\n') != std::string::npos) {
            throw SomeError();
        }
        return false;
    };
    const KSUP::KError error = KTEST::ErrorOf([&] { Execute(endless); });
    ExpectError172(error);
    EXPECT_FALSE(IsThere(Process()));
    EXPECT_EQ(
        Log().back(),
        "KINS::KProcessRule: Failed to start process echo $$; exec sleep 1000 "
        "Error 4711.3 (a/Source:?, Function): info"
    );
}

TEST_F(KProcessRuleWaitTest, AnyOtherExceptionWhileItWaitsPassesAndTheCommandIsStopped) {
    asking.ask = [&] {
        if (Output().find('\n') != std::string::npos) {
            throw std::runtime_error("mine");
        }
        return false;
    };
    EXPECT_THROW(Execute(endless), std::runtime_error);
    EXPECT_FALSE(IsThere(Process()));
    EXPECT_EQ(LogLines().size(), 1U);
    EXPECT_THAT(trace.Messages(), IsEmpty());
}

class KProcessRuleRunTest : public KTEST::EngineTest {};

/// The whole way: a run that is stopped in a command ends with 66, and the rule counts as done.
TEST_F(KProcessRuleRunTest, ARunThatIsStoppedInACommandEndsAndCountsTheRule) {
    GivenScript("[remove]\nprocess=start,echo $$ >@T@/started; exec sleep 1000\n"
                "process=start,echo >@T@/next\n");
    Initialize();
    installer->StartUninstall(tree.Path("p"));
    while (!tree.Exists("started")) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_FALSE(installer->IsComplete());
    installer->Stop();
    EXPECT_EQ(KTEST::ErrorOf([&] { WaitForEnd(); }).GetCode(), 66U);
    EXPECT_EQ(installer->GetCompletedCount(), 1U);
    EXPECT_EQ(installer->GetMaxCount(), 2U);
    EXPECT_FALSE(tree.Exists("next"));
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "nothing runs on";
}

TEST_F(KProcessRuleRunTest, TheModeDoesNotMatter) {
    GivenScript("[install]\nprocess=start,echo in >>@T@/out\n"
                "[remove]\nprocess=start,echo re >>@T@/out\n");
    Initialize();
    installer->Start(tree.Path("p"), KINS::ModeUninstall);
    WaitForEnd();
    EXPECT_EQ(tree.Read("out"), "re\n");
}

} // namespace
