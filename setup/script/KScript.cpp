// SPDX-License-Identifier: MIT
#include <ins/Names.h>
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/script/KScript.h>
#include <setup/script/KSetupRuleLine.h>
#include <setup/script/ScriptText.h>
#include <sup++/KError.h>
#include <sup++/SvcData.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <utility>

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

/// A script of so many rules is one that includes its sections over and over.
constexpr std::size_t mostRules = 1'000'000;

/// Not a rule: it proposes the product path.

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

} // namespace

std::string ToWords(const KScriptCycle& cycle) {
    std::string words;
    for (const std::string& name : cycle.names) {
        words += (words.empty() ? "[" : " -> [") + name + "]";
    }
    return words;
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
    std::ifstream file(path, std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(file), {});
    lines = SplitLines(bytes);
    if (!lines.empty() && lines.front().starts_with("\xEF\xBB\xBF")) {
        lines.front().remove_prefix(3);
    }
    for (std::size_t index = 0; index < lines.size(); ++index) {
        const std::string_view line = Trimmed(lines[index]);
        if (line.size() >= 2 && line.front() == '[' && line.back() == ']') {
            headers.push_back(
                {static_cast<unsigned>(index + 1),
                 std::string(Trimmed(line.substr(1, line.size() - 2)))}
            );
        }
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
    return std::any_of(headers.begin(), headers.end(), [&](const Header& header) {
        return header.name == Trimmed(name);
    });
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

struct KScript::Unfolding {
    const std::string& architecture;
    const MacroExpander& expand;
    Unfolded result;
    std::vector<std::string> open; // sections that are being loaded, the outermost first
    std::vector<unsigned> includedBy;
    /// The rules of a section, read once, however often it is included.
    std::map<std::string, std::vector<KScriptRule>> rules = {};
};

KScript::Unfolded KScript::Unfold(const std::string& section, const MacroExpander& expand) const {
    return Unfold(section, expand, SvcGetGlobalDataEx()->architecture);
}

KScript::Unfolded KScript::Unfold(
    const std::string& section, const MacroExpander& expand, const std::string& architecture
) const {
    Unfolding state{architecture, expand, {}, {}, {}};
    Load(section, state);
    return std::move(state.result);
}

void KScript::Load(const std::string& section, Unfolding& state) const {
    state.open.push_back(section);
    LoadOne(section, state);
    LoadOne(section + "." + state.architecture, state);
    state.open.pop_back();
}

void KScript::LoadOne(const std::string& section, Unfolding& state) const {
    const auto [read, isNew] = state.rules.try_emplace(section);
    if (isNew) {
        for (const KScriptLine& line : GetLines(section)) {
            if (line.type != KINS::Names::defaultPathKey) {
                read->second.push_back(RuleOf(line, state.expand));
            }
        }
    }
    for (KScriptRule rule : read->second) {
        const unsigned number = rule.line.number;
        rule.includedBy = state.includedBy;
        if (rule.type == KINS::KRuleType::Section) {
            const std::string& name = rule.fields.front();
            const auto begin =
                std::find_if(state.open.begin(), state.open.end(), [&](const std::string& one) {
                    return Trimmed(one) == Trimmed(name);
                });
            if (begin != state.open.end()) {
                KScriptCycle cycle{rule.line, {begin, state.open.end()}};
                cycle.names.push_back(name);
                state.result.cycles.push_back(std::move(cycle));
            } else {
                state.includedBy.push_back(number);
                Load(name, state);
                state.includedBy.pop_back();
            }
        }
        state.result.rules.push_back(std::move(rule));
        if (state.result.rules.size() > mostRules) {
            throw KSetupFailure(
                ExitCode::malformedScript,
                path + ":" + std::to_string(number) +
                    ": the script becomes more than a million rules; does it include its sections "
                    "over and over?"
            );
        }
    }
}

KScriptRule RuleOf(const KScriptLine& line, const MacroExpander& expand) {
    if (KSetupRuleLine::IsType(line.type)) {
        auto own = std::make_shared<const KSetupRuleLine>(
            KSetupRuleLine::Read(line.type, line.value, expand)
        );
        KScriptRule rule;
        rule.line = line;
        rule.fields = own->GetFields();
        rule.problem = own->GetProblemText();
        rule.own = std::move(own);
        return rule;
    }
    const KRuleLine read = KRuleLine::Read(line.type, line.value, expand);
    return {
        line,
        read.GetType(),
        read.GetOperation(),
        TextsOf(read),
        {},
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
