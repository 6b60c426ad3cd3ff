// SPDX-License-Identifier: MIT
#include <setup/output/KJsonObject.h>
#include <setup/output/KRunReport.h>
#include <setup/output/ProductTable.h>

#include <array>
#include <ctime>

namespace KSETUP {

namespace {

constexpr int schemaVersion = 1;

void PutUnlessEmpty(KJsonObject& object, const char* name, const std::string& text) {
    if (!text.empty()) {
        object.Put(name, text);
    }
}

void PutUnlessEmpty(KJsonObject& object, const char* name, const KText& text) {
    PutUnlessEmpty(object, name, text.English());
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
    PutUnlessEmpty(error, "commandEnd", report.commandEnd);
    PutUnlessEmpty(error, "logEnd", report.logEnd);
    PutUnlessEmpty(error, "service", report.service);
    PutUnlessEmpty(error, "journal", report.journal);
    PutUnlessEmpty(error, "missingValues", report.missingValues);
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

KJsonObject SignatureOf(const KSignerReport& signer) {
    KJsonObject object;
    object.Put("state", signer.state);
    PutUnlessEmpty(object, "key", signer.key);
    PutUnlessEmpty(object, "knownFrom", signer.knownFrom);
    PutUnlessEmpty(object, "why", signer.why);
    return object;
}

/// The others are questions.
bool MayChange(const KRunReport& report) {
    return report.command == "install" || report.command == "remove" || report.command == "restore";
}

/// As "2026-11-22T05:30:00Z".
std::string UtcText(std::int64_t seconds) {
    const std::time_t time = seconds;
    std::tm parts{};
    std::array<char, 32> text{};
    if (::gmtime_r(&time, &parts) == nullptr) {
        return "";
    }
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

KJsonObject ToObject(const KListedProduct& product) {
    KJsonObject object;
    object.Put("name", product.name).Put("product", product.product);
    PutUnlessEmpty(object, "version", product.version);
    if (product.buildNumber) {
        object.Put("buildNumber", *product.buildNumber);
    }
    PutUnlessEmpty(object, "productPath", product.path);
    object.Put("lastRun", UtcText(product.lastRun)).Put("state", StateOf(product));
    object.Put("installed", product.isInstalled).Put("interrupted", product.isInterrupted);
    if (product.differs) {
        object.Put("differs", *product.differs);
    }
    object.Put("configurationLeft", product.hasConfigurationLeft);
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
    if (MayChange(report)) {
        object.Put("changed", report.changed);
    }
    PutUnlessEmpty(object, "product", report.product);
    if (!report.version.empty()) {
        object.Put("version", report.version);
        object.Put("buildNumber", report.buildNumber);
    }
    PutUnlessEmpty(object, "formerVersion", report.formerVersion);
    PutUnlessEmpty(object, "productPath", report.productPath);
    PutUnlessEmpty(object, "root", report.root);
    PutUnlessEmpty(object, "recordDamage", report.recordDamage);
    if (report.rulesAll != 0) {
        object.Put(
            "rules", KJsonObject().Put("done", report.rulesDone).Put("all", report.rulesAll)
        );
    }
    if (!report.error.empty()) {
        object.Put("error", ErrorOf(report));
    }
    if (report.signer) {
        object.Put("signature", SignatureOf(*report.signer));
    }
    std::vector<KJsonObject> keys;
    for (const KKeyReport& one : report.keys) {
        keys.push_back(KJsonObject().Put("key", one.key).Put("knownFrom", one.knownFrom));
    }
    PutUnlessEmpty(object, "keys", keys);
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
    if (report.command == "list" && report.error.empty()) {
        std::vector<KJsonObject> products;
        for (const KListedProduct& product : report.products) {
            products.push_back(ToObject(product));
        }
        object.Put("products", products);
    }
    return object;
}

std::string ToJson(const KRunReport& report) {
    return ToJsonObject(report).ToText();
}

} // namespace KSETUP
