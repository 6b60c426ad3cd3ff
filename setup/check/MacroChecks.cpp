// SPDX-License-Identifier: MIT
#include <ins/Names.h>
#include <setup/check/Checks.h>
#include <setup/check/MacroText.h>
#include <setup/script/KSetupRuleLine.h>
#include <setup/script/ScriptText.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <set>
#include <utility>

namespace KSETUP::Checks {

namespace {

using KINS::KRuleType;

bool IsCommand(const KScriptRule& rule) {
    return rule.Is(KRuleType::Process, KINS::KRuleOperation::Start) ||
           SetupOperationOf(rule) == KSetupOperation::RunCommand;
}

/// Whether what stands between two dollar signs looks like a name that somebody gave a macro.
bool IsLikeName(const std::string& name, bool inCommand) {
    if (name.empty() || std::isalpha(static_cast<unsigned char>(name.front())) == 0) {
        return false;
    }
    // Between dollar signs of a command there may be anything: they are the shell's, too.
    const std::string others = inCommand ? "" : " .-";
    return std::all_of(name.begin(), name.end(), [&](char byte) {
        return IdentifierAt({&byte, 1}).size() == 1 || others.find(byte) != std::string::npos;
    });
}

KText AdviceForMacro(const std::string& name, bool inCommand) {
    const std::string meant = FindMeant(name, KMacroContext::GetNames());
    const KText shell = inCommand ? Text("; a variable of the shell is ${%s}", name) : "";
    return (meant.empty() ? Text("\"ins-setup macros\" lists those that there are")
                          : Text("write \"$%s$\"", meant)) +
           shell;
}

/// The second field, as it is written.
std::pair<std::size_t, std::string> CommandOf(const KScriptLine& line) {
    const std::vector<std::string> fields = WrittenFields(line.value);
    if (KSetupRuleLine::IsType(line.type)) { // to the end of the line
        return {1, line.value.substr(std::min(fields.front().size() + 1, line.value.size()))};
    }
    std::size_t nonEmpty = 0;
    for (std::size_t index = 0; index < fields.size(); ++index) {
        if (!fields[index].empty() && ++nonEmpty == 2) {
            return {index, fields[index]};
        }
    }
    return {0, ""};
}

/// For each byte of a command whether the shell sees it inside quotes.
std::vector<bool> QuotedBytes(const std::string& command) {
    std::vector<bool> quoted(command.size());
    char quote = '\0';
    for (std::size_t at = 0; at < command.size(); ++at) {
        const char byte = command[at];
        quoted[at] = quote != '\0';
        if (byte == '\\' && quote != '\'') {
            ++at; // what follows is no quote
            if (at < command.size()) {
                quoted[at] = quote != '\0';
            }
        } else if (quote == '\0' && (byte == '"' || byte == '\'')) {
            quote = byte;
        } else if (byte == quote) {
            quote = '\0';
        }
    }
    return quoted;
}

/// Text for people, in which blanks are at home.
bool IsFreeText(const KScriptRule& rule, std::size_t field) {
    return (rule.type == KRuleType::Service && field == 2) ||
           (rule.type == KRuleType::Profile && field == 4);
}

/// The macros that rules use where a blank, or a comma, does harm.
std::set<std::string> UsedMacros(const KCheckContext& context, bool forBlanks) {
    std::set<std::string> used;
    for (const KScriptRule& rule : context.GetLines()) {
        const std::vector<std::string> fields = WrittenFields(rule.line.value);
        for (std::size_t index = 0; index < fields.size(); ++index) {
            if (forBlanks && IsFreeText(rule, index)) {
                continue;
            }
            for (const KMacroMention& mention : FindMacros(fields[index], context.GetMacros())) {
                if (mention.isKnown) {
                    // All of the product path's directories have its blanks.
                    used.insert(
                        mention.name.starts_with("pathTarget") ? "pathTarget" : mention.name
                    );
                }
            }
        }
    }
    return used;
}

/// A line that gives a macro its value.
struct ValueLine {
    const KScript* file;
    const char* fileName;
    KScriptLine line;
    std::string macro;
};

std::vector<ValueLine> ValueLines(const KCheckContext& context) {
    static constexpr std::array keys = std::to_array<std::pair<const char*, const char*>>({
        {"name", "product"},
        {"serviceName", "serviceName"},
        {"iniFile", "iniFile"},
        {"version", "verInfo"},
    });
    std::vector<ValueLine> lines;
    for (const KScriptLine& line : context.GetProductData().GetLines("product")) {
        for (const auto& [key, macro] : keys) {
            if (line.type == key) {
                lines.push_back({&context.GetProductData(), "product.ini", line, macro});
            }
        }
    }
    for (const KScriptLine& line : context.GetScript().GetLines("install")) {
        if (line.type == KINS::Names::defaultPathKey && !context.IsProductPathGiven()) {
            lines.push_back({&context.GetScript(), "install.ini", line, "pathTarget"});
        }
    }
    return lines;
}

KFinding AboutValue(const ValueLine& one, const char* what) {
    KFinding finding;
    finding.file = one.fileName;
    finding.line = one.line.number;
    finding.text = one.line.value;
    finding.message = Text(
        "$%s$ has a %s in its value, and rules use it: %s",
        one.macro,
        what,
        (*what == 'c' ? Text("commas separate their fields")
                      : Text("commands and arguments are split there"))
    );
    finding.advice = Text("choose a value without a %s", what);
    return finding;
}

} // namespace

Findings UnknownMacros(const KCheckContext& context) {
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        const std::string& value = rule.line.value;
        const bool inCommand = IsCommand(rule);
        for (const KMacroMention& mention : FindMacros(value, context.GetMacros())) {
            const std::string begin(IdentifierAt(mention.name));
            const bool isOpen =
                !mention.isKnown && begin != mention.name && context.GetMacros().IsKnown(begin);
            const bool isLast = !mention.isClosed && context.GetMacros().IsKnown(mention.name);
            if (isOpen || isLast) {
                found.push_back(context.AtWritten(
                    rule.line,
                    0,
                    mention.offset,
                    "$" + begin,
                    Text("\"$%s\" is no macro without a dollar sign at its end", begin),
                    Text("write \"$%s$\"", begin)
                ));
            } else if (!mention.isKnown && mention.isClosed && IsLikeName(mention.name, inCommand)) {
                found.push_back(context.AtWritten(
                    rule.line,
                    0,
                    mention.offset,
                    "$" + mention.name + "$",
                    Text("unknown macro \"$%s$\", which stays as it stands", mention.name),
                    AdviceForMacro(mention.name, inCommand)
                ));
            }
        }
    }
    return found;
}

