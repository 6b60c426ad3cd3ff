// SPDX-License-Identifier: MIT
#include <ins/Names.h>
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/output/TextFormat.h>
#include <setup/script/KScript.h>
#include <setup/script/KScriptRules.h>
#include <setup/script/KSetupRuleLine.h>
#include <setup/script/ScriptText.h>
#include <sup++/KError.h>
#include <sup++/SvcData.h>

#include <algorithm>
#include <system_error>
#include <unordered_map>
#include <utility>

#include <sys/files/FileCalls.h>

namespace KSETUP {

namespace {

using KINS::KRuleLine;

std::vector<std::string> TextsOf(const KRuleLine& line) {
    std::vector<std::string> texts;
    texts.reserve(line.GetFields().size());
    for (const KRuleLine::Field& field : line.GetFields()) {
        texts.emplace_back(field.text.c_str());
    }
    return texts;
}

/// A script of more rules, or more bytes in rules, is one that includes its sections over and over.
constexpr std::size_t someRules = 20'000;
constexpr std::size_t someBytes = 16U << 20U;
constexpr std::size_t rulesForLine = 20;

/// Each level takes some of the stack of whoever loads the script after all.
constexpr std::size_t deepest = 1000;

constexpr std::size_t mostCycles = 100;
constexpr std::size_t namesShown = 3; // at each end of a long way

std::vector<std::string_view> SplitLines(std::string_view text) {
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        if (line.ends_with('\r')) {
            line.remove_suffix(1);
        }
        lines.push_back(line);
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

/// "[a] -> [b] -> [c]"; of many names the first and the last ones.
KText WayOf(const std::vector<std::string>& names) {
    KText words;
    for (std::size_t index = 0; index < names.size(); ++index) {
        const bool isLeftOut = index >= namesShown && index + namesShown < names.size();
        if (!isLeftOut) {
            words += (words.empty() ? "[" : " -> [") + Printable(names[index]) + "]";
        } else if (index == namesShown) {
            words += Text(" -> (%s more)", names.size() - 2 * namesShown);
        }
    }
    return words;
}

} // namespace

KText ToWords(const KScriptCycle& cycle) {
    return WayOf(cycle.names);
}

KScript::KScript(const KSUP::KString& scriptPath) : path(scriptPath.c_str()) {
    try {
        profile.Open(scriptPath);
    } catch (const KSUP::KError& error) {
        throw KSetupFailure(
            ExitCode::noKit,
            error.HasInfo() ? error.GetInfo().GetString().c_str() : error.GetSummary().c_str()
        );
    }
    ReadBytes();
    lines = SplitLines(bytes);
    if (!lines.empty() && lines.front().starts_with("\xEF\xBB\xBF")) {
        lines.front().remove_prefix(3);
    }
    for (std::size_t index = 0; index < lines.size(); ++index) {
        const std::string_view line = Trimmed(lines[index]);
        if (line.size() >= 2 && line.front() == '[' && line.back() == ']') {
            const std::string_view name = Trimmed(line.substr(1, line.size() - 2));
            headers.push_back({static_cast<unsigned>(index + 1), std::string(name)});
            sections.insert(name);
        }
    }
}

void KScript::ReadBytes() {
    KSYS::KDescriptor file;
    struct stat status {};
    unsigned failed = KSYS::OpenRegular(path.c_str(), file, status);
    if (failed == 0) {
        failed = KSYS::ReadAll(file.Get(), bytes);
    }
    if (failed != 0) {
        throw KSetupFailure(
            ExitCode::noKit,
            Text(
                "cannot read %s: %s.",
                path,
                std::generic_category().message(static_cast<int>(failed))
            )
        );
    }
}

std::string_view KScript::GetText(unsigned number) const noexcept {
    return number > 0 && number <= lines.size() ? lines[number - 1] : std::string_view();
}

std::string KScript::GetValue(
    const std::string& section, const std::string& key, const std::string& otherwise
) const {
    return profile.GetString(section, key, otherwise).c_str();
}

bool KScript::HasSection(std::string_view name) const noexcept {
    return sections.contains(Trimmed(name));
}

std::vector<KScriptLine> KScript::GetLines(const std::string& section) const {
    std::vector<KScriptLine> found;
    unsigned number = 0;
    profile.BeginKeyEnum(section, &number);
    while (profile.EnumKey(&number, false)) {
        found.push_back(
            {number, section, profile.GetKeyName().c_str(), profile.GetKeyValue().c_str()}
        );
    }
    return found;
}

/// Loads sections without calling itself, however deep they are in each other.
class KScript::Unfolding {
  public:
    Unfolding(
        const KScript& loadedScript,
        const std::shared_ptr<KScriptRules>& knownSections,
        const std::string& machine
    )
        : script(loadedScript),
          sections(*knownSections),
          ending("." + machine),
          mostRules(someRules + rulesForLine * loadedScript.lines.size()),
          mostBytes(someBytes + rulesForLine * loadedScript.bytes.size()) {
        result.sections = knownSections;
    }

    Unfolded Load(const std::string& section) {
        Open(section);
        while (!open.empty()) {
            Section& last = open.back();
            if (last.next < last.rules->size()) {
                Take((*last.rules)[last.next++]);
            } else if (!last.isOfArchitecture) {
                last.isOfArchitecture = true;
                last.rules = &sections.Of(last.name + ending);
                last.next = 0;
            } else {
                Close();
            }
        }
        return std::move(result);
    }

