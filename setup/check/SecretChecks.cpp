// SPDX-License-Identifier: MIT
#include <setup/check/Checks.h>
#include <setup/script/ScriptText.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

namespace KSETUP::Checks {

namespace {

constexpr std::array secretWords = std::to_array<std::string_view>({
    "password",
    "passwd",
    "passphrase",
    "pwd",
    "secret",
    "token",
    "credential",
    "credentials",
    "apikey",
    "api_key",
    "api-key",
    "accesskey",
    "access_key",
    "access-key",
    "privatekey",
    "private_key",
    "private-key",
});
constexpr std::string_view plainKey = "key"; // a part of too many other words

constexpr std::string_view blanks = " \t";

bool IsSecretName(const std::string& name) {
    const std::string lowered = Lowered(name);
    const auto isIn = [&](std::string_view word) {
        return lowered.find(word) != std::string::npos;
    };
    // What leads to a secret is none.
    static constexpr std::array elsewhere{"file", "path", "dir", "directory"};
    return (lowered == plainKey || std::any_of(secretWords.begin(), secretWords.end(), isIn)) &&
           std::none_of(elsewhere.begin(), elsewhere.end(), [&](const char* end) {
               return lowered.ends_with(end);
           });
}

/// A path, or what comes from somewhere else, is not the secret itself.
bool IsSecretValue(std::string_view value) {
    return !value.empty() && std::string_view("/$<-").find(value.front()) == std::string_view::npos;
}

/// Whether the shell's word in which a place of a text lies is an option.
bool IsInOption(std::string_view text, std::size_t at) {
    const std::size_t blank = text.find_last_of(blanks, at);
    return text[blank == std::string_view::npos ? 0 : blank + 1] == '-';
}

/// Whether a secret's name ends at `end`, with its value behind it: "token=X", "--token X".
bool IsGivenValue(std::string_view text, std::size_t begin, std::size_t end) {
    const std::size_t sign = text.find_first_not_of(blanks, end);
    if (sign == std::string_view::npos) {
        return false;
    }
    const bool isAssigned = text[sign] == '=' || text[sign] == ':';
    if (!isAssigned && (sign == end || !IsInOption(text, begin))) {
        return false;
    }
    const std::size_t value = text.find_first_not_of(" \t\"'", isAssigned ? sign + 1 : sign);
    return value != std::string_view::npos && IsSecretValue(text.substr(value));
}

bool HoldsSecret(const std::string& given) {
    const std::string text = Lowered(given);
    const auto isGiven = [&](std::string_view word) {
        for (std::size_t at = text.find(word); at != std::string::npos;
             at = text.find(word, at + 1)) {
            const bool isWord =
                at == 0 || std::isalpha(static_cast<unsigned char>(text[at - 1])) == 0;
            if (isWord && IsGivenValue(text, at, at + word.size())) {
                return true;
            }
        }
        return false;
    };
    return isGiven(plainKey) || std::any_of(secretWords.begin(), secretWords.end(), isGiven);
}

} // namespace

Findings Secrets(const KCheckContext& context) {
    Findings found;
    for (const KScriptRule& rule : context.GetLines()) {
        const std::vector<std::string>& fields = rule.fields;
        const bool isSecretOption = rule.line.type == "profile" && fields.size() == 5 &&
                                    IsSecretName(std::string(Trimmed(fields[3]))) &&
                                    IsSecretValue(fields[4]);
        const bool isArgument = rule.line.type == "service" && fields.size() == 5;
        const bool isCommand =
            rule.line.type == "process" && fields.size() == 2 && fields[0] == "start";
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
            "this looks like a secret, and the log shows it to all who read it",
            "let the administrator set it, or a program of the kit make it"
        ));
    }
    return found;
}

} // namespace KSETUP::Checks
