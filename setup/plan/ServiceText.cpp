// SPDX-License-Identifier: MIT
#include <setup/plan/KPlannedServices.h>

#include <algorithm>
#include <climits>

namespace KSETUP {

namespace {

constexpr std::size_t mostUnitNameBytes = 255;
constexpr std::string_view suffix = ".service";

bool IsOneOf(char byte, std::string_view bytes) noexcept {
    return bytes.find(byte) != std::string_view::npos;
}

bool IsControl(char byte) noexcept {
    return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7F;
}

bool HasControl(std::string_view text) noexcept {
    return std::any_of(text.begin(), text.end(), IsControl);
}

/// Whether a quote that opens in the arguments never closes. A backslash stands before a quote or a
/// backslash, and outside of quotes before anything.
bool HasOpenQuote(std::string_view text) noexcept {
    char quote = '\0';
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char byte = text[at];
        const char next = at + 1 < text.size() ? text[at + 1] : '\0';
        if (byte == '\\' &&
            (quote == '\0' ? next != '\0' : quote == '"' && (next == '"' || next == '\\'))) {
            ++at;
        } else if (byte == quote) {
            quote = '\0';
        } else if (quote == '\0' && (byte == '"' || byte == '\'')) {
            quote = byte;
        }
    }
    return quote != '\0';
}

} // namespace

std::string WhyNotAServiceName(std::string_view name) {
    const auto isAllowed = [](char byte) {
        return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
               (byte >= '0' && byte <= '9') || IsOneOf(byte, ":-_.\\@");
    };
    if (name.empty()) {
        return "it is empty";
    }
    if (!std::all_of(name.begin(), name.end(), isAllowed)) {
        return "only ASCII letters, digits and :-_.\\@ can be in it";
    }
    if (IsOneOf(name.front(), "-.@")) {
        return "it begins with \"-\", \".\" or \"@\"";
    }
    if (name.ends_with('@')) {
        return "it is that of a template";
    }
    return name.size() + suffix.size() > mostUnitNameBytes ? "it is too long" : "";
}

std::string
WhyNotAUnit(std::string_view displayName, std::string_view program, std::string_view arguments) {
    if (HasControl(displayName) || displayName.ends_with('\\')) {
        return "the display name has a control character or ends in a backslash";
    }
    if (!program.starts_with('/') || program.ends_with('/') || program.size() >= PATH_MAX) {
        return "the program has to be the absolute path of a file: " + std::string(program);
    }
    if (HasControl(program) || program.find_first_of("\"'\\") != std::string_view::npos) {
        return "systemd runs no program with a quote, a backslash or a control character in its "
               "path: " +
               std::string(program);
    }
    return HasOpenQuote(arguments)
               ? "the arguments have a quote that is not closed: " + std::string(arguments)
               : "";
}

} // namespace KSETUP
