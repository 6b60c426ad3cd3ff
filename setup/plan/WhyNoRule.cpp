// SPDX-License-Identifier: MIT
#include <setup/output/Words.h>
#include <setup/plan/WhyNoRule.h>
#include <setup/script/ScriptText.h>

#include <algorithm>
#include <array>

namespace KSETUP {

namespace {

struct RuleType {
    std::string_view name;
    std::array<std::size_t, 3> counts; ///< of fields that the engine takes
    const char* words;
};

constexpr std::array types = std::to_array<RuleType>({
    {"file", {3, 4, 5}, "3 to 5"},
    {"directory", {2, 2, 2}, "2"},
    {"profile", {2, 4, 5}, "2, 4 or 5"},
    {"process", {2, 2, 2}, "2"},
    {"service", {2, 5, 5}, "2 or 5"},
});

} // namespace

std::string WhyNoRule(const KScriptRule& rule) {
    const std::string& name = rule.line.type;
    if (name == "section") {
        return {};
    }
    const auto type = std::find_if(types.begin(), types.end(), [&](const RuleType& one) {
        return one.name == name;
    });
    if (type == types.end()) {
        return "\"" + name +
               "\" is no type of rule. They are file, directory, section, process, service and "
               "profile, in lower case.";
    }
    const std::size_t count = rule.fields.size();
    if (std::find(type->counts.begin(), type->counts.end(), count) == type->counts.end()) {
        return "a " + name + " rule has " + type->words + " fields, and this line " +
               std::to_string(count) + ". Empty fields do not count.";
    }
    if (name == "profile") {
        const std::string operation = Lowered(rule.fields[0]);
        if (operation != "create" && operation != "put" && operation != "remove_file") {
            return "\"" + rule.fields[0] +
                   "\" is no operation of a profile rule. They are create, put and remove_file.";
        }
    }
    return {};
}

std::string WhyNotLoaded(const std::string& scriptPath, const KPlan& plan) {
    const auto place = [&](const KScriptLine& line) {
        return Shown(scriptPath) + ":" + std::to_string(line.number) + ": ";
    };
    if (!plan.GetCycles().empty()) {
        const KScriptCycle& cycle = plan.GetCycles().front();
        return place(cycle.line) +
               "a section includes itself, and a run would load it without end: " +
               Shown(ToWords(cycle)) + ". Take one of these \"section\" lines out.";
    }
    std::string all;
    for (const KPlannedRule& planned : plan.GetRules()) {
        if (const std::string why = WhyNoRule(planned.rule); !why.empty()) {
            all += (all.empty() ? "" : "\n") + place(planned.rule.line) + Shown(why);
        }
    }
    return all;
}

} // namespace KSETUP
