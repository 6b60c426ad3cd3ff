// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/plan/RunRefusals.h>
#include <setup/plan/UnitFiles.h>
#include <setup/rules/KServiceOverrides.h>
#include <setup/state/KPrivateDirectory.h>

#include <chrono>
#include <sstream>
#include <utility>

#include <sys/services/KServiceError.h>
#include <sys/services/KSystemdUnit.h>

namespace KSETUP {

namespace {

using KINS::KRuleOperation;
using KINS::KRuleType;

constexpr std::chrono::seconds askFor{5};
constexpr const char* nowhere = "/dev/null";

/// At rest without having failed: one that failed is what an upgrade may be for.
bool IsStopped(const std::string& service) {
    if (!IsSystemdRunning()) {
        return false;
    }
    try {
        KSYS::KSystemdUnit unit(service + ".service", KSYS::KSystemdUnit::Clock::now() + askFor);
        unit.Open();
        return unit.GetState().active == "inactive";
    } catch (const KSYS::KServiceError&) {
        return false;
    }
}

} // namespace

KServiceOverrides KServiceOverrides::Look(const KPlan& plan, const KOwnership& ownership) {
    KServiceOverrides before;
    std::set<std::string> names;
    for (const KPlannedRule& planned : plan.GetRules()) {
        if (planned.rule.Is(KRuleType::Service, KRuleOperation::Install) ||
            planned.rule.Is(KRuleType::Service, KRuleOperation::Start)) {
            names.insert(planned.rule.fields[1]);
        }
    }
    for (const std::string& name : names) {
        const std::string path = UnitPaths(name).front();
        if (ownership.GetManifest().Find(path) == nullptr) {
            continue;
        }
        unsigned whyMissing = 0;
        const auto unit = LookAtEntry(path, &whyMissing);
        if (!unit && !CountsAsMissing(whyMissing)) {
            throw SystemFailure(
                ExitCode::cannotWrite,
                Text("cannot look at %s", path),
                whyMissing,
                Text("Nothing was changed. Fix the cause and run it again.")
            );
        }
        if (unit && unit->target == nowhere) {
            before.masked.insert(name);
        } else if (unit && FindUnitEntries(name).size() == 1) { // the file, and no link
            before.disabled.insert(name);
        }
        if (unit && IsStopped(name)) {
            before.stopped.insert(name);
        }
    }
    return before;
}

std::string KServiceOverrides::ToText() const {
    std::string text;
    const auto append = [&](const char* what, const std::set<std::string>& names) {
        for (const std::string& name : names) {
            text += (text.empty() ? "" : " ") + (what + name);
        }
    };
    append("stopped:", stopped);
    append("disabled:", disabled);
    append("masked:", masked);
    return text;
}

KServiceOverrides KServiceOverrides::FromText(const std::string& text) {
    KServiceOverrides before;
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        const std::size_t colon = word.find(':');
        const std::string what = word.substr(0, colon);
        auto& names = what == "stopped"    ? before.stopped
                      : what == "disabled" ? before.disabled
                                           : before.masked;
        names.insert(word.substr(colon + 1));
    }
    return before;
}

} // namespace KSETUP
