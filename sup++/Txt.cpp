// SPDX-License-Identifier: MIT
#include <sup++/SvcMemory.h>
#include <sup++/Txt.h>

#include <utf8/checked.h>

#include <cstring>

namespace {

const char* OrEmpty(const char* text) noexcept {
    return text != nullptr ? text : "";
}

bool IsAscii(char byte) noexcept {
    return static_cast<unsigned char>(byte) < 0x80;
}

/// How long a sequence with this first byte would be; 1 for a byte that begins none.
std::size_t PromisedSize(char lead) noexcept {
    const auto byte = static_cast<unsigned char>(lead);
    if (byte < 0xC2) {
        return 1;
    }
    return byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : byte < 0xF5 ? 4 : 1;
}

bool SameByte(char left, char right, bool caseSensitive) noexcept {
    return left == right || (!caseSensitive && Txttolower(left) == Txttolower(right));
}

bool StartsWith(const char* text, const char* part, bool caseSensitive) noexcept {
    while (*part != '\0') {
        if (!SameByte(*text, *part, caseSensitive)) {
            return false; // also at the end of text: NUL equals no byte of part
        }
        ++text;
        ++part;
    }
    return true;
}

/// Whether a character ends exactly `bytes` behind `start`, which begins one.
bool EndsOnCharacter(const char* start, std::size_t bytes) noexcept {
    const char* end = start + bytes;
    while (start < end) {
        start = Txtnext(start);
    }
    return start == end;
}

const char* Search(const char* text, const char* part, bool caseSensitive) noexcept {
    const std::size_t partBytes = std::strlen(part);
    for (const char* at = text;; at = Txtnext(at)) {
        if (StartsWith(at, part, caseSensitive) && EndsOnCharacter(at, partBytes)) {
            return at;
        }
        if (*at == '\0') {
            return nullptr;
        }
    }
}

bool IsPlainAscii(const char* text) noexcept {
    while (*text != '\0' && IsAscii(*text)) {
        ++text;
    }
    return *text == '\0';
}

} // namespace

std::size_t Txtchrsize(const char* text) noexcept {
    if (text == nullptr || *text == '\0') {
        return 0;
    }
    const std::size_t promised = PromisedSize(*text);
    if (promised == 1 || strnlen(text, promised) < promised) {
        return 1;
    }
    return utf8::is_valid(text, text + promised) ? promised : 1;
}

const char* Txtnext(const char* text) noexcept {
    return text == nullptr ? "" : text + Txtchrsize(text);
}

std::size_t Txtlen(const char* text) noexcept {
    std::size_t characters = 0;
    for (text = OrEmpty(text); *text != '\0'; ++characters) {
        text += IsAscii(*text) ? 1 : Txtchrsize(text);
    }
    return characters;
}

std::size_t Txtsize(const char* text) noexcept {
    return std::strlen(OrEmpty(text));
}

std::size_t Txtbytesz(const char* text) noexcept {
    return Txtsize(text) + 1;
}

int Txtcmp(const char* left, const char* right) noexcept {
    return std::strcmp(OrEmpty(left), OrEmpty(right));
}

int Txtincmp(const char* left, const char* right, std::size_t count) noexcept {
    left = OrEmpty(left);
    right = OrEmpty(right);
    for (; count > 0 && (*left != '\0' || *right != '\0'); --count) {
        const std::size_t size = Txtchrsize(left);
        const std::size_t otherSize = Txtchrsize(right);
        for (std::size_t i = 0; i < size || i < otherSize; ++i) {
            const auto a = static_cast<unsigned char>(i < size ? Txttolower(left[i]) : '\0');
            const auto b = static_cast<unsigned char>(i < otherSize ? Txttolower(right[i]) : '\0');
            if (a != b) {
                return a < b ? -1 : 1;
            }
        }
        left += size;
        right += otherSize;
    }
    return 0;
}

const char* Txtstr(const char* text, const char* part) noexcept {
    text = OrEmpty(text);
    part = OrEmpty(part);
    // An ASCII byte is never part of a longer character, so bytes may be searched as they are.
    return IsPlainAscii(part) ? std::strstr(text, part) : Search(text, part, true);
}

const char* Txtistr(const char* text, const char* part) noexcept {
    return Search(OrEmpty(text), OrEmpty(part), false);
}

char Txttolower(char letter) noexcept {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

char* Txtlwr(char* text) noexcept {
    if (text != nullptr) {
        for (char* at = text; *at != '\0'; ++at) {
            *at = Txttolower(*at);
        }
    }
    return text;
}

char* Rel_Txtdup(const char* text) noexcept {
    void* copy = nullptr;
    if (Rel_SvcExpandMemory(&copy, Txtbytesz(text), "Sup++: text") != 0) {
        return nullptr;
    }
    return static_cast<char*>(std::memcpy(copy, OrEmpty(text), Txtbytesz(text)));
}
