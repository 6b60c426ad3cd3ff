// SPDX-License-Identifier: MIT
#include <ins/Names.h>
#include <setup/script/KScript.h>
#include <setup/script/ScriptText.h>
#include <setup/script/SecretNames.h>

#include <algorithm>

namespace KSETUP {

namespace {

constexpr std::size_t valueField = 4; // of profile=put,PATH,SECTION,KEY,VALUE
constexpr std::string_view keys = "keys";

bool MayBeSecretName(const std::string& name) {
    const std::string lowered = Lowered(std::string(Trimmed(name)));
    const auto& words = SecretWords();
    return lowered.ends_with(secretKey) || lowered.ends_with(keys) ||
           std::any_of(words.begin(), words.end(), [&](std::string_view word) {
               return lowered.find(word) != std::string::npos;
           });
}

bool IsSecretLine(const std::string& type, const std::vector<std::string>& fields) {
    return type == "profile" && fields.size() > valueField &&
           Lowered(std::string(Trimmed(fields[0]))) == "put" &&
           MayBeSecret(fields[valueField - 2], fields[valueField - 1]);
}

std::string Joined(const std::vector<std::string>& fields) {
    std::string text;
    for (const std::string& field : fields) {
        text += (text.empty() ? "" : ",") + field;
    }
    return text;
}

} // namespace

const std::vector<std::string_view>& SecretWords() noexcept {
    static const std::vector<std::string_view> words{
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
        "private-key"};
    return words;
}

bool MayBeSecret(const std::string& section, const std::string& key) {
    return MayBeSecretName(section) || MayBeSecretName(key);
}

std::vector<std::string>
MaskedFields(const std::string& type, const std::vector<std::string>& fields) {
    if (!IsSecretLine(type, fields)) {
        return fields;
    }
    std::vector<std::string> masked(fields.begin(), fields.begin() + valueField);
    masked.emplace_back(maskedValue); // in place of all behind the key: a secret may have a comma
    return masked;
}

std::string MaskedLine(const std::string& type, const std::string& value) {
    std::vector<std::string> fields = WrittenFields(value);
    std::erase(fields, ""); // which the rule does not count
    return type + "=" + (IsSecretLine(type, fields) ? Joined(MaskedFields(type, fields)) : value);
}

std::string MaskedAddedLine(const std::string& line) {
    std::vector<std::string> names; // section and key; empty fields do not count, as in a rule
    std::size_t value = 0;
    while (names.size() < 2) {
        const std::size_t end = line.find(',', value);
        if (end == std::string::npos) {
            return line;
        }
        if (end != value) {
            names.push_back(line.substr(value, end - value));
        }
        value = end + 1;
    }
    return MayBeSecret(names[0], names[1]) ? line.substr(0, value) + maskedValue : line;
}

std::vector<std::string> MaskedArguments(const std::vector<std::string>& words) {
    const std::string option = std::string("--") + KINS::Names::addProfileLineOption;
    std::vector<std::string> masked;
    for (const std::string& word : words) {
        const bool isValue = !masked.empty() && masked.back() == option;
        const bool isBoth = word.starts_with(option + "=");
        masked.push_back(
            isValue  ? MaskedAddedLine(word)
            : isBoth ? option + "=" + MaskedAddedLine(word.substr(option.size() + 1))
                     : word
        );
    }
    return masked;
}

} // namespace KSETUP
