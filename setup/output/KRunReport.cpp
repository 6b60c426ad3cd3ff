// SPDX-License-Identifier: MIT
#include <setup/output/KJsonObject.h>
#include <setup/output/KRunReport.h>

namespace KSETUP {

namespace {

constexpr int schemaVersion = 1;

void PutUnlessEmpty(KJsonObject& object, const char* name, const std::string& text) {
    if (!text.empty()) {
        object.Put(name, text);
    }
}

template <class Item>
void PutUnlessEmpty(KJsonObject& object, const char* name, const std::vector<Item>& list) {
    if (!list.empty()) {
        object.Put(name, list);
    }
}

KJsonObject ErrorOf(const KRunReport& report) {
    KJsonObject error;
    if (report.errorCode != 0) {
        error.Put("code", report.errorCode);
    }
    error.Put("text", report.error);
    PutUnlessEmpty(error, "place", report.place);
    PutUnlessEmpty(error, "rule", report.rule);
    PutUnlessEmpty(error, "logEnd", report.logEnd);
    return error;
}

KJsonObject RestoredOf(const KPutBackReport& restored) {
    KJsonObject object;
    object.Put("putBack", restored.putBack)
        .Put("deleted", restored.deleted)
        .Put("complete", restored.isComplete);
    std::vector<KJsonObject> edited;
    for (const auto& [path, keptAs] : restored.edited) {
        edited.push_back(KJsonObject().Put("path", path).Put("keptAs", keptAs));
    }
    PutUnlessEmpty(object, "edited", edited);
    PutUnlessEmpty(object, "restarted", restored.restarted);
    PutUnlessEmpty(object, "stopped", restored.stopped);
    return object;
}

} // namespace

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

KJsonObject ToJsonObject(const KRunReport& report) {
    KJsonObject object;
    object.Put("schema", schemaVersion);
    object.Put("command", report.command);
    object.Put("result", ResultWord(report.result));
    object.Put("exitCode", report.exitCode);
    PutUnlessEmpty(object, "product", report.product);
    if (!report.version.empty()) {
        object.Put("version", report.version);
        object.Put("buildNumber", report.buildNumber);
    }
    PutUnlessEmpty(object, "formerVersion", report.formerVersion);
    PutUnlessEmpty(object, "productPath", report.productPath);
    if (report.rulesAll != 0) {
        object.Put(
            "rules", KJsonObject().Put("done", report.rulesDone).Put("all", report.rulesAll)
        );
    }
    if (!report.error.empty()) {
        object.Put("error", ErrorOf(report));
    }
    PutUnlessEmpty(object, "log", report.log);
    PutUnlessEmpty(object, "commandOutput", report.commandOutput);
    PutUnlessEmpty(object, "notes", report.notes);
    PutUnlessEmpty(object, "running", report.running);
    PutUnlessEmpty(object, "leftBehind", report.leftBehind);
    PutUnlessEmpty(object, "keptForeign", report.keptForeign);
    PutUnlessEmpty(object, "obsolete", report.obsolete);
    std::vector<KJsonObject> kept;
    for (const KRunReport::Kept& one : report.keptConfiguration) {
        kept.push_back(KJsonObject().Put("path", one.path));
        PutUnlessEmpty(kept.back(), "new", one.offered);
    }
    PutUnlessEmpty(object, "keptConfiguration", kept);
    std::vector<KJsonObject> links;
    for (const auto& [path, target] : report.replacedLinks) {
        links.push_back(KJsonObject().Put("path", path).Put("target", target));
    }
    PutUnlessEmpty(object, "replacedLinks", links);
    PutUnlessEmpty(object, "outdated", report.outdated);
    std::vector<KJsonObject> services;
    for (const auto& [name, state] : report.keptServices) {
        services.push_back(KJsonObject().Put("service", name).Put("state", state));
    }
    PutUnlessEmpty(object, "keptServices", services);
    std::vector<KJsonObject> differences;
    for (const auto& [path, what] : report.differences) {
        differences.push_back(KJsonObject().Put("path", path).Put("what", what));
    }
    PutUnlessEmpty(object, "differences", differences);
    if (report.restored) {
        object.Put("restored", RestoredOf(*report.restored));
    }
    if (report.rolledBack) {
        object.Put("rolledBack", *report.rolledBack);
    }
    return object;
}

std::string ToJson(const KRunReport& report) {
    return ToJsonObject(report).ToText();
}

} // namespace KSETUP
