// SPDX-License-Identifier: MIT
//
// An installer and the threads around it. These tests say most under the thread sanitizer.
#include "../../support/EngineRig.h"
#include "../../support/ErrorProbe.h"

#include <sup++/KThread.h>
#include <sup++/SvcDispatch.h>

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>
#include <thread>

namespace {

using KINS::KInstaller;
using KSUP::KString;
using KTEST::ArbitraryBytes;
using KTEST::ErrorOf;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using namespace std::chrono_literals;

constexpr unsigned manyRules = 10000;

std::string RepeatedLines(const char* section, const std::string& line, unsigned count) {
    std::string script = std::string("[") + section + "]\n";
    for (unsigned made = 0; made < count; ++made) {
        script += line + '\n';
    }
    return script;
}

class KInstallerConcurrencyTest : public KTEST::EngineTest {
  protected:
    void GivenManyRules() {
        GivenScript(RepeatedLines("remove", "file=delete,none,@T@/kit", manyRules));
    }
    void GivenOneLongCopy() {
        tree.Write("kit/big", ArbitraryBytes(1000000));
        GivenScript("[remove]\nfile=copy,big,@T@/kit,@T@\ndirectory=create,@T@/later\n");
    }
    void Start() {
        Initialize();
        installer->StartUninstall(tree.Path("p"));
    }
    unsigned CodeOfEnd() {
        try {
            WaitForEnd();
        } catch (const KSUP::KError& error) {
            return error.GetCode();
        }
        return 0;
    }
};

TEST_F(KInstallerConcurrencyTest, GettersAnswerWhile10000RulesRun) {
    GivenManyRules();
    std::atomic<bool> done{false};
    std::atomic<unsigned> backwards{0};
    std::atomic<unsigned> strange{0};
    std::atomic<unsigned> asked{0};
    Start();
    const std::string text = "Deleting file " + tree.Path("kit/none");
    const auto poll = [&] {
        unsigned last = 0;
        while (!done) {
            const unsigned now = installer->GetCompletedCount();
            backwards += now < last ? 1U : 0U;
            last = now;
            const KString status = installer->GetStatus();
            strange += status.IsEmpty() || status == text.c_str() ? 0U : 1U;
            strange += installer->GetMaxCount() == manyRules ? 0U : 1U;
            strange +=
                installer->IsCancelled() || installer->GetMode() != KINS::ModeUninstall ? 1U : 0U;
            installer->IsComplete();
            ++asked;
        }
    };
    std::thread one(poll);
    std::thread other(poll);
    EXPECT_EQ(CodeOfEnd(), 0U);
    done = true;
    one.join();
    other.join();
    EXPECT_EQ(backwards, 0U);
    EXPECT_EQ(strange, 0U);
    EXPECT_LT(0U, asked);
    EXPECT_EQ(installer->GetCompletedCount(), manyRules);
    EXPECT_EQ(statuses.All().size(), manyRules);
    EXPECT_EQ(statuses.Threads().size(), 1U);
}

TEST_F(KInstallerConcurrencyTest, GettersAnswerWhileTheScriptLoads) {
    GivenManyRules();
    Initialize();
    std::atomic<bool> started{false};
    std::atomic<unsigned> backwards{0};
    std::promise<void> asking;
    std::thread other([&] {
        unsigned last = 0;
        for (bool first = true; !started; first = false) {
            const unsigned now = installer->GetMaxCount();
            backwards += now < last ? 1U : 0U;
            last = now;
            installer->GetStatus();
            installer->GetCompletedCount();
            installer->IsCancelled();
            installer->IsComplete();
            installer->GetMode();
            if (first) {
                asking.set_value();
            }
        }
    });
    asking.get_future().wait();
    installer->StartUninstall(tree.Path("p"));
    started = true;
    other.join();
    EXPECT_EQ(CodeOfEnd(), 0U);
    EXPECT_EQ(backwards, 0U);
    EXPECT_EQ(installer->GetMode(), KINS::ModeUninstall);
}

TEST_F(KInstallerConcurrencyTest, MacrosExpandWhileARunStarts) {
    GivenScript("[remove]\ndirectory=create,@T@/removed\n");
    Initialize();
    std::atomic<bool> started{false};
    std::atomic<unsigned> strange{0};
    std::promise<void> asking;
    std::thread other([&] {
        for (bool first = true; !started; first = false) {
            const KString text = installer->ExpandMacros("prog$binext$ of $product$");
            strange += text == "prog of DPS" || text == "prog$binext$ of DPS" ? 0U : 1U;
            if (first) {
                asking.set_value();
            }
        }
    });
    asking.get_future().wait();
    installer->StartUninstall(tree.Path("p"));
    started = true;
    other.join();
    EXPECT_EQ(CodeOfEnd(), 0U);
    EXPECT_EQ(strange, 0U);
    EXPECT_STREQ(installer->ExpandMacros("prog$binext$").c_str(), "prog");
}

TEST_F(KInstallerConcurrencyTest, TheScriptIsAskedForWhileItIsOpened) {
    GivenScript("[remove]\ndirectory=create,@T@/removed\n");
    std::atomic<bool> opened{false};
    std::atomic<unsigned> strange{0};
    std::promise<void> asking;
    std::thread other([&] {
        for (bool first = true; !opened; first = false) {
            const KSUP::KProfile script = installer->GetInstallProfile();
            const KString value = script.GetString("remove", "directory", "none");
            strange += script.HasContent() == (value == "none") ? 1U : 0U;
            if (first) {
                asking.set_value();
            }
        }
    });
    asking.get_future().wait();
    Initialize();
    opened = true;
    other.join();
    EXPECT_EQ(strange, 0U);
    EXPECT_TRUE(installer->GetInstallProfile().HasContent());
}

TEST_F(KInstallerConcurrencyTest, TheCountNeverRunsBehindTheCallback) {
    GivenManyRules();
    std::atomic<unsigned> calls{0};
    std::atomic<unsigned> wrong{0};
    installer->SetCallback([&](const KString&, double) {
        // A rule is counted once it is done: in the call of rule n, n - 1 are.
        wrong += installer->GetCompletedCount() == calls++ ? 0U : 1U;
    });
    Start();
    EXPECT_EQ(CodeOfEnd(), 0U);
    EXPECT_EQ(calls, manyRules);
    EXPECT_EQ(wrong, 0U);
}

TEST_F(KInstallerConcurrencyTest, AStopFromAnotherThreadEndsTheRunBeforeTheNextRule) {
    GivenScript(RepeatedLines("remove", "file=delete,none,@T@/kit", 5));
    std::promise<void> inThird;
    std::promise<void> stopped;
    statuses.At(3, [&] {
        inThird.set_value();
        stopped.get_future().wait();
    });
    Start();
    std::thread stopper([&] {
        inThird.get_future().wait();
        installer->Stop();
        stopped.set_value();
    });
    EXPECT_EQ(CodeOfEnd(), 66U);
    stopper.join();
    EXPECT_EQ(installer->GetCompletedCount(), 3U);
    EXPECT_EQ(Executed().size(), 4U);
}

TEST_F(KInstallerConcurrencyTest, AStopDuringACopyTakesEffectWithinAChunk) {
    GivenOneLongCopy();
    std::promise<void> copying;
    std::promise<void> stopped;
    statuses.At(4, [&] {
        copying.set_value();
        stopped.get_future().wait();
    });
    Start();
    std::thread stopper([&] {
        copying.get_future().wait();
        installer->Stop();
        stopped.set_value();
    });
    EXPECT_EQ(CodeOfEnd(), 66U);
    stopper.join();
    EXPECT_EQ(statuses.All().size(), 5U); // the opening text, three chunks, the closing 100
    EXPECT_FALSE(tree.Exists("big"));
    EXPECT_FALSE(tree.Exists("later"));
    EXPECT_EQ(installer->GetCompletedCount(), 1U);
}

TEST_F(KInstallerConcurrencyTest, AStopAtAnyMomentEndsTheRunOrComesTooLate) {
    for (int round = 0; round < 20; ++round) {
        installer = std::make_unique<KInstaller>();
        GivenScript(RepeatedLines("remove", "file=delete,none,@T@/kit", 200));
        Start();
        std::thread stopper([&] {
            std::this_thread::sleep_for(std::chrono::microseconds(round * 97));
            installer->Stop();
        });
        const unsigned code = CodeOfEnd();
        stopper.join();
        EXPECT_TRUE(code == 66 || (code == 0 && installer->GetCompletedCount() == 200)) << code;
    }
}

TEST_F(KInstallerConcurrencyTest, ManyStopsAreOne) {
    GivenManyRules();
    Start();
    std::thread one([&] { installer->Stop(); });
    std::thread other([&] { installer->Stop(); });
    one.join();
    other.join();
    const unsigned code = CodeOfEnd();
    EXPECT_TRUE(code == 66 || code == 0) << code;
    EXPECT_TRUE(installer->IsCancelled());
}

TEST_F(KInstallerConcurrencyTest, DestroyingALiveInstallerStopsTheRunAndWaits) {
    GivenOneLongCopy();
    std::promise<void> copying;
    std::atomic<bool> wasStopped{false};
    KInstaller* const alive = installer.get();
    statuses.At(3, [&] {
        copying.set_value();
        // The destructor asks the run to stop; what the run uses lives until then.
        while (!alive->IsCancelled()) {
            std::this_thread::sleep_for(1ms);
        }
        wasStopped = true;
    });
    Start();
    copying.get_future().wait();
    installer.reset();
    EXPECT_TRUE(wasStopped);
    EXPECT_FALSE(tree.Exists("big"));
    EXPECT_FALSE(tree.Exists("later"));
    EXPECT_EQ(statuses.Lines().back(), "100 Copying file big");
}

TEST_F(KInstallerConcurrencyTest, DestroyingALiveInstallerOfManyRulesIsQuiet) {
    GivenManyRules();
    std::promise<void> running;
    statuses.At(10, [&] { running.set_value(); });
    Start();
    running.get_future().wait();
    installer.reset();
    const std::size_t afterTheEnd = statuses.All().size();
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(statuses.All().size(), afterTheEnd);
}

TEST_F(KInstallerConcurrencyTest, DestroyingAnInstallerThatWasNeverStartedIsQuiet) {
    GivenManyRules();
    Initialize();
    EXPECT_NO_THROW(installer.reset());
}

TEST_F(KInstallerConcurrencyTest, TwoInstallersOneAfterTheOtherEachRunTheirOwnScript) {
    GivenScript("[remove]\ndirectory=create,@T@/first\ndirectory=create,$pathTarget$\n");
    Initialize();
    installer->StartUninstall(tree.Path("p"));
    EXPECT_EQ(CodeOfEnd(), 0U);
    installer = std::make_unique<KInstaller>();
    installer->SetCallback(statuses.Callback());
    GivenScript("[remove]\ndirectory=create,@T@/second\ndirectory=create,$pathTarget$\n");
    Initialize();
    installer->StartUninstall(tree.Path("q"));
    EXPECT_EQ(CodeOfEnd(), 0U);
    EXPECT_EQ(installer->GetCompletedCount(), 2U);
    for (const char* made : {"first", "p", "second", "q"}) {
        EXPECT_TRUE(tree.Exists(made)) << made;
    }
    EXPECT_EQ(Executed().size(), 4U);
}

TEST_F(KInstallerConcurrencyTest, ACallbackThatThrowsEndsTheRunWithItsException) {
    GivenScript(RepeatedLines("remove", "file=delete,none,@T@/kit", 5));
    statuses.At(2, [] { throw std::range_error("of the callback"); });
    Start();
    EXPECT_THROW(WaitForEnd(), std::range_error);
    EXPECT_THROW(installer->IsComplete(), std::range_error);
    EXPECT_EQ(installer->GetCompletedCount(), 1U);
    EXPECT_EQ("Deleting file " + tree.Path("kit/none"), installer->GetStatus().c_str());
}

TEST_F(KInstallerConcurrencyTest, AnExceptionThatIsNoClassIsKeptToo) {
    GivenScript(RepeatedLines("remove", "file=delete,none,@T@/kit", 5));
    statuses.At(2, [] { throw 42; }); // NOLINT: what foreign code may do
    Start();
    EXPECT_THROW(WaitForEnd(), int);
}

TEST_F(KInstallerConcurrencyTest, TheCallbackMayAskEverything) {
    GivenScript(RepeatedLines("remove", "file=delete,none,@T@/kit", 5));
    std::vector<std::string> seen;
    installer->SetCallback([&](const KString&, double) {
        seen.push_back(
            std::to_string(installer->GetCompletedCount()) + '/' +
            std::to_string(installer->GetMaxCount()) + ' ' +
            std::to_string(installer->GetStatus().IsEmpty()) +
            std::to_string(installer->IsCancelled()) + std::to_string(installer->IsComplete())
        );
    });
    Start();
    EXPECT_EQ(CodeOfEnd(), 0U);
    EXPECT_THAT(seen, ElementsAre("0/5 100", "1/5 000", "2/5 000", "3/5 000", "4/5 000"));
}

class ThrowingRule : public KINS::KInstallRule {
  public:
    using KInstallRule::KInstallRule;
    void Execute() override { throw std::domain_error("of the rule"); }
    KString Description() const override { return "Throw"; }
};

TEST_F(KInstallerConcurrencyTest, ARuleThatThrowsOnAThreadLeavesTheManagersLockFree) {
    KINS::KInstallRuleManager manager(installer.get());
    manager.AddRule(new ThrowingRule(&manager, ""));
    KSUP::KThread worker("worker");
    worker.Start([&] { manager.ExecuteRules(); });
    while (worker.IsThreadActive()) {
        SvcPollingDispatch();
    }
    EXPECT_THROW(worker.CheckRunError(), std::domain_error);
    EXPECT_EQ(manager.GetCompletedCount(), 0U);
    EXPECT_EQ(manager.GetRuleCount(), 1U);
}

} // namespace
