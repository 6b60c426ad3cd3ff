// SPDX-License-Identifier: MIT
//
// What a run tells its listener, in one order.
#include "../../support/EngineRig.h"
#include "../../support/ErrorProbe.h"

#include <sup++/KErrorSource.h>

#include <gmock/gmock.h>

#include <stdexcept>
#include <thread>

namespace {

using KINS::KRunEvent;
using KSUP::KOperation;
using KSUP::KString;
using KTEST::ErrorOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::Lt;

const char* WordOf(KOperation operation) {
    static constexpr const char* words[] = {"", "read ", "write ", "delete ", "execute "};
    return words[static_cast<unsigned>(operation)];
}

class RunEventsTest : public KTEST::EngineTest {
  protected:
    RunEventsTest() {
        installer->SetRunListener([this](const KRunEvent& event) { Record(event); });
    }
    void Start(const std::string& lines) {
        GivenScript("[remove]\n" + lines);
        Initialize();
        installer->StartUninstall(tree.Path("p"));
    }
    void Run(const std::string& lines) {
        Start(lines);
        WaitForEnd();
    }
    std::string Short(std::string text) const {
        const std::string root = tree.Path();
        for (std::size_t at = 0; (at = text.find(root)) != std::string::npos;) {
            text.replace(at, root.size(), "T");
        }
        return text;
    }

    std::vector<std::string> events;
    std::vector<unsigned> counts; // GetCompletedCount at each
    std::thread::id thread;

  private:
    void Record(const KRunEvent& event) {
        thread = std::this_thread::get_id();
        counts.push_back(installer->GetCompletedCount());
        std::string line = std::to_string(event.rule);
        if (event.kind == KRunEvent::Kind::Status) {
            line += event.percentage == KINS::noPercentage
                        ? " - "
                        : " " + std::to_string(static_cast<int>(event.percentage)) + " ";
            line += std::string(event.text.c_str()) + " | " + WordOf(event.operation);
            line += event.path.c_str();
        } else {
            line += event.kind == KRunEvent::Kind::RuleStarted ? " begins: " : " done: ";
            line += event.text.c_str();
        }
        events.push_back(Short(line));
    }
};

TEST_F(RunEventsTest, EachStatusStandsBetweenBeginAndEndOfItsRule) {
    tree.Write("kit/a", std::string(70000, 'a'));
    Run("file=copy,a,@T@/kit,@T@\ndirectory=delete,@T@/none\n");
    EXPECT_THAT(
        events,
        ElementsAre(
            "0 begins: File copy T/kit/a to T",
            "0 - Copying file T/a | write T/a",
            "0 93 Copying file a | write T/a",
            "0 100 Copying file a | write T/a",
            "0 100 Copying file a | write T/a",
            "0 done: File copy T/kit/a to T",
            "1 begins: Delete path T/none",
            "1 - Deleting directory T/none | delete T/none",
            "1 done: Delete path T/none"
        )
    );
    EXPECT_NE(thread, std::this_thread::get_id());
}

TEST_F(RunEventsTest, ADoneRuleIsCountedWhenItIsTold) {
    Run("directory=create,@T@/a\ndirectory=create,@T@/b\n");
    EXPECT_THAT(counts, ElementsAre(0U, 0U, 1U, 1U, 1U, 2U));
}

TEST_F(RunEventsTest, RulesThatDoNotCountAreNotTold) {
    Run("section=more\ndirectory=create,@T@/a\n[more]\nprofile=create,@T@/a.ini\n");
    EXPECT_THAT(
        events,
        ElementsAre(
            "0 begins: Create profile T/a.ini",
            "0 done: Create profile T/a.ini",
            "1 begins: Create path T/a",
            "1 - Creating directory T/a | write T/a",
            "1 done: Create path T/a"
        )
    );
}

TEST_F(RunEventsTest, TheTargetOfARuleIsNotThatOfTheNext) {
    GivenScript("[remove]\ndirectory=create,@T@/a\nprocess=stop,no-such-program-anywhere\n");
    Run("directory=create,@T@/a\nprocess=stop,no-such-program-anywhere\n");
    EXPECT_EQ(events[4], "1 - Stopping process no-such-program-anywhere | ");
    EXPECT_EQ(installer->GetCurrentTarget(), "");
}

TEST_F(RunEventsTest, ARuleThatFailsIsNotDoneAndItsTargetIsKept) {
    tree.Directory("kept");
    Start("file=delete,kept,@T@\n");
    ErrorOf([&] { WaitForEnd(); });
    EXPECT_THAT(
        events,
        ElementsAre("0 begins: File delete T/kept to ", "0 - Deleting file T/kept | delete T/kept")
    );
    EXPECT_EQ(installer->GetCurrentTarget(), tree.Path("kept"));
}

TEST_F(RunEventsTest, ALinkAndAProfileAreTargetsWithoutAStatus) {
    Run("file=symlink,a,@T@/kit,@T@,link\n");
    EXPECT_EQ(installer->GetCurrentTarget(), tree.Path("link"));
    EXPECT_EQ(events.size(), 2U);
}

TEST_F(RunEventsTest, TheListenerHearsBehindTheCallbackAndSeesTheNewStatus) {
    std::vector<std::string> order;
    installer->SetCallback([&](const KString&, double) { order.emplace_back("callback"); });
    installer->SetRunListener([&](const KRunEvent& event) {
        if (event.kind == KRunEvent::Kind::Status) {
            order.push_back(Short(installer->GetStatus().c_str()));
        }
    });
    Run("directory=create,@T@/a\n");
    EXPECT_THAT(order, ElementsAre("callback", "Creating directory T/a"));
}

TEST_F(RunEventsTest, WhatTheListenerThrowsEndsTheRun) {
    installer->SetRunListener([](const KRunEvent& event) {
        if (event.kind == KRunEvent::Kind::RuleDone) {
            throw std::runtime_error("of the listener");
        }
    });
    Start("directory=create,@T@/a\ndirectory=create,@T@/b\n");
    EXPECT_THROW(WaitForEnd(), std::runtime_error);
    EXPECT_FALSE(tree.Exists("b"));
}

TEST_F(RunEventsTest, NoneIsAskedForAndNoneIsTold) {
    installer->SetRunListener({});
    Run("directory=create,@T@/a\n");
    EXPECT_THAT(events, ::testing::IsEmpty());
}

TEST_F(RunEventsTest, TheOrderHoldsOverThousandsOfRulesWhileOthersAsk) {
    constexpr unsigned rules = 2000;
    std::string lines;
    std::vector<std::string> expected;
    for (unsigned rule = 0; rule < rules; ++rule) {
        lines += "directory=delete,@T@/none\n";
        const std::string number = std::to_string(rule);
        expected.push_back(number + " begins: Delete path T/none");
        expected.push_back(number + " - Deleting directory T/none | delete T/none");
        expected.push_back(number + " done: Delete path T/none");
    }
    Start(lines);
    while (!installer->IsComplete()) {
        static_cast<void>(installer->GetCurrentTarget());
        static_cast<void>(installer->GetStatus());
    }
    EXPECT_THAT(events, ElementsAreArray(expected));
}

} // namespace
