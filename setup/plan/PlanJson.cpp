// SPDX-License-Identifier: MIT
#include <setup/output/KJsonObject.h>
#include <setup/output/TextFormat.h>
#include <setup/plan/PlanReport.h>
#include <setup/script/SecretNames.h>

namespace KSETUP {

namespace {

using Kind = KPlannedAction::Kind;

constexpr int schemaVersion = 1;

KJsonObject ToObject(const KPlannedAction& action) {
    KJsonObject object;
    object.Put("action", ActionWord(action.kind));
    const bool isService = action.kind == Kind::InstallService ||
                           action.kind == Kind::RemoveService ||
                           action.kind == Kind::StartService || action.kind == Kind::StopService;
    object.Put(
        isService                           ? "service"
        : action.kind == Kind::StartCommand ? "command"
        : action.kind == Kind::RunCommand   ? "command"
                                            : "path",
        *action.path
    );
    switch (action.kind) {
    case Kind::CopyFile:
        object.Put("source", *action.source);
        object.Put("bytes", action.bytes);
        object.Put("mode", ModeText(action.mode));
        break;
    case Kind::SetMode:
        object.Put("mode", ModeText(action.mode));
        if (!action.source->empty()) {
            object.Put("owner", *action.source);
        }
        break;
    case Kind::CreateUser:
        object.Put("user", *action.source);
        break;
    case Kind::KeepFile:
        object.Put("reason", *action.source);
        break;
    case Kind::MakeLink:
        object.Put("target", *action.source);
        break;
    case Kind::PutOption:
    case Kind::RemoveOption:
        object.Put("option", *action.source);
        break;
    case Kind::InstallService:
        if (!action.source->empty()) {
            object.Put("program", *action.source);
        }
        break;
    default:
        break;
    }
    if (action.replaces) {
        object.Put("replaces", true);
    }
    if (action.lacks) {
        object.Put("missing", true);
    }
    if (action.replacesLink) {
        object.Put("replacesLink", true);
    }
    if (action.isConfiguration) {
        object.Put("configuration", true);
    }
    if (!action.conflict.empty()) {
        object.Put("conflict", action.conflict);
    }
    if (!action.obstacle.empty()) {
        object.Put("obstacle", action.obstacle);
    }
    return object;
}

KJsonObject ToObject(const KPlannedRule& planned);
KJsonObject ToObject(const KPlan::Space& space);

/// Each as an object by itself.
template <class Item>
std::vector<KJsonObject> ToObjects(const std::vector<Item>& items) {
    std::vector<KJsonObject> objects;
    objects.reserve(items.size());
    for (const Item& item : items) {
        objects.push_back(ToObject(item));
    }
    return objects;
}

KJsonObject ToObject(const KPlannedRule& planned) {
    const KScriptLine& line = planned.rule.line;
    KJsonObject object;
    object.Put("line", line.number);
    object.Put("section", line.section);
    object.Put("type", line.type);
    object.Put("value", MaskedLine(line.type, line.value).substr(line.type.size() + 1));
    object.Put("fields", MaskedFields(line.type, planned.rule.fields));
    return object.Put("actions", ToObjects(planned.actions));
}

KJsonObject ToObject(const KPlan::Space& space) {
    KJsonObject object;
    object.Put("directory", space.directory);
    object.Put("bytesNeeded", space.needed);
    object.Put("bytesToSpare", KPlan::Space::spareBytes);
    object.Put("bytesFree", space.available);
    object.Put("filesNeeded", space.filesNeeded);
    object.Put("filesToSpare", KPlan::Space::spareFiles);
    if (!space.filesAreUnlimited) {
        object.Put("filesFree", space.filesAvailable);
    }
    object.Put("enough", space.HasRoom());
    return object;
}

KJsonObject ToObject(const KPlanTotals& totals) {
    return KJsonObject()
        .Put("created", totals.created)
        .Put("overwritten", totals.overwritten)
        .Put("deleted", totals.deleted)
        .Put("kept", totals.kept)
        .Put("directoriesCreated", totals.directoriesCreated)
        .Put("directoriesDeleted", totals.directoriesDeleted)
        .Put("services", totals.services)
        .Put("commands", totals.commands)
        .Put("obstacles", totals.obstacles);
}

} // namespace

std::string ToJson(const KPlanReport& report, int exitCode) {
    KJsonObject object;
    object.Put("schema", schemaVersion);
    object.Put("command", report.installs ? "plan install" : "plan remove");
    object.Put("result", exitCode == 0 ? "done" : "failed");
    object.Put("exitCode", exitCode);
    object.Put("product", report.product);
    object.Put("version", report.version);
    object.Put("buildNumber", report.buildNumber);
    object.Put("productPath", report.path);
    if (report.isUpToDate) {
        object.Put("upToDate", true);
    }
    object.Put("script", report.script);
    object.Put("rules", ToObjects(report.plan->GetRules()));
    object.Put("cleanup", ToObjects(report.plan->GetCleanup()));
    object.Put("totals", ToObject(CountTotals(*report.plan)));
    if (!report.notes.empty()) {
        object.Put("notes", report.notes);
    }
    if (!report.refusal.empty()) {
        object.Put("refusal", report.refusal);
    }
    if (!report.recordObstacle.empty()) {
        object.Put("recordObstacle", report.recordObstacle);
    }
    return object.Put("space", ToObjects(report.space)).ToText();
}

} // namespace KSETUP
