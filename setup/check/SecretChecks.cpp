// SPDX-License-Identifier: MIT
#include <setup/check/Checks.h>
#include <setup/script/KSetupRuleLine.h>
#include <setup/script/ScriptText.h>
#include <setup/script/SecretNames.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

namespace KSETUP::Checks {

namespace {

constexpr std::size_t leastKeyBytes = 4; // "--key=2" is a column

constexpr std::string_view blanks = " \t";

/// What stands for having no secret, or for where it comes from.
constexpr std::array plainValues = std::to_array<std::string_view>({
    "none", "no",      "off",  "false",   "disabled", "null",   "nil",   "empty", "yes",  "on",
    "true", "enabled", "auto", "default", "ask",      "prompt", "value", "env",   "file", "keyring",
});

bool IsDigit(char byte) {
    return byte >= '0' && byte <= '9';
}

/// What a name says at its end: "TokenTimeout" is a time and "PasswordFile" a file.
bool IsSecretName(std::string_view lowered) {
    while (!lowered.empty() && IsDigit(lowered.back())) {
        lowered.remove_suffix(1); // of several
    }
    return std::any_of(SecretWords().begin(), SecretWords().end(), [&](std::string_view word) {
        return lowered.ends_with(word);
    });
}

/// A path, or what comes from somewhere else, is not the secret itself. The value is lowered.
bool IsSecretValue(std::string_view value) {
    return !value.empty() &&
           std::string_view("/$<-").find(value.front()) == std::string_view::npos &&
           std::find(plainValues.begin(), plainValues.end(), value) == plainValues.end();
}

/// A plain "key" is a secret only when it looks like a serial number: any setting may be called so.
bool IsSecretKey(std::string_view value) {
    return IsSecretValue(value) && value.size() >= leastKeyBytes &&
           std::any_of(value.begin(), value.end(), IsDigit);
}

bool IsSecretOption(const std::string& name, const std::string& value) {
    return name == secretKey ? IsSecretKey(value) : IsSecretName(name) && IsSecretValue(value);
}

/// Whether the shell's word in which a place of a text lies is an option.
bool IsInOption(std::string_view text, std::size_t at) {
    const std::size_t blank = text.find_last_of(blanks, at);
    return text[blank == std::string_view::npos ? 0 : blank + 1] == '-';
}

/// The value of the name that ends at `end`, as in "token=X" and "--token X"; empty when there is
/// none.
std::string_view GivenValue(std::string_view text, std::size_t begin, std::size_t end) {
    const std::size_t sign = text.find_first_not_of(blanks, end);
    if (sign == std::string_view::npos) {
        return {};
    }
    const bool isAssigned = text[sign] == '=' || text[sign] == ':';
    if (!isAssigned && (sign == end || !IsInOption(text, begin))) {
        return {};
    }
    const std::size_t value = text.find_first_not_of(" \t\"'", isAssigned ? sign + 1 : sign);
    return value == std::string_view::npos
               ? std::string_view()
               : text.substr(value, text.find_first_of(" \t\"';", value) - value);
}

bool HoldsSecret(const std::string& given) {
    const std::string text = Lowered(given);
    const auto isGiven = [&](std::string_view word, bool (*isSecret)(std::string_view)) {
        for (std::size_t at = text.find(word); at != std::string::npos;
             at = text.find(word, at + 1)) {
            const bool isWord =
                at == 0 || std::isalpha(static_cast<unsigned char>(text[at - 1])) == 0;
            if (isWord && isSecret(GivenValue(text, at, at + word.size()))) {
                return true;
            }
        }
        return false;
    };
    return isGiven(secretKey, IsSecretKey) ||
           std::any_of(SecretWords().begin(), SecretWords().end(), [&](std::string_view word) {
               return isGiven(word, IsSecretValue);
           });
}

} // namespace

Findings Secrets(const KCheckContext& context) {
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        const std::vector<std::string>& fields = rule.fields;
        const bool isSecretOption =
            rule.type == KINS::KRuleType::Profile && fields.size() == 5 &&
            IsSecretOption(
                Lowered(std::string(Trimmed(fields[3]))), Lowered(std::string(Trimmed(fields[4])))
            );
        const bool isArgument = rule.type == KINS::KRuleType::Service && fields.size() == 5;
        const bool isCommand = rule.Is(KINS::KRuleType::Process, KINS::KRuleOperation::Start) ||
                               SetupOperationOf(rule) == KSetupOperation::RunCommand;
        std::size_t field = 0;
        if (isSecretOption || (isArgument && HoldsSecret(fields[4]))) {
            field = 4;
        } else if (isCommand && HoldsSecret(fields[1])) {
            field = 1;
        } else {
            continue;
        }
        found.push_back(context.AtField(
            rule.line,
            field,
            Text("this looks like a secret, and the kit shows it to all who read it"),
            Text("let the administrator set it (install --values), or a program of the kit make it")
        ));
    }
    return found;
}

} // namespace KSETUP::Checks
