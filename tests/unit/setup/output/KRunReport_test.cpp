// SPDX-License-Identifier: MIT
#include <setup/output/KRunReport.h>

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace {

using KSETUP::KRunReport;
using KSETUP::KRunResult;
using KSETUP::ToJson;
using Json = nlohmann::json;

TEST(KRunReportTest, WhatIsNotKnownIsNotThere) {
    KRunReport report;
    report.command = "status";
    report.result = KRunResult::NotInstalled;
    report.exitCode = 3;
    EXPECT_EQ(
        Json::parse(ToJson(report)),
        Json::parse(R"({"schema":1,"command":"status","result":"not installed","exitCode":3})")
    );
}

TEST(KRunReportTest, EverythingHasItsPlace) {
    KRunReport report;
    report.command = "install";
    report.result = KRunResult::Failed;
    report.exitCode = 73;
    report.changed = true;
    report.product = "DPS";
    report.version = "2.2";
    report.buildNumber = 41;
    report.formerVersion = "2.1";
    report.productPath = "/opt/dps";
    report.rulesDone = 3;
    report.rulesAll = 7;
    report.errorCode = 28;
    report.error = "cannot write /opt/dps/a: No space left on device";
    report.place = "/kit/install.ini:12";
    report.rule = "file=copy,a,b,c";
    report.log = "/var/log/DPS Setup Log.txt";
    report.commandEnd = {"said"};
    report.missingValues = {"port"};
    report.logEnd = {"one", "two"};
    report.commandOutput = "/var/log/DPS Setup Commands.txt";
    report.notes = {"a note"};
    report.running = {"dpsd (7), /opt/dps/dpsd"};
    report.leftBehind = {"/opt/dps/mine"};
    report.differences = {{"/opt/dps/b", "missing"}};
    EXPECT_EQ(Json::parse(ToJson(report)), Json::parse(R"({
        "schema": 1, "command": "install", "result": "failed", "exitCode": 73,
        "changed": true,
        "product": "DPS", "version": "2.2", "buildNumber": 41, "formerVersion": "2.1",
        "productPath": "/opt/dps", "rules": {"done": 3, "all": 7},
        "error": {"code": 28, "text": "cannot write /opt/dps/a: No space left on device",
                  "place": "/kit/install.ini:12", "rule": "file=copy,a,b,c",
                  "commandEnd": ["said"], "missingValues": ["port"],
                  "logEnd": ["one", "two"]},
        "log": "/var/log/DPS Setup Log.txt",
        "commandOutput": "/var/log/DPS Setup Commands.txt",
        "notes": ["a note"], "running": ["dpsd (7), /opt/dps/dpsd"],
        "leftBehind": ["/opt/dps/mine"],
        "differences": [{"path": "/opt/dps/b", "what": "missing"}]})"));
}

TEST(KRunReportTest, IsOneLineWhateverItsTextsHold) {
    KRunReport report;
    report.product = "a\nb\xFF";
    const std::string json = ToJson(report);
    EXPECT_EQ(json.find('\n'), std::string::npos);
    EXPECT_EQ(Json::parse(json)["product"], "a\nb\xEF\xBF\xBD");
}

} // namespace
