// SPDX-License-Identifier: MIT
#include <setup/check/Checks.h>
#include <setup/check/MacroText.h>
#include <setup/script/ScriptText.h>
#include <sup++/KFileEnum.h>
#include <sup++/SvcData.h>

#include <algorithm>
#include <array>

namespace KSETUP::Checks {

namespace {

/// Other in every kit or on every machine: a section for one of their values is missing for all
/// others on purpose.
bool HasVersionMacro(const std::string& name, const KMacroContext& macros) {
    static constexpr std::array versions{"verInfo", "buildNumber", "targetVerInfo"};
    const std::vector<KMacroMention> mentions = FindMacros(name, macros);
    return std::any_of(mentions.begin(), mentions.end(), [](const KMacroMention& mention) {
        return mention.isKnown &&
               std::find(versions.begin(), versions.end(), mention.name) != versions.end();
    });
}

bool IsThere(const KScript& script, const std::string& name) {
    const std::string trimmed(Trimmed(name));
    return script.HasSection(trimmed) || script.HasSection(trimmed + ".x86") ||
           script.HasSection(trimmed + ".x86_64") ||
           script.HasSection(trimmed + "." + SvcGetGlobalDataEx()->architecture);
}

/// Whether a section is there that this name could stand for.
bool CouldBeThere(const KScript& script, const std::string& pattern) {
    const auto& headers = script.GetHeaders();
    return std::any_of(headers.begin(), headers.end(), [&](const KScript::Header& header) {
        return KSUP::KFileEnum::Matches(header.name.c_str(), pattern.c_str());
    });
}

std::string NamesOf(const KScript& script) {
    std::string names;
    for (const KScript::Header& header : script.GetHeaders()) {
        const std::string name = "[" + header.name + "]";
        if (names.find(name) == std::string::npos) {
            names += (names.empty() ? "" : ", ") + name;
        }
    }
    return names.empty() ? "none" : names;
}

std::string MeantSection(const KScript& script, const std::string& name) {
    std::vector<std::string> known;
    for (const KScript::Header& header : script.GetHeaders()) {
        known.push_back(header.name);
    }
    return FindMeant(name, known);
}

} // namespace

Findings IncludeCycles(const KCheckContext& context) {
    Findings found;
    for (const KScriptCycle& cycle : context.GetCycles()) {
        found.push_back(context.AtValue(
            cycle.line,
            "section [" + cycle.names.back() +
                "] includes itself and never ends: " + ToWords(cycle),
            "take this line out, or move what both need to a section of its own"
        ));
    }
    return found;
}

Findings MissingSections(const KCheckContext& context) {
    const KScript& script = context.GetScript();
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        if (rule.line.type != "section") {
            continue;
        }
        const std::string& name = rule.fields.front();
        const bool isForSomeVersions =
            HasVersionMacro(rule.line.value, context.GetMacros()) &&
            CouldBeThere(script, PatternOf(rule.line.value, context.GetMacros()));
        if (Trimmed(name).empty() || IsThere(script, name) || isForSomeVersions) {
            continue;
        }
        const std::string meant = MeantSection(script, std::string(Trimmed(name)));
        found.push_back(context.AtValue(
            rule.line,
            "there is no section [" + name + "], so nothing is included",
            meant.empty() ? "add it, take the line out, or name one of " + NamesOf(script)
                          : "write \"" + meant + "\", or add the section"
        ));
    }
    return found;
}

} // namespace KSETUP::Checks
