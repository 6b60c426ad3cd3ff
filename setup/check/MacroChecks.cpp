// SPDX-License-Identifier: MIT
#include <setup/check/Checks.h>
#include <setup/check/MacroText.h>
#include <sup++/KUtil.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <regex>
#include <set>
#include <utility>

namespace KSETUP::Checks {

namespace {

bool IsCommand(const KScriptRule& rule) {
    return rule.line.type == "process" && rule.fields.size() == 2 && rule.fields[0] == "start";
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

std::string AdviceForMacro(const std::string& name, bool inCommand) {
    const std::string meant = FindMeant(name, KMacroContext::GetNames());
    const std::string shell = inCommand ? "; a variable of the shell is ${" + name + "}" : "";
    return (meant.empty() ? "\"ins-setup macros\" lists those that there are"
                          : "write \"$" + meant + "$\"") +
           shell;
}

/// The second field, as it is written.
std::pair<std::size_t, std::string> CommandOf(const KScriptLine& line) {
    const std::vector<std::string> fields = WrittenFields(line.value);
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
    return (rule.line.type == "service" && field == 2) ||
           (rule.line.type == "profile" && field == 4);
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

KFinding
AboutValue(KFinding finding, const std::string& file, const std::string& macro, const char* what) {
    finding.file = file;
    finding.message =
        "$" + macro + "$ has a " + what + " in its value, and rules use it: " +
        (*what == 'c' ? "commas separate their fields" : "commands and arguments are split there");
    finding.advice = std::string("choose a value without a ") + what;
    return finding;
}

/// Of a name that stands for a secret, up to its sign and what follows.
const std::regex& SecretPattern() {
    static const std::regex pattern(
        R"((^|[^a-z])(password|passwd|passphrase|pwd|secret|token|api[_-]?key|private[_-]?key|access[_-]?key|credentials?|key)(\s*[=:]\s*|\s+(?=\S))(["']?)([^\s"']+))",
        std::regex::icase
    );
    return pattern;
}

bool IsSecretName(const std::string& name) {
    static const std::regex pattern(
        R"(.*(password|passwd|passphrase|pwd|secret|token|api[_-]?key|private[_-]?key|access[_-]?key|credential).*|key)",
        std::regex::icase
    );
    // What leads to a secret is none.
    static const std::regex elsewhere(R"(.*(file|path|dir|directory)$)", std::regex::icase);
    return std::regex_match(name, pattern) && !std::regex_match(name, elsewhere);
}

/// A path, or what comes from somewhere else, is not the secret itself.
bool IsSecretValue(const std::string& value) {
    return !value.empty() && value.front() != '/' && value.front() != '$' && value.front() != '<';
}

/// Whether a command or arguments hold a secret; "--token X" too, but not "my key is".
bool HoldsSecret(const std::string& text) {
    for (std::sregex_iterator at(text.begin(), text.end(), SecretPattern()), end; at != end; ++at) {
        const std::string sign = (*at)[3].str();
        const bool isOption =
            at->position(2) >= 2 &&
            text.compare(static_cast<std::size_t>(at->position(2)) - 2, 2, "--") == 0;
        const bool isAssigned = sign.find_first_of("=:") != std::string::npos;
        if ((isAssigned || isOption) && IsSecretValue((*at)[5].str())) {
            return true;
        }
    }
    return false;
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
                    "\"$" + begin + "\" is no macro without a dollar sign at its end",
                    "write \"$" + begin + "$\""
                ));
            } else if (!mention.isKnown && mention.isClosed && IsLikeName(mention.name, inCommand)) {
                found.push_back(context.AtWritten(
                    rule.line,
                    0,
                    mention.offset,
                    "$" + mention.name + "$",
                    "unknown macro \"$" + mention.name + "$\", which stays as it stands",
                    AdviceForMacro(mention.name, inCommand)
                ));
            }
        }
    }
    return found;
}

Findings MacroValues(const KCheckContext& context) {
    static constexpr std::array keys = std::to_array<std::pair<const char*, const char*>>({
        {"name", "product"},
        {"serviceName", "serviceName"},
        {"iniFile", "iniFile"},
        {"version", "verInfo"},
    });
    Findings found;
    for (const auto& [what, bytes] : {std::pair("comma", ","), std::pair("blank", " \t")}) {
        const std::set<std::string> used = UsedMacros(context, *bytes != ',');
        const auto look = [&](const KScript& file,
                              const char* fileName,
                              const KScriptLine& line,
                              const std::string& macro) {
            const std::size_t at = line.value.find_first_of(bytes);
            if (at != std::string::npos && used.contains(macro)) {
                KFinding finding = context.AtWritten(line, 0, at, line.value, "", "");
                finding.column =
                    ColumnOfField(file.GetText(line.number), 0) + static_cast<unsigned>(at);
                found.push_back(AboutValue(std::move(finding), fileName, macro, what));
            }
        };
        for (const KScriptLine& line : context.GetProductData().GetLines("product")) {
            for (const auto& [key, macro] : keys) {
                if (line.type == key) {
                    look(context.GetProductData(), "product.ini", line, macro);
                }
            }
        }
        for (const KScriptLine& line : context.GetScript().GetLines("install")) {
            if (line.type == "defaultPath.$os$" && !context.IsProductPathGiven()) {
                look(context.GetScript(), "install.ini", line, "pathTarget");
            }
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
                    "the shell splits the value of " + macro + " at blanks",
                    "put double quotes around the word that it stands in"
                ));
            }
        }
    }
    return found;
}

Findings Secrets(const KCheckContext& context) {
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        const std::vector<std::string>& fields = rule.fields;
        const bool isSecretOption = rule.line.type == "profile" && fields.size() == 5 &&
                                    IsSecretName(Trimmed(fields[3])) && IsSecretValue(fields[4]);
        const bool isArgument = rule.line.type == "service" && fields.size() == 5;
        std::size_t field = 0;
        if (isSecretOption || (isArgument && HoldsSecret(fields[4]))) {
            field = 4;
        } else if (IsCommand(rule) && HoldsSecret(fields[1])) {
            field = 1;
        } else {
            continue;
        }
        found.push_back(context.AtField(
            rule.line,
            field,
            "this looks like a secret, and the log shows it to all who read it",
            "let the administrator set it, or a program of the kit make it"
        ));
    }
    return found;
}

} // namespace KSETUP::Checks
