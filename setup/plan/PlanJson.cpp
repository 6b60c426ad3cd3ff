// SPDX-License-Identifier: MIT
#include <setup/output/JsonText.h>
#include <setup/plan/PlanReport.h>

#include <array>
#include <cstdio>

#include <nlohmann/json.hpp>

namespace KSETUP {

namespace {

using Kind = KPlannedAction::Kind;

constexpr int schemaVersion = 1;

Json ToObject(const KPlannedAction& action) {
    Json object;
    object["action"] = ActionWord(action.kind);
    const bool isService = action.kind == Kind::InstallService ||
                           action.kind == Kind::RemoveService ||
                           action.kind == Kind::StartService || action.kind == Kind::StopService;
    object
        [isService                           ? "service"
         : action.kind == Kind::StartCommand ? "command"
                                             : "path"] = action.path;
    switch (action.kind) {
    case Kind::CopyFile: {
        std::array<char, 8> mode{};
        std::snprintf(mode.data(), mode.size(), "%04o", action.mode & 07777U);
        object["source"] = action.source;
        object["bytes"] = action.bytes;
        object["mode"] = mode.data();
        break;
    }
    case Kind::MakeLink:
        object["target"] = action.source;
        break;
    case Kind::PutOption:
    case Kind::RemoveOption:
        object["option"] = action.source;
        break;
    case Kind::InstallService:
        if (!action.source.empty()) {
            object["program"] = action.source;
        }
        break;
    default:
        break;
    }
    if (action.replaces) {
        object["replaces"] = true;
    }
    if (action.lacks) {
        object["missing"] = true;
    }
    if (!action.obstacle.empty()) {
        object["obstacle"] = action.obstacle;
    }
    return object;
}

Json ToObject(const KPlannedRule& planned) {
    const KScriptLine& line = planned.rule.line;
    Json object;
    object["line"] = line.number;
    object["section"] = line.section;
    object["type"] = line.type;
    object["value"] = line.value;
    object["fields"] = planned.rule.fields;
    object["actions"] = Json::array();
    for (const KPlannedAction& action : planned.actions) {
        object["actions"].push_back(ToObject(action));
    }
    return object;
}

Json ToObject(const KPlan::Space& space) {
    Json object;
    object["directory"] = space.directory;
    object["bytesNeeded"] = space.needed;
    object["bytesToSpare"] = KPlan::Space::spareBytes;
    object["bytesFree"] = space.available;
    object["filesNeeded"] = space.filesNeeded;
    object["filesToSpare"] = KPlan::Space::spareFiles;
    if (!space.filesAreUnlimited) {
        object["filesFree"] = space.filesAvailable;
    }
    object["enough"] = space.HasRoom();
    return object;
}

} // namespace

std::string ToJson(const KPlanReport& report, int exitCode) {
    const KPlanTotals totals = CountTotals(*report.plan);
    Json object;
    object["schema"] = schemaVersion;
    object["command"] = report.installs ? "plan install" : "plan remove";
    object["result"] = exitCode == 0 ? "done" : "failed";
    object["exitCode"] = exitCode;
    object["product"] = report.product;
    object["version"] = report.version;
    object["buildNumber"] = report.buildNumber;
    object["productPath"] = report.path;
    object["script"] = report.script;
    object["rules"] = Json::array();
    for (const KPlannedRule& planned : report.plan->GetRules()) {
        object["rules"].push_back(ToObject(planned));
    }
    object["totals"] = {
        {"created", totals.created},
        {"overwritten", totals.overwritten},
        {"deleted", totals.deleted},
        {"directoriesCreated", totals.directoriesCreated},
        {"directoriesDeleted", totals.directoriesDeleted},
        {"services", totals.services},
        {"commands", totals.commands},
        {"obstacles", totals.obstacles},
    };
    if (!report.refusal.empty()) {
        object["refusal"] = report.refusal;
    }
    if (!report.recordObstacle.empty()) {
        object["recordObstacle"] = report.recordObstacle;
    }
    object["space"] = Json::array();
    for (const KPlan::Space& space : report.space) {
        object["space"].push_back(ToObject(space));
    }
    return OneLine(object);
}

} // namespace KSETUP
