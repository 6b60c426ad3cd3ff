// SPDX-License-Identifier: MIT
#include <ins/KRuleLine.h>
#include <setup/check/Checks.h>
#include <setup/check/MacroText.h>
#include <setup/script/ScriptText.h>
#include <sup++/SvcData.h>

#include <algorithm>
#include <array>
#include <set>

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

/// What stands behind the last dot of a name.
std::string EndingOf(const std::string& name) {
    const std::size_t dot = name.rfind('.');
    return dot == std::string::npos ? "" : name.substr(dot + 1);
}

/// The section of a loaded one for a machine that the kit may be for, though not for this one: the
/// engine takes the system's own name for all but x86.
bool IsOfAnotherMachine(const KCheckContext& context, const std::string& name) {
    static constexpr std::array machines = std::to_array<std::string_view>({
        "aarch64",
        "armv6l",
        "armv7l",
        "armv8l",
        "loongarch64",
        "mips",
        "mips64",
        "ppc64",
        "ppc64le",
        "riscv64",
        "s390x",
        "sparc64",
    });
    const std::string ending = EndingOf(name);
    return std::find(machines.begin(), machines.end(), ending) != machines.end() &&
           context.GetLoadedSections().contains(name.substr(0, name.size() - ending.size() - 1));
}

/// Whether a section was written to be loaded: notes of the author's own may stand in others.
bool HoldsRules(const KScript& script, const std::string& section) {
    const std::vector<KScriptLine> lines = script.GetLines(section);
    return std::any_of(lines.begin(), lines.end(), [](const KScriptLine& line) {
        return KINS::KRuleLine::FindType(Lowered(line.type)) != nullptr;
    });
}

/// The loaded section that was meant by the name of one that is not; empty when there is none.
std::string MeantByUnloaded(
    const KCheckContext& context, const std::vector<std::string>& loaded, const std::string& name
) {
    const std::string ending = Lowered(EndingOf(name));
    const std::string base = name.substr(0, name.size() - std::min(name.size(), ending.size() + 1));
    static constexpr std::array of64 =
        std::to_array<std::string_view>({"x64", "amd64", "x86-64", "64", "x86_64", "x8664"});
    static constexpr std::array of32 =
        std::to_array<std::string_view>({"i386", "i486", "i586", "i686", "ia32", "x32", "32", "x86"}
        );
    if (context.GetLoadedSections().contains(base)) {
        if (std::find(of64.begin(), of64.end(), ending) != of64.end()) {
            return base + ".x86_64";
        }
        if (std::find(of32.begin(), of32.end(), ending) != of32.end()) {
            return base + ".x86";
        }
    }
    return FindMeant(name, loaded);
}

/// The first names of sections, each once: enough to choose from, however many there are.
std::vector<std::string> SomeNames(const KScript& script) {
    constexpr std::size_t most = 100;
    std::vector<std::string> names;
    std::set<std::string_view> seen;
    for (const KScript::Header& header : script.GetHeaders()) {
        if (names.size() < most && seen.insert(header.name).second) {
            names.push_back(header.name);
        }
    }
    return names;
}

KText SectionList(const std::vector<std::string>& names) {
    constexpr std::size_t most = 20;
    std::string list;
    for (std::size_t index = 0; index < std::min(names.size(), most); ++index) {
        list += (list.empty() ? "[" : ", [") + names[index] + "]";
    }
    return names.size() > most ? Text("%s and others", list)
           : names.empty()     ? Text("none")
                               : KText(list);
}

} // namespace

Findings IncludeCycles(const KCheckContext& context) {
    Findings found;
    for (const KScriptCycle& cycle : context.GetCycles()) {
        found.push_back(context.AtValue(
            cycle.line,
            Text(
                "section [%s] includes itself and never ends: %s",
                cycle.names.back(),
                ToWords(cycle)
            ),
            Text("take this line out, or move what both need to a section of its own")
        ));
    }
    return found;
}

Findings MissingSections(const KCheckContext& context) {
    const KScript& script = context.GetScript();
    const std::vector<std::string> known = SomeNames(script);
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        if (rule.type != KINS::KRuleType::Section) {
            continue;
        }
        const std::string& name = rule.fields.front();
        if (Trimmed(name).empty() || IsThere(script, name) ||
            (HasVersionMacro(rule.line.value, context.GetMacros()) &&
             context.CouldBeASection(PatternOf(rule.line.value, context.GetMacros())))) {
            continue;
        }
        const std::string meant = FindMeant(std::string(Trimmed(name)), known);
        found.push_back(context.AtValue(
            rule.line,
            Text("there is no section [%s], so nothing is included", name),
            meant.empty() ? Text("add it, take the line out, or name one of %s", SectionList(known))
                          : Text("write \"%s\", or add the section", meant)
        ));
    }
    return found;
}

Findings UnloadedSections(const KCheckContext& context) {
    const KScript& script = context.GetScript();
    const std::set<std::string>& all = context.GetLoadedSections();
    const std::vector<std::string> loaded(all.begin(), all.end());
    std::set<std::string> told;
    Findings found;
    for (const KScript::Header& header : script.GetHeaders()) {
        if (context.GetLoadedSections().contains(header.name) ||
            IsOfAnotherMachine(context, header.name) || !HoldsRules(script, header.name) ||
            !told.insert(header.name).second) {
            continue;
        }
        const std::string meant = MeantByUnloaded(context, loaded, header.name);
        KFinding finding;
        finding.line = header.line;
        finding.text = "[" + header.name + "]";
        finding.message = Text("nothing loads section [%s], so its lines do nothing", header.name);
        finding.advice = Text(
            "%sinclude it by section=%s where its lines belong",
            (meant.empty() ? "" : Text("write \"[%s]\", or ", meant)),
            header.name
        );
        found.push_back(std::move(finding));
    }
    return found;
}

} // namespace KSETUP::Checks
