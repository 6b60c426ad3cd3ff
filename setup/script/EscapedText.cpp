// SPDX-License-Identifier: MIT
#include <setup/script/EscapedText.h>

#include <algorithm>

namespace KSETUP {

namespace {

constexpr std::size_t escapeLength = 3;
constexpr unsigned char blank = 0x20;
constexpr unsigned char deleteCharacter = 0x7F;

/// -1 for what is no hexadecimal digit.
int ValueOf(char digit) noexcept {
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    if (digit >= 'A' && digit <= 'F') {
        return digit - 'A' + 10;
    }
    return digit >= 'a' && digit <= 'f' ? digit - 'a' + 10 : -1;
}

bool IsControl(char letter) noexcept {
    const auto byte = static_cast<unsigned char>(letter);
    return byte < blank || byte == deleteCharacter;
}

bool HasMeaning(char letter) noexcept {
    return IsControl(letter) || letter == ',' || letter == '$' || letter == '*' || letter == '?';
}

} // namespace

std::optional<std::string> Unescaped(std::string_view text, const MacroExpander& expand) {
    std::string result;
    for (;;) {
        const std::size_t percent = text.find('%');
        const std::string piece(text.substr(0, percent));
        result += piece.find('$') != std::string::npos ? expand(piece).c_str() : piece;
        if (percent == std::string_view::npos) {
            return result;
        }
        text.remove_prefix(percent);
        const int high = text.size() < escapeLength ? -1 : ValueOf(text[1]);
        const int low = text.size() < escapeLength ? -1 : ValueOf(text[2]);
        if (high < 0 || low < 0 || (high == 0 && low == 0)) {
            return std::nullopt;
        }
        result += static_cast<char>(high * 16 + low);
        text.remove_prefix(escapeLength);
    }
}

std::string Escaped(std::string_view text) {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const char letter = text[at];
        const bool isAtAnEnd = at == 0 || at + 1 == text.size();
        if (HasMeaning(letter) || letter == '%' || (letter == ' ' && isAtAnEnd)) {
            const auto byte = static_cast<unsigned char>(letter);
            result += {'%', digits[byte / 16], digits[byte % 16]};
        } else {
            result += letter;
        }
    }
    return result;
}

bool NeedsEscapes(std::string_view text) noexcept {
    return std::any_of(text.begin(), text.end(), HasMeaning) || text.starts_with(' ') ||
           text.ends_with(' ');
}

} // namespace KSETUP
