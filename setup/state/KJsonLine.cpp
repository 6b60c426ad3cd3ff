// SPDX-License-Identifier: MIT
#include <setup/state/KJsonLine.h>

#include <charconv>
#include <stdexcept>

#include <nlohmann/json.hpp>

namespace KSETUP {

namespace {

constexpr const char* hexEnding = "Hex";

std::string ToHex(const std::string& bytes) {
    static constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const char byte : bytes) {
        text += digits[static_cast<unsigned char>(byte) >> 4U];
        text += digits[static_cast<unsigned char>(byte) & 0xFU];
    }
    return text;
}

std::string FromHex(const std::string& text) {
    std::string bytes;
    for (std::size_t at = 0; at < text.size(); at += 2) {
        unsigned value = 0;
        const char* const end = text.data() + at + 2;
        if (at + 2 > text.size() || std::from_chars(text.data() + at, end, value, 16).ptr != end) {
            throw std::invalid_argument("no hexadecimal digits");
        }
        bytes += static_cast<char>(value);
    }
    return bytes;
}

/// The object's text; throws when a text in it is no UTF-8.
std::string Dump(const nlohmann::json& object) {
    return object.dump();
}

bool IsUtf8(const std::string& text) {
    try {
        Dump(nlohmann::json(text));
        return true;
    } catch (const nlohmann::json::type_error&) {
        return false;
    }
}

} // namespace

KJsonLine::KJsonLine(std::string_view line) {
    const nlohmann::json object = nlohmann::json::parse(line, nullptr, false);
    if (!object.is_object()) {
        throw std::invalid_argument("no JSON object");
    }
    for (const auto& [key, value] : object.items()) {
        if (value.is_number_unsigned()) {
            values[key] = value.get<std::uint64_t>();
        } else if (value.is_string() && key.ends_with(hexEnding)) {
            values[key.substr(0, key.size() - 3)] = FromHex(value.get<std::string>());
        } else if (value.is_string()) {
            values[key] = value.get<std::string>();
        } else {
            throw std::invalid_argument("neither a text nor a number: " + key);
        }
    }
}

void KJsonLine::Put(const std::string& key, std::string_view text) {
    values[key] = std::string(text);
}

void KJsonLine::Put(const std::string& key, std::uint64_t number) {
    values[key] = number;
}

std::string KJsonLine::ToText() const {
    nlohmann::json object = nlohmann::json::object();
    for (const auto& [key, value] : values) {
        if (const auto* number = std::get_if<std::uint64_t>(&value)) {
            object[key] = *number;
        } else if (const auto& text = std::get<std::string>(value); IsUtf8(text)) {
            object[key] = text;
        } else {
            object[key + hexEnding] = ToHex(text);
        }
    }
    return Dump(object) + "\n";
}

bool KJsonLine::Has(const std::string& key) const {
    return values.contains(key);
}

std::string KJsonLine::GetText(const std::string& key) const {
    const auto found = values.find(key);
    if (found == values.end() || !std::holds_alternative<std::string>(found->second)) {
        throw std::invalid_argument("no text \"" + key + "\"");
    }
    return std::get<std::string>(found->second);
}

std::uint64_t KJsonLine::GetNumber(const std::string& key) const {
    const auto found = values.find(key);
    if (found == values.end() || !std::holds_alternative<std::uint64_t>(found->second)) {
        throw std::invalid_argument("no number \"" + key + "\"");
    }
    return std::get<std::uint64_t>(found->second);
}

} // namespace KSETUP
