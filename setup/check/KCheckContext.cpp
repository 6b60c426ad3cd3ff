// SPDX-License-Identifier: MIT
#include <ins/Names.h>
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/check/KCheckContext.h>
#include <setup/check/MacroText.h>
#include <setup/files/PathText.h>
#include <setup/plan/SystemPlaces.h>
#include <setup/script/ScriptText.h>
#include <sup++/KFileEnum.h>
#include <sup++/SvcData.h>

#include <algorithm>
#include <climits>
#include <deque>
#include <set>
#include <utility>

namespace KSETUP {

namespace {

constexpr std::size_t mostPatterns = 200; // each is held against all names of sections
constexpr std::size_t longestName = 1024; // of a section that a pattern finds

/// Those of machines that a kit may be for, this one too.
std::set<std::string> Architectures() {
    return {"x86", "x86_64", SvcGetGlobalDataEx()->architecture};
}

/// What a machine of another architecture makes of a text, as far as names of sections go.
MacroExpander ExpanderFor(const std::string& architecture, const KMacroContext& macros) {
    return [architecture, &macros](const KSUP::KString& text) {
        KSUP::KString other(text);
        static_cast<void>(other.Replace("$arch$", architecture.c_str(), 0, 0, true));
        return KSUP::KString(macros.Expand(other.c_str()));
    };
}

/// The index of a rule's field among those that are written.
std::size_t WrittenIndex(const std::vector<std::string>& written, std::size_t field) {
    for (std::size_t index = 0; index < written.size(); ++index) {
        if (!written[index].empty() && field-- == 0) {
            return index;
        }
    }
    return written.size();
}

} // namespace

KCheckContext::KCheckContext(
    const KSetupKit& setupKit, const std::string& givenPath, const std::shared_ptr<KDiskView>& view
)
    : kit(setupKit),
      script(kit.GetScript()),
      productData(KSUP::KString(JoinPath(kit.GetDirectory(), "product.ini"))),
      productPathIsGiven(!givenPath.empty()),
      productPath(ChooseProductPath(givenPath)),
      service(Expand("$serviceName$")),
      rules(std::make_shared<KScriptRules>(script, macros.GetExpander())),
      afterInstall(KPlannedTree::Below::Kit, kit.GetDirectory(), view),
      install(script, rules, "install", afterInstall),
      installSteps(install),
      afterRemove(afterInstall),
      remove(script, rules, "remove", afterRemove) {
    FindLines();
    FindCycles();
}

/// The script's proposal counts even where the product is installed elsewhere: a kit is as good or
/// as bad on every machine.
std::string KCheckContext::ChooseProductPath(const std::string& givenPath) {
    const std::string path = !givenPath.empty() ? givenPath
                                                : Expand(script.GetValue(
                                                      KINS::Names::installSection,
                                                      KINS::Names::defaultPathKey,
                                                      KINS::Names::defaultProductPath
                                                  ));
    macros.SetProductPath(path);
    std::vector<std::string> names;
    for (const KDeclaredValue& value : kit.GetValues()) {
        names.push_back(value.name);
    }
    macros.AddNames(std::move(names));
    return path;
}

/// Follows the "section" lines. Which section a name with macros stands for may depend on the
/// machine or the version: all that it could be count.
void KCheckContext::FindLines() {
    std::set<std::string>& seen = loadedSections;
    std::deque<std::string> open{"install", "remove"};
    while (!open.empty()) {
        std::set<std::string> parts{open.front()};
        for (const std::string& architecture : Architectures()) {
            parts.insert(open.front() + "." + architecture);
        }
        open.pop_front();
        for (const std::string& part : parts) {
            if (!seen.insert(part).second) {
                continue;
            }
            for (const KScriptRule& rule : rules->Of(part)) {
                if (rule.type == KINS::KRuleType::Section) {
                    open.emplace_back(Trimmed(rule.fields.front()));
                    for (const std::string& name :
                         SectionsLike(PatternOf(rule.line.value, macros))) {
                        open.push_back(name);
                    }
                }
                lines.emplace_back(rule);
            }
        }
    }
    std::sort(lines.begin(), lines.end(), [](const KScriptRule& left, const KScriptRule& right) {
        return left.line.number < right.line.number;
    });
}

/// What a pattern finds, for the first line that has it; nothing for the others, so that each is held
/// against all names once.
const std::vector<std::string>& KCheckContext::SectionsLike(const std::string& pattern) {
    static const std::vector<std::string> none; // a name without macros is the section itself
    if (pattern.find_first_of("*?") == std::string::npos) {
        return none;
    }
    const auto [at, isNew] = sectionsByPattern.try_emplace(pattern);
    if (!isNew) {
        return none;
    }
    if (sectionsByPattern.size() > mostPatterns) {
        throw KSetupFailure(
            ExitCode::malformedScript,
            Text(
                "%s: more than %s names of sections that depend on macros. Name the sections "
                "themselves.",
                script.GetPath(),
                mostPatterns
            )
        );
    }
    for (const KScript::Header& header : script.GetHeaders()) {
        if (header.name.size() <= longestName && pattern.size() <= longestName &&
            KSUP::KFileEnum::Matches(header.name.c_str(), pattern.c_str())) {
            at->second.push_back(header.name);
        }
    }
    return at->second;
}

bool KCheckContext::IsOfTheSystem(const std::string& path) const {
    const auto [known, isNew] = ofTheSystem.try_emplace(path);
    if (isNew) {
        // One that is longer than any would be looked at step by step.
        known->second =
            path.starts_with('/') &&
            (path.size() >= PATH_MAX || LeadsToSystemDirectory(path, service, realDirectories));
    }
    return known->second;
}

bool KCheckContext::CouldBeASection(const std::string& pattern) const {
    const auto known = sectionsByPattern.find(pattern);
    return known != sectionsByPattern.end() && !known->second.empty();
}

void KCheckContext::FindCycles() {
    if (std::none_of(lines.begin(), lines.end(), [](const KScriptRule& rule) {
            return rule.type == KINS::KRuleType::Section;
        })) {
        return;
    }
    std::set<std::pair<unsigned, std::vector<std::string>>> seen;
    for (const std::string& architecture : Architectures()) {
        const MacroExpander expand = ExpanderFor(architecture, macros);
        for (const char* section : {"install", "remove"}) {
            for (KScriptCycle& cycle : script.Unfold(section, expand, architecture).cycles) {
                if (seen.insert({cycle.line.number, cycle.names}).second) {
                    cycles.push_back(std::move(cycle));
                }
            }
        }
    }
}

KFinding KCheckContext::AtType(const KScriptLine& line, KText message, KText advice) const {
    const std::size_t begin = script.GetText(line.number).find_first_not_of(" \t");
    KFinding finding;
    finding.line = line.number;
    finding.column = static_cast<unsigned>(begin + 1);
    finding.text = line.type;
    finding.message = std::move(message);
    finding.advice = std::move(advice);
    return finding;
}

KFinding KCheckContext::AtValue(const KScriptLine& line, KText message, KText advice) const {
    return AtWritten(line, 0, 0, line.value, std::move(message), std::move(advice));
}

KFinding KCheckContext::AtField(
    const KScriptLine& line, std::size_t field, KText message, KText advice
) const {
    const std::vector<std::string> written = WrittenFields(line.value);
    const std::size_t index = WrittenIndex(written, field);
    return index < written.size()
               ? AtWritten(line, index, 0, written[index], std::move(message), std::move(advice))
               : AtValue(line, std::move(message), std::move(advice));
}

KFinding KCheckContext::AtWritten(
    const KScriptLine& line,
    std::size_t field,
    std::size_t offset,
    std::string text,
    KText message,
    KText advice
) const {
    KFinding finding;
    finding.line = line.number;
    finding.column =
        ColumnOfField(script.GetText(line.number), field) + static_cast<unsigned>(offset);
    finding.text = std::move(text);
    finding.message = std::move(message);
    finding.advice = std::move(advice);
    return finding;
}

KFinding KCheckContext::AtSection(const std::string& section, KText message, KText advice) const {
    KFinding finding;
    for (const KScript::Header& header : script.GetHeaders()) {
        if (header.name == section) {
            finding.line = header.line;
            finding.text = "[" + section + "]";
            break;
        }
    }
    finding.message = std::move(message);
    finding.advice = std::move(advice);
    return finding;
}

} // namespace KSETUP