Findings MacroValues(const KCheckContext& context) {
    Findings found;
    for (const char* what : {"comma", "blank"}) {
        const std::set<std::string> used = UsedMacros(context, *what == 'b');
        for (const ValueLine& one : ValueLines(context)) {
            const std::size_t at = one.line.value.find_first_of(*what == 'b' ? " \t" : ",");
            if (at == std::string::npos || !used.contains(one.macro)) {
                continue;
            }
            KFinding finding = AboutValue(one, what);
            finding.column =
                ColumnOfField(one.file->GetText(one.line.number), 0) + static_cast<unsigned>(at);
            found.push_back(std::move(finding));
        }
    }
    return found;
}

Findings UnquotedMacros(const KCheckContext& context) {
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        if (!IsCommand(rule)) {
            continue;
        }
        const auto [field, command] = CommandOf(rule.line);
        const std::vector<bool> quoted = QuotedBytes(command);
        for (const KMacroMention& mention : FindMacros(command, context.GetMacros())) {
            if (mention.isKnown && !quoted[mention.offset]) {
                const std::string macro = "$" + mention.name + "$";
                found.push_back(context.AtWritten(
                    rule.line,
                    field,
                    mention.offset,
                    macro,
                    Text("the shell splits the value of %s at blanks", macro),
                    Text("put double quotes around the word that it stands in")
                ));
            }
        }
    }
    return found;
}

} // namespace KSETUP::Checks
