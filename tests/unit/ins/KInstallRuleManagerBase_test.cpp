// SPDX-License-Identifier: MIT
//
// Above 500 lines: the manager is the heart of a run, and its tests share one scripted rule. How
// lines become rules is in KInstallRuleManagerBase_loading_test.cpp.
#include "../../support/EngineRig.h"
#include "../../support/ErrorProbe.h"
#include "../../support/NameOfRow.h"
#include "../../support/SlotOf.h"

#include <ins/KDirectoryRule.h>
#include <ins/KFileRule.h>
#include <ins/KInstallRuleManager.h>
#include <sup++/KErrorSource.h>

#include <gmock/gmock.h>

#include <chrono>
#include <future>
#include <stdexcept>
#include <type_traits>
#include <typeinfo>

namespace {

using KINS::KInstallRule;
using KINS::KInstallRuleManager;
using KINS::KInstallRuleManagerBase;
using KSUP::KString;
using KSUP::KVariant;
using KTEST::ErrorOf;
using KTEST::PlaceWithoutLine;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using namespace std::chrono_literals;

/// A rule that does what a test says, and writes down what is asked of it.
class ScriptedRule : public KInstallRule {
  public:
    ScriptedRule(KInstallRuleManagerBase* owner, const char* name, std::function<void()> work = {})
        : KInstallRule(owner, name),
          body(std::move(work)) {}
    ~ScriptedRule() override { Note("deleted"); }
    ScriptedRule(const ScriptedRule&) = delete;
    ScriptedRule& operator=(const ScriptedRule&) = delete;

    void Execute() override {
        Note("executed");
        if (body) {
            body();
        }
    }
    KString Description() const override {
        Note("described");
        return ruleLine;
    }
    bool ShouldCount() const override {
        Note("asked");
        return counts;
    }
    void ParseRule(const std::vector<KString>&) override {
        Note("parsed");
        if (refusal) {
            refusal();
        }
    }

    std::function<void()> refusal;
    std::vector<std::string>* notes = nullptr;
    bool counts = true;

