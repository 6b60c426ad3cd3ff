// SPDX-License-Identifier: MIT
#include <setup/output/JsonText.h>
#include <setup/output/KRunReport.h>

#include <nlohmann/json.hpp>

namespace KSETUP {

namespace {

constexpr int schemaVersion = 1;

void AddUnlessEmpty(Json& object, const char* name, const std::string& text) {
    if (!text.empty()) {
        object[name] = text;
    }
}

template <class Item>
void AddUnlessEmpty(Json& object, const char* name, const std::vector<Item>& list) {
    if (!list.empty()) {
        object[name] = list;
    }
}

Json ErrorOf(const KRunReport& report) {
    Json error;
    if (report.errorCode != 0) {
        error["code"] = report.errorCode;
    }
    error["text"] = report.error;
    AddUnlessEmpty(error, "place", report.place);
    AddUnlessEmpty(error, "rule", report.rule);
    AddUnlessEmpty(error, "logEnd", report.logEnd);
    return error;
}

Json RestoredOf(const KPutBackReport& restored) {
    Json object = {
        {"putBack", restored.putBack},
        {"deleted", restored.deleted},
        {"complete", restored.isComplete}};
    for (const auto& [path, keptAs] : restored.edited) {
        object["edited"].push_back({{"path", path}, {"keptAs", keptAs}});
    }
    AddUnlessEmpty(object, "restarted", restored.restarted);
    AddUnlessEmpty(object, "stopped", restored.stopped);
    return object;
}

} // namespace

std::string OneLine(const Json& object) {
    return object.dump(-1, ' ', false, Json::error_handler_t::replace);
}

const char* ResultWord(KRunResult result) noexcept {
    switch (result) {
    case KRunResult::Done:
        return "done";
    case KRunResult::Failed:
        return "failed";
    case KRunResult::Cancelled:
        return "cancelled";
    case KRunResult::Refused:
        return "refused";
    case KRunResult::NotInstalled:
        return "not installed";
    case KRunResult::Differs:
        return "differs";
    }
    return "";
}

Json ToJsonObject(const KRunReport& report) {
    Json object;
    object["schema"] = schemaVersion;
    object["command"] = report.command;
    object["result"] = ResultWord(report.result);
    object["exitCode"] = report.exitCode;
    AddUnlessEmpty(object, "product", report.product);
    if (!report.version.empty()) {
        object["version"] = report.version;
        object["buildNumber"] = report.buildNumber;
    }
    AddUnlessEmpty(object, "formerVersion", report.formerVersion);
    AddUnlessEmpty(object, "productPath", report.productPath);
    if (report.rulesAll != 0) {
        object["rules"] = {{"done", report.rulesDone}, {"all", report.rulesAll}};
    }
    if (!report.error.empty()) {
        object["error"] = ErrorOf(report);
    }
    AddUnlessEmpty(object, "log", report.log);
    AddUnlessEmpty(object, "commandOutput", report.commandOutput);
    AddUnlessEmpty(object, "notes", report.notes);
    AddUnlessEmpty(object, "running", report.running);
    AddUnlessEmpty(object, "leftBehind", report.leftBehind);
    for (const auto& [path, what] : report.differences) {
        object["differences"].push_back({{"path", path}, {"what", what}});
    }
    if (report.restored) {
        object["restored"] = RestoredOf(*report.restored);
    }
    if (report.rolledBack) {
        object["rolledBack"] = *report.rolledBack;
    }
    return object;
}

std::string ToJson(const KRunReport& report) {
    return OneLine(ToJsonObject(report));
}

} // namespace KSETUP