  private:
    /// One that is being loaded: its own lines, then those for the architecture.
    struct Section {
        std::string name;
        const std::vector<KScriptRule>* rules;
        std::size_t next = 0;
        bool isOfArchitecture = false;
    };

    void Open(const std::string& name) {
        depths.emplace(Trimmed(name), open.size());
        open.push_back({name, &sections.Of(name)});
    }

    /// The line that included a section stands behind its rules.
    void Close() {
        depths.erase(std::string(Trimmed(open.back().name)));
        open.pop_back();
        if (!open.empty()) {
            Append((*open.back().rules)[open.back().next - 1]);
        }
    }

    void Take(const KScriptRule& rule) {
        if (rule.line.type == KINS::Names::defaultPathKey) { // no rule
            return;
        }
        if (rule.type != KINS::KRuleType::Section) {
            Append(rule);
            return;
        }
        const std::string& name = rule.fields.front();
        const auto circle = depths.find(std::string(Trimmed(name)));
        if (circle != depths.end()) {
            if (result.cycles.size() < mostCycles) {
                result.cycles.push_back({rule.line, NamesFrom(circle->second, name)});
            }
            Append(rule);
        } else if (open.size() < deepest) {
            Open(name);
        } else {
            RefuseDepth(rule.line, name);
        }
    }

    void Append(const KScriptRule& rule) {
        bytes += rule.line.value.size();
        result.rules.emplace_back(rule);
        if (result.rules.size() > mostRules || bytes > mostBytes) {
            throw KSetupFailure(
                ExitCode::malformedScript,
                Text(
                    "%sthe script becomes more than %s rules, or very long ones; does it include "
                    "its sections over and over?",
                    PlaceOf(rule.line),
                    mostRules
                )
            );
        }
    }

    std::vector<std::string> NamesFrom(std::size_t depth, const std::string& last) const {
        std::vector<std::string> names;
        for (; depth < open.size(); ++depth) {
            names.push_back(open[depth].name);
        }
        names.push_back(last);
        return names;
    }

    std::string PlaceOf(const KScriptLine& line) const {
        return script.path + ":" + std::to_string(line.number) + ": ";
    }

    [[noreturn]] void RefuseDepth(const KScriptLine& line, const std::string& last) const {
        throw KSetupFailure(
            ExitCode::malformedScript,
            Text(
                "%ssections include each other more than %s deep: %s. Include them one behind the "
                "other in the section that needs them.",
                PlaceOf(line),
                deepest,
                WayOf(NamesFrom(0, last))
            )
        );
    }

    const KScript& script;
    KScriptRules& sections;
    const std::string ending; // of the names of sections for the architecture
    const std::size_t mostRules;
    const std::size_t mostBytes;
    std::size_t bytes = 0; // of the lines that became rules
    Unfolded result;
    std::vector<Section> open;                           // the outermost first
    std::unordered_map<std::string, std::size_t> depths; // of those that are open
};

KScript::Unfolded KScript::Unfold(const std::string& section, const MacroExpander& expand) const {
    return Unfold(section, expand, SvcGetGlobalDataEx()->architecture);
}

KScript::Unfolded KScript::Unfold(
    const std::string& section, const MacroExpander& expand, const std::string& architecture
) const {
    return Unfolding(*this, std::make_shared<KScriptRules>(*this, expand), architecture)
        .Load(section);
}

KScript::Unfolded
KScript::Unfold(const std::string& section, const std::shared_ptr<KScriptRules>& known) const {
    return Unfolding(*this, known, SvcGetGlobalDataEx()->architecture).Load(section);
}

KScriptRule RuleOf(KScriptLine line, const MacroExpander& expand) {
    if (KSetupRuleLine::IsType(line.type)) {
        auto own = std::make_shared<const KSetupRuleLine>(
            KSetupRuleLine::Read(line.type, line.value, expand)
        );
        KScriptRule rule;
        rule.line = std::move(line);
        rule.fields = own->GetFields();
        rule.problem = own->GetProblemText();
        rule.own = std::move(own);
        return rule;
    }
    const KRuleLine read = KRuleLine::Read(line.type, line.value, expand);
    return {
        std::move(line),
        read.GetType(),
        read.GetOperation(),
        TextsOf(read),
        read.GetProblemText().c_str(),
    };
}

std::vector<std::string> FieldsOf(const KScriptLine& line, const MacroExpander& expand) {
    return RuleOf(line, expand).fields;
}

unsigned ColumnOfField(std::string_view lineText, std::size_t field) noexcept {
    const std::size_t equals = lineText.find('=');
    std::size_t at = equals == std::string_view::npos ? 0 : equals + 1;
    at = std::min(lineText.find_first_not_of(" \t", at), lineText.size());
    const std::size_t value = at;
    for (; field > 0; --field) {
        const std::size_t comma = lineText.find(',', at);
        if (comma == std::string_view::npos) {
            return static_cast<unsigned>(value + 1);
        }
        at = comma + 1;
    }
    return static_cast<unsigned>(at + 1);
}

std::vector<std::string> WrittenFields(const std::string& value) {
    std::vector<std::string> fields;
    std::size_t at = 0;
    for (std::size_t comma = 0; comma != std::string::npos; at = comma + 1) {
        comma = value.find(',', at);
        fields.push_back(value.substr(at, comma == std::string::npos ? comma : comma - at));
    }
    return fields;
}

} // namespace KSETUP