  private:
    void Note(const char* what) const {
        if (notes != nullptr) {
            notes->push_back(std::string(ruleLine.c_str()) + ' ' + what);
        }
    }
    std::function<void()> body;
};

[[noreturn]] void Refuse() {
    static constexpr KSUP::KErrorSource source("tests");
    source.Raise(48, 7000, "refused");
}

class KInstallRuleManagerBaseTest : public KTEST::RuleTest {
  protected:
    ScriptedRule* AddScripted(const char* name, std::function<void()> work = {}) {
        auto* rule = new ScriptedRule(&manager, name, std::move(work));
        manager.AddRule(rule);
        return rule;
    }
    std::string Status() const { return manager.GetCurrentRuleStatus().c_str(); }
};

TEST_F(KInstallRuleManagerBaseTest, SlotsFollowTheOrderOfTheInterface) {
    using Base = KInstallRuleManagerBase;
    using KTEST::SlotOf;
    EXPECT_EQ(SlotOf(&Base::LoadSection), 2);
    EXPECT_EQ(SlotOf(&Base::LoadCommandLineRules), 3);
    EXPECT_EQ(
        SlotOf(static_cast<void (Base::*)(const KString&, const KString&)>(&Base::AddRule)), 4
    );
    EXPECT_EQ(SlotOf(&Base::ExecuteRules), 5);
    EXPECT_EQ(
        SlotOf(static_cast<void (Base::*)(const KString&, double)>(&Base::SetCurrentRuleStatus)), 6
    );
    EXPECT_EQ(SlotOf(static_cast<void (Base::*)(const KString&)>(&Base::SetCurrentRuleStatus)), 7);
    EXPECT_EQ(SlotOf(&Base::GetCurrentRuleStatus), 8);
    EXPECT_EQ(SlotOf(&Base::Clear), 9);
    EXPECT_EQ(SlotOf(&Base::GetCompletedCount), 10);
    EXPECT_EQ(SlotOf(&Base::ExpandMacros), 11);
    EXPECT_EQ(SlotOf(&Base::GetRuleCount), 12);
    EXPECT_EQ(SlotOf(&Base::SetRuleState), 13);
    EXPECT_EQ(SlotOf(&Base::GetRuleState), 14);
    EXPECT_EQ(SlotOf(&Base::IsCancelled), 15);
    EXPECT_EQ(SlotOf(static_cast<void (Base::*)(KInstallRule*)>(&Base::AddRule)), 16);
    EXPECT_EQ(SlotOf(&Base::ParseRuleOrderId), 17);
    EXPECT_EQ(SlotOf(&Base::ParseRuleType), 18);
    EXPECT_EQ(KTEST::notVirtual, SlotOf(&Base::SetCallback));
    EXPECT_EQ(KTEST::notVirtual, SlotOf(&Base::GetInstallLog));
}

TEST_F(KInstallRuleManagerBaseTest, HasItsTagAndIsNotCopied) {
    EXPECT_STREQ(manager.GetClassTag(), "KInstallRuleManager");
    EXPECT_FALSE(std::is_copy_constructible_v<KInstallRuleManager>);
    EXPECT_FALSE(std::is_copy_assignable_v<KInstallRuleManager>);
    EXPECT_TRUE((std::is_base_of_v<KInstallRuleManagerBase, KInstallRuleManager>));
}

TEST_F(KInstallRuleManagerBaseTest, BeginsEmpty) {
    EXPECT_EQ(manager.GetRuleCount(), 0U);
    EXPECT_EQ(manager.GetCompletedCount(), 0U);
    EXPECT_EQ(Status(), "");
    EXPECT_FALSE(manager.IsCancelled());
    EXPECT_EQ(&installer->GetLog(), &manager.GetInstallLog());
}

TEST_F(KInstallRuleManagerBaseTest, WhatIsLeftDiesInTheOrderCallbackRules) {
    std::vector<std::string> order;
    {
        KInstallRuleManager mortal(installer.get());
        const std::shared_ptr<int> life(new int, [&](const int* memory) {
            order.emplace_back("callback");
            delete memory;
        });
        mortal.SetCallback([life](const KString&, double) {});
        for (const char* name : {"first", "second"}) {
            auto* rule = new ScriptedRule(&mortal, name);
            mortal.AddRule(rule);
            rule->notes = &order;
        }
    }
    EXPECT_THAT(order, ElementsAre("callback", "first deleted", "second deleted"));
}

// Adding rules

TEST_F(KInstallRuleManagerBaseTest, AddingInitialisesThenLogs) {
    std::vector<std::string> notes;
    auto* rule = new ScriptedRule(&manager, "mine");
    rule->notes = &notes;
    manager.AddRule(rule);
    EXPECT_THAT(notes, ElementsAre("mine parsed", "mine described"));
    EXPECT_THAT(LogLines(), ElementsAre("KINS::KInstallRuleManager: Adding rule -> mine"));
    EXPECT_EQ(manager.GetRuleCount(), 1U);
    rule->notes = nullptr;
}

TEST_F(KInstallRuleManagerBaseTest, ARuleThatRefusesIsDeletedAndNotAdded) {
    std::vector<std::string> notes;
    auto* rule = new ScriptedRule(&manager, "mine");
    rule->notes = &notes;
    rule->refusal = Refuse;
    EXPECT_EQ(ErrorOf([&] { manager.AddRule(rule); }).GetCode(), 7000U);
    EXPECT_THAT(notes, ElementsAre("mine parsed", "mine deleted"));
    EXPECT_EQ(manager.GetRuleCount(), 0U);
    EXPECT_THAT(LogLines(), IsEmpty());
}

TEST_F(KInstallRuleManagerBaseTest, AnyExceptionOfARuleDeletesItAndComesOut) {
    std::vector<std::string> notes;
    auto* rule = new ScriptedRule(&manager, "mine");
    rule->notes = &notes;
    rule->refusal = [] { throw std::length_error("mine"); };
    EXPECT_THROW(manager.AddRule(rule), std::length_error);
    EXPECT_EQ(notes.back(), "mine deleted");
}

// Running

TEST_F(KInstallRuleManagerBaseTest, RulesRunInOrderEachCountedOnceItIsDone) {
    std::vector<std::string> order;
    for (const char* name : {"a", "b", "c"}) {
        AddScripted(name, [&, name] {
            order.push_back(name + std::to_string(manager.GetCompletedCount()));
        });
    }
    manager.ExecuteRules();
    EXPECT_THAT(order, ElementsAre("a0", "b1", "c2"));
    EXPECT_EQ(manager.GetCompletedCount(), 3U);
    EXPECT_THAT(Executed(), ElementsAre("a", "b", "c"));
}

TEST_F(KInstallRuleManagerBaseTest, ARuleIsLoggedThenExecutedThenAskedWhetherItCounts) {
    std::vector<std::string> notes;
    ScriptedRule* rule = AddScripted("r");
    rule->notes = &notes;
    manager.ExecuteRules();
    EXPECT_THAT(notes, ElementsAre("r described", "r executed", "r asked"));
    rule->notes = nullptr;
}

TEST_F(KInstallRuleManagerBaseTest, ARuleIsLoggedBeforeCancellationIsAskedAbout) {
    class Asking : public KInstallRuleManager {
      public:
        Asking(KINS::KInstaller* owner, std::function<void()> question)
            : KInstallRuleManager(owner),
              asked(std::move(question)) {}
        bool IsCancelled() const override {
            asked();
            return false;
        }

      private:
        std::function<void()> asked;
    };
    std::vector<std::size_t> lines;
    Asking asking(installer.get(), [&] { lines.push_back(LogLines().size()); });
    asking.AddRule(new ScriptedRule(&asking, "a"));
    asking.AddRule(new ScriptedRule(&asking, "b"));
    asking.ExecuteRules();
    // Two lines of adding; then asked behind each rule's line, and once behind the last rule.
    EXPECT_THAT(lines, ElementsAre(3U, 4U, 4U));
}

TEST_F(KInstallRuleManagerBaseTest, WhetherARuleCountsIsAskedAfterItsWork) {
    ScriptedRule* rule = nullptr;
    rule = AddScripted("late", [&] { rule->counts = true; });
    rule->counts = false;
    EXPECT_EQ(manager.GetRuleCount(), 0U);
    manager.ExecuteRules();
    EXPECT_EQ(manager.GetCompletedCount(), 1U);
}

TEST_F(KInstallRuleManagerBaseTest, ARuleThatDoesNotCountIsRunAndLeftOut) {
    unsigned runs = 0;
    AddScripted("hidden", [&] { ++runs; })->counts = false;
    AddScripted("counted");
    EXPECT_EQ(manager.GetRuleCount(), 1U);
    manager.ExecuteRules();
    EXPECT_EQ(runs, 1U);
    EXPECT_EQ(manager.GetCompletedCount(), 1U);
}

TEST_F(KInstallRuleManagerBaseTest, SectionRulesAloneCountNothing) {
    GivenScript("[a]\n");
    Initialize();
    manager.AddRule("section", "a");
    manager.AddRule("section", "b");
    EXPECT_EQ(manager.GetRuleCount(), 0U);
    manager.ExecuteRules();
    EXPECT_EQ(manager.GetCompletedCount(), 0U);
    EXPECT_THAT(Executed(), ElementsAre("Include section a", "Include section b"));
}

TEST_F(KInstallRuleManagerBaseTest, AnEmptyListEndsAtOnce) {
    manager.ExecuteRules();
    EXPECT_EQ(manager.GetCompletedCount(), 0U);
    EXPECT_THAT(LogLines(), IsEmpty());
}

TEST_F(KInstallRuleManagerBaseTest, ARuleAddedByARuleRunsInTheSameRun) {
    AddScripted("first", [&] { AddScripted("added"); });
    AddScripted("second");
    manager.ExecuteRules();
    EXPECT_THAT(Executed(), ElementsAre("first", "second", "added"));
    EXPECT_EQ(manager.GetCompletedCount(), 3U);
}

TEST_F(KInstallRuleManagerBaseTest, AFailingRuleEndsTheRunUncountedWithItsOwnError) {
    unsigned later = 0;
    AddScripted("good");
    AddScripted("bad", Refuse);
    AddScripted("later", [&] { ++later; });
    const KSUP::KError error = ErrorOf([&] { manager.ExecuteRules(); });
    EXPECT_THAT(PlaceWithoutLine(error), ::testing::StartsWith("48 7000.0 tests:?"));
    EXPECT_EQ(manager.GetCompletedCount(), 1U);
    EXPECT_EQ(manager.GetRuleCount(), 3U);
    EXPECT_EQ(later, 0U);
    EXPECT_THAT(Executed(), ElementsAre("good", "bad"));
}

TEST_F(KInstallRuleManagerBaseTest, ARuleMayThrowWhatItLikes) {
    AddScripted("bad", [] { throw std::out_of_range("mine"); });
    EXPECT_THROW(manager.ExecuteRules(), std::out_of_range);
    EXPECT_EQ(manager.GetCompletedCount(), 0U);
}

TEST_F(KInstallRuleManagerBaseTest, ExecuteRulesSetsNoStatusOfItsOwn) {
    manager.SetCurrentRuleStatus("before");
    AddScripted("quiet");
    manager.ExecuteRules();
    EXPECT_EQ(Status(), "before");
    EXPECT_THAT(statuses.Lines(), ElementsAre("- before"));
}

// Cancelling

TEST_F(KInstallRuleManagerBaseTest, AStopInTheThirdOfFiveRulesEndsTheRunBeforeTheFourth) {
    AddScripted("1");
    AddScripted("2");
    AddScripted("3", [&] { installer->Stop(); });
    AddScripted("4");
    AddScripted("5");
    const KSUP::KError error = ErrorOf([&] { manager.ExecuteRules(); });
    EXPECT_EQ(PlaceWithoutLine(error), "48 66.0 ins/KInstallRuleManagerBase:? ExecuteRules");
    EXPECT_THAT(trace.Texts(48), ElementsAre(error.GetSummary().c_str()));
    EXPECT_THAT(Executed(), ElementsAre("1", "2", "3", "4"));
    EXPECT_EQ(manager.GetCompletedCount(), 3U);
}

TEST_F(KInstallRuleManagerBaseTest, AStopInTheLastRuleIsNoticedBehindIt) {
    AddScripted("last", [&] { installer->Stop(); });
    EXPECT_EQ(ErrorOf([&] { manager.ExecuteRules(); }).GetCode(), 66U);
    EXPECT_EQ(manager.GetCompletedCount(), 1U);
}

TEST_F(KInstallRuleManagerBaseTest, AStopBeforeTheRunLogsTheFirstRuleAndRunsNone) {
    unsigned runs = 0;
    AddScripted("first", [&] { ++runs; });
    installer->Stop();
    EXPECT_TRUE(manager.IsCancelled());
    EXPECT_EQ(ErrorOf([&] { manager.ExecuteRules(); }).GetCode(), 66U);
    EXPECT_EQ(runs, 0U);
    EXPECT_THAT(Executed(), ElementsAre("first"));
}

TEST_F(KInstallRuleManagerBaseTest, AStopBeforeTheRunOfAnEmptyListIsError66) {
    installer->Stop();
    EXPECT_EQ(ErrorOf([&] { manager.ExecuteRules(); }).GetCode(), 66U);
    EXPECT_THAT(LogLines(), IsEmpty());
}

// Status

struct StoredStatus {
    const char* name;
    double value;
    const char* stored;
};

class StoredStatusTest : public KTEST::RuleTest,
                         public ::testing::WithParamInterface<StoredStatus> {};

TEST_P(StoredStatusTest, CarriesTheValueRaisedToAWholeNumber) {
    manager.SetCurrentRuleStatus("x", GetParam().value);
    EXPECT_STREQ(manager.GetCurrentRuleStatus().c_str(), GetParam().stored);
    EXPECT_THAT(statuses.All(), ElementsAre(KTEST::StatusRecorder::Status{"x", GetParam().value}));
}

INSTANTIATE_TEST_SUITE_P(
    With,
    StoredStatusTest,
    ::testing::Values(
        StoredStatus{"Nothing", 0.0, "x (0%)"},
        StoredStatus{"AlmostNothing", 0.001, "x (1%)"},
        StoredStatus{"AFraction", 42.1, "x (43%)"},
        StoredStatus{"AWholeNumber", 42.0, "x (42%)"},
        StoredStatus{"AlmostAll", 99.01, "x (100%)"},
        StoredStatus{"All", 100.0, "x (100%)"},
        StoredStatus{"NoPercentage", 4294967295.0, "x"}
    ),
    KTEST::NameOfRow()
);

TEST_F(KInstallRuleManagerBaseTest, AStatusWithoutAValueHasNoPercentage) {
    manager.SetCurrentRuleStatus("x");
    EXPECT_EQ(Status(), "x");
    EXPECT_THAT(statuses.All(), ElementsAre(KTEST::StatusRecorder::Status{"x", 4294967295.0}));
}

TEST_F(KInstallRuleManagerBaseTest, AStatusWithoutAValueGoesThroughTheOtherForm) {
    class Own : public KInstallRuleManager {
      public:
        using KInstallRuleManager::KInstallRuleManager;
        using KInstallRuleManager::SetCurrentRuleStatus;
        void SetCurrentRuleStatus(const KString& text, double value) override {
            seen = text.c_str();
            seenValue = value;
        }
        std::string seen;
        double seenValue = 0.0;
    };
    Own own(installer.get());
    own.SetCurrentRuleStatus("x");
    EXPECT_EQ(own.seen, "x");
    EXPECT_EQ(KINS::noPercentage, own.seenValue);
}

TEST_F(KInstallRuleManagerBaseTest, TheCallbackRunsBeforeTheStatusChanges) {
    std::vector<std::string> seen;
    manager.SetCallback([&](const KString&, double) { seen.push_back(Status()); });
    manager.SetCurrentRuleStatus("first", 1.0);
    manager.SetCurrentRuleStatus("second");
    EXPECT_THAT(seen, ElementsAre("", "first (1%)"));
    EXPECT_EQ(Status(), "second");
}

TEST_F(KInstallRuleManagerBaseTest, ACallbackThatThrowsLeavesTheStatus) {
    manager.SetCurrentRuleStatus("before");
    manager.SetCallback([](const KString&, double) { throw std::runtime_error("callback"); });
    EXPECT_THROW(manager.SetCurrentRuleStatus("after", 1.0), std::runtime_error);
    EXPECT_EQ(Status(), "before");
}

TEST_F(KInstallRuleManagerBaseTest, WithoutACallbackTheStatusIsStoredAllTheSame) {
    manager.SetCallback({});
    manager.SetCurrentRuleStatus("x", 5.0);
    EXPECT_EQ(Status(), "x (5%)");
}

// Rule states

class FirstKindOfRule : public ScriptedRule {
    using ScriptedRule::ScriptedRule;
};

TEST_F(KInstallRuleManagerBaseTest, AStateIsSharedByTheRulesOfOneClass) {
    const KINS::KFileRule one(&manager, "a");
    const KINS::KFileRule other(&manager, "b");
    manager.SetRuleState(&one, "kept");
    EXPECT_STREQ(manager.GetRuleState(&other).GetString().c_str(), "kept");
    EXPECT_EQ(manager.GetRuleState(&other).GetType(), 4U);
}

TEST_F(KInstallRuleManagerBaseTest, TheClassIsTheMostDerivedOne) {
    const ScriptedRule base(&manager, "a");
    const FirstKindOfRule derived(&manager, "b");
    manager.SetRuleState(&base, "base");
    EXPECT_EQ(ErrorOf([&] { manager.GetRuleState(&derived); }).GetCode(), 64U);
    manager.SetRuleState(&derived, "derived");
    EXPECT_STREQ(manager.GetRuleState(&base).GetString().c_str(), "base");
    EXPECT_STREQ(manager.GetRuleState(&derived).GetString().c_str(), "derived");
}

TEST_F(KInstallRuleManagerBaseTest, AStateNeverSetIsError64) {
    const KINS::KDirectoryRule rule(&manager, "a");
    manager.SetRuleState(std::make_unique<KINS::KFileRule>(&manager, "a").get(), "of files");
    const KSUP::KError error = ErrorOf([&] { manager.GetRuleState(&rule); });
    EXPECT_THAT(
        PlaceWithoutLine(error),
        ::testing::StartsWith("48 64.0 ins/KInstallRuleManagerBase:? GetRuleState")
    );
    EXPECT_THAT(trace.Texts(48), ElementsAre(error.GetSummary().c_str()));
}

TEST_F(KInstallRuleManagerBaseTest, AStateIsReplacedWithItsType) {
    const KINS::KFileRule rule(&manager, "a");
    manager.SetRuleState(&rule, "first");
    manager.SetRuleState(&rule, KVariant());
    EXPECT_EQ(manager.GetRuleState(&rule).GetType(), 0U);
    EXPECT_EQ(manager.GetRuleState(&rule).GetSize(), 0U);
}

TEST_F(KInstallRuleManagerBaseTest, AStateSetToItselfStays) {
    const KINS::KFileRule rule(&manager, "a");
    manager.SetRuleState(&rule, "kept");
    manager.SetRuleState(&rule, manager.GetRuleState(&rule));
    EXPECT_STREQ(manager.GetRuleState(&rule).GetString().c_str(), "kept");
}

TEST_F(KInstallRuleManagerBaseTest, AStateChangesInPlace) {
    const KINS::KFileRule rule(&manager, "a");
    manager.SetRuleState(&rule, "first");
    KVariant& state = manager.GetRuleState(&rule);
    manager.SetRuleState(&rule, "second");
    EXPECT_STREQ(state.GetString().c_str(), "second");
    state = "third";
    EXPECT_STREQ(manager.GetRuleState(&rule).GetString().c_str(), "third");
}

TEST_F(KInstallRuleManagerBaseTest, ANullRuleHasNoType) {
    EXPECT_THROW(manager.GetRuleState(nullptr), std::bad_typeid);
    EXPECT_THROW(manager.SetRuleState(nullptr, "x"), std::bad_typeid);
}

// Clearing

TEST_F(KInstallRuleManagerBaseTest, ClearDeletesTheRulesAndTheCountAndKeepsTheRest) {
    std::vector<std::string> notes;
    for (const char* name : {"a", "b"}) {
        AddScripted(name)->notes = &notes;
    }
    const KINS::KFileRule rule(&manager, "a");
    manager.SetRuleState(&rule, "kept");
    manager.SetCurrentRuleStatus("status");
    manager.ExecuteRules();
    notes.clear();
    manager.Clear();
    EXPECT_THAT(notes, ElementsAre("a deleted", "b deleted"));
    EXPECT_EQ(manager.GetRuleCount(), 0U);
    EXPECT_EQ(manager.GetCompletedCount(), 0U);
    EXPECT_EQ(Status(), "status");
    EXPECT_STREQ(manager.GetRuleState(&rule).GetString().c_str(), "kept");
    manager.SetCurrentRuleStatus("still called");
    EXPECT_EQ(statuses.Lines().back(), "- still called");
}

// The lock

TEST_F(KInstallRuleManagerBaseTest, TheLockIsFreeWhileARuleWorks) {
    bool answered = false;
    AddScripted("slow", [&] {
        auto answer = std::async(std::launch::async, [&] { return manager.GetCompletedCount(); });
        answered = answer.wait_for(20s) == std::future_status::ready;
    });
    manager.ExecuteRules();
    EXPECT_TRUE(answered);
}

TEST_F(KInstallRuleManagerBaseTest, TheLockIsFreeWhileARuleWorksHoweverOftenItWasHeld) {
    bool answered = false;
    AddScripted("slow", [&] {
        auto answer = std::async(std::launch::async, [&] { return manager.GetRuleCount(); });
        answered = answer.wait_for(20s) == std::future_status::ready;
    });
    // A callback runs under the lock: the run inside it begins with the lock held twice.
    manager.SetCallback([&](const KString& text, double) {
        if (text == "run") {
            manager.SetCurrentRuleStatus("deeper");
        } else {
            manager.ExecuteRules();
        }
    });
    manager.SetCurrentRuleStatus("run");
    EXPECT_TRUE(answered);
    EXPECT_EQ(manager.GetCompletedCount(), 1U);
}

TEST_F(KInstallRuleManagerBaseTest, TheLockIsFreeAfterEveryEndOfARun) {
    AddScripted("bad", [] { throw std::runtime_error("mine"); });
    EXPECT_THROW(manager.ExecuteRules(), std::runtime_error);
    manager.SetCallback([](const KString&, double) { throw std::runtime_error("callback"); });
    EXPECT_THROW(manager.SetCurrentRuleStatus("x"), std::runtime_error);
    installer->Stop();
    EXPECT_EQ(ErrorOf([&] { manager.ExecuteRules(); }).GetCode(), 66U);
    auto answer = std::async(std::launch::async, [&] { return manager.GetCompletedCount(); });
    ASSERT_EQ(answer.wait_for(20s), std::future_status::ready);
    EXPECT_EQ(answer.get(), 0U);
}

TEST_F(KInstallRuleManagerBaseTest, TheLockIsHeldDuringTheCallback) {
    std::future<unsigned> answer;
    bool waited = false;
    manager.SetCallback([&](const KString&, double) {
        answer = std::async(std::launch::async, [&] { return manager.GetRuleCount(); });
        waited = answer.wait_for(100ms) == std::future_status::timeout;
    });
    manager.SetCurrentRuleStatus("x");
    EXPECT_TRUE(waited);
    EXPECT_EQ(answer.wait_for(20s), std::future_status::ready);
}

TEST_F(KInstallRuleManagerBaseTest, WhatTakesNoLockAnswersDuringTheCallback) {
    bool answered = false;
    manager.SetCallback([&](const KString&, double) {
        auto answer = std::async(std::launch::async, [&] {
            manager.IsCancelled();
            manager.ExpandMacros("$os$");
            manager.GetInstallLog();
        });
        answered = answer.wait_for(20s) == std::future_status::ready;
    });
    manager.SetCurrentRuleStatus("x");
    EXPECT_TRUE(answered);
}

TEST_F(KInstallRuleManagerBaseTest, TheCallbackMayAskTheManager) {
    AddScripted("a", [&] { manager.SetCurrentRuleStatus("working"); });
    std::string seen;
    manager.SetCallback([&](const KString&, double) {
        seen = std::to_string(manager.GetCompletedCount()) + " of " +
               std::to_string(manager.GetRuleCount()) + " '" + Status() + '\'';
    });
    manager.ExecuteRules();
    EXPECT_EQ(seen, "0 of 1 ''");
}

} // namespace
