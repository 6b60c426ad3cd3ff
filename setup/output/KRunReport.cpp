// SPDX-License-Identifier: MIT
#include <setup/output/JsonText.h>
#include <setup/output/KRunReport.h>
#include <setup/output/ProductTable.h>

#include <array>
#include <ctime>

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

/// The others are questions.
bool MayChange(const KRunReport& report) {
    return report.command == "install" || report.command == "remove" || report.command == "restore";
}

/// As "2026-11-22T05:30:00Z".
std::string TimeText(std::int64_t seconds) {
    const std::time_t time = seconds;
    std::tm parts{};
    std::array<char, 32> text{};
    if (::gmtime_r(&time, &parts) == nullptr) {
        return "";
    }
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

Json ToObject(const KListedProduct& product) {
    Json object;
    object["name"] = product.name;
    object["product"] = product.product;
    if (!product.version.empty()) {
        object["version"] = product.version;
    }
    if (product.buildNumber) {
        object["buildNumber"] = *product.buildNumber;
    }
    AddUnlessEmpty(object, "productPath", product.path);
    object["lastRun"] = TimeText(product.lastRun);
    object["state"] = StateOf(product);
    object["installed"] = product.isInstalled;
    object["interrupted"] = product.isInterrupted;
    object["differs"] = product.differs.has_value() ? Json(*product.differs) : Json(nullptr);
    object["configurationLeft"] = product.hasConfigurationLeft;
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
    if (MayChange(report)) {
        object["changed"] = report.changed;
    }
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
    if (report.command == "list" && report.error.empty()) {
        object["products"] = Json::array();
        for (const KListedProduct& product : report.products) {
            object["products"].push_back(ToObject(product));
        }
    }
    return object;
}

std::string ToJson(const KRunReport& report) {
    return OneLine(ToJsonObject(report));
}

} // namespace KSETUP
