// SPDX-License-Identifier: MIT
#include <setup/output/KEventStream.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

namespace {

using KSETUP::KEventStream;
using KSETUP::KRunReport;
using KSETUP::KRunResult;
using Json = nlohmann::json;
using ::testing::ElementsAre;

class KEventStreamTest : public ::testing::Test {
  protected:
    ~KEventStreamTest() override {
        ::close(ends[0]);
        ::close(ends[1]);
    }

    /// What was written since the last call, a line each.
    std::vector<Json> Events() {
        std::string text;
        char buffer[4096];
        for (ssize_t got = 0; (got = ::read(ends[0], buffer, sizeof(buffer))) > 0;) {
            text.append(buffer, static_cast<std::size_t>(got));
        }
        std::vector<Json> events;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);) {
            events.push_back(Json::parse(line));
        }
        return events;
    }
    std::vector<unsigned> Percentages() {
        std::vector<unsigned> all;
        for (const Json& event : Events()) {
            if (event.contains("percentage")) {
                all.push_back(event["percentage"]);
            }
        }
        return all;
    }

    static std::array<int, 2> Pipe() {
        std::array<int, 2> made{-1, -1};
        EXPECT_EQ(::pipe2(made.data(), O_CLOEXEC | O_NONBLOCK), 0);
        return made;
    }

    std::array<int, 2> ends = Pipe();
    KEventStream stream{ends[1]};
};

TEST_F(KEventStreamTest, TellsStartRulesAndResultEachInALine) {
    stream.Start("install", "DPS", 2);
    stream.RuleStarted(1, "/kit/install.ini:3", "Creating directory /opt/dps");
    stream.RuleDone(1, 50);
    KRunReport report;
    report.command = "install";
    stream.Result(report);
    const std::vector<Json> events = Events();
    ASSERT_EQ(events.size(), 4U);
    EXPECT_EQ(
        events[0],
        Json::parse(R"({"event":"start","schema":1,"command":"install","product":"DPS","rules":2})")
    );
    EXPECT_EQ(
        events[1], Json::parse(R"({"event":"rule started","rule":1,"place":"/kit/install.ini:3",
                        "text":"Creating directory /opt/dps"})")
    );
    EXPECT_EQ(events[2], Json::parse(R"({"event":"rule done","rule":1,"percentage":50})"));
    EXPECT_EQ(events[3]["event"], "result");
    EXPECT_EQ(events[3]["result"], "done");
    EXPECT_EQ(events[3]["percentage"], 100);
}

TEST_F(KEventStreamTest, TheResultHasTheLastPercentageUnlessAllIsDone) {
    stream.Start("install", "DPS", 4);
    stream.RuleDone(1, 25);
    stream.Status("Copying file a", 47);
    KRunReport failed;
    failed.result = KRunResult::Failed;
    stream.Result(failed);
    EXPECT_THAT(Percentages(), ElementsAre(25, 47, 47));
}

TEST_F(KEventStreamTest, ARunWithoutRulesIsWhole) {
    stream.Start("remove", "DPS", 0);
    stream.Result(KRunReport());
    EXPECT_THAT(Percentages(), ElementsAre(100));
}

TEST_F(KEventStreamTest, AStatusIsToldAtMostTenTimesASecond) {
    stream.Start("install", "DPS", 1);
    for (int chunk = 0; chunk < 1000; ++chunk) {
        stream.Status("Copying file a", static_cast<unsigned>(chunk / 11));
    }
    EXPECT_LE(Events().size(), 12U);
}

TEST_F(KEventStreamTest, NamesThatAreNoUtf8AreStillJson) {
    stream.RuleStarted(1, "p", "Copying file a\xFF\n");
    EXPECT_EQ(Events().at(0)["text"], "Copying file a\xEF\xBF\xBD\n");
}

TEST_F(KEventStreamTest, TheResultIsTheReportWithItsEvent) {
    KRunReport report;
    report.command = "install";
    report.productPath = "/opt/a\xFF";
    stream.Result(report);
    nlohmann::json told = nlohmann::json::parse(ToJson(report));
    told["event"] = "result";
    told["percentage"] = 100;
    EXPECT_EQ(Events().at(0), told);
    EXPECT_EQ(told["productPath"], "/opt/a\xEF\xBF\xBD");
}

TEST_F(KEventStreamTest, AReaderWhoIsGoneStopsNothing) {
    KEventStream nobody(-1);
    nobody.Start("install", "DPS", 1);
    nobody.Result(KRunReport());
}

} // namespace
