// SPDX-License-Identifier: MIT
// Texts of any bytes: characters as a slow decoder finds them, and what is shown, escaped or cut.
#include "Fuzz.h"

#include <setup/files/PathText.h>
#include <setup/output/TextFormat.h>
#include <setup/script/CommandWords.h>
#include <setup/script/EscapedText.h>
#include <setup/script/ScriptText.h>
#include <sup++/KString.h>
#include <sup++/Txt.h>

#include <algorithm>
#include <cstring>

namespace {

using KSUP::KString;
using KTEST::Require;

/// The size of the character at `at`: well-formed as the Unicode standard has it (table 3-7), or 1.
std::size_t PlainSize(const std::string& text, std::size_t at) {
    const auto byte = [&](std::size_t index) {
        return at + index < text.size() ? static_cast<unsigned char>(text[at + index]) : 0U;
    };
    const auto isIn = [&](std::size_t index, unsigned first, unsigned last) {
        return byte(index) >= first && byte(index) <= last;
    };
    const bool second = isIn(1, 0x80, 0xBF);
    const bool third = isIn(2, 0x80, 0xBF);
    const bool fourth = isIn(3, 0x80, 0xBF);
    const unsigned lead = byte(0);
    if (lead >= 0xC2 && lead <= 0xDF) {
        return second ? 2 : 1;
    }
    if (lead >= 0xE0 && lead <= 0xEF) {
        const bool good = lead == 0xE0   ? isIn(1, 0xA0, 0xBF)
                          : lead == 0xED ? isIn(1, 0x80, 0x9F)
                                         : second;
        return good && third ? 3 : 1;
    }
    if (lead >= 0xF0 && lead <= 0xF4) {
        const bool good = lead == 0xF0   ? isIn(1, 0x90, 0xBF)
                          : lead == 0xF4 ? isIn(1, 0x80, 0x8F)
                                         : second;
        return good && third && fourth ? 4 : 1;
    }
    return 1;
}

std::vector<std::string> CharactersOf(const std::string& text) {
    std::vector<std::string> all;
    for (std::size_t at = 0; at < text.size(); at += all.back().size()) {
        all.push_back(text.substr(at, PlainSize(text, at)));
    }
    return all;
}

std::string PlainLowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter + 32) : letter;
    });
    return text;
}

/// The byte at which `part` stands as whole characters, or -1.
int PlainFind(const std::string& text, const std::string& part) {
    const std::vector<std::string> characters = CharactersOf(text);
    std::size_t at = 0;
    for (std::size_t index = 0; index <= characters.size(); ++index) {
        std::size_t end = at;
        for (std::size_t last = index; end < at + part.size() && last < characters.size(); ++last) {
            end += characters[last].size();
        }
        if (end == at + part.size() && text.compare(at, part.size(), part) == 0) {
            return static_cast<int>(at);
        }
        at += index < characters.size() ? characters[index].size() : 0;
    }
    return -1;
}

int OffsetOf(const char* found, const std::string& text) {
    return found == nullptr ? -1 : static_cast<int>(found - text.c_str());
}

void RequireCharacters(const std::string& text) {
    const std::vector<std::string> characters = CharactersOf(text);
    const char* at = text.c_str();
    for (const std::string& character : characters) {
        Require(Txtchrsize(at) == character.size(), "a character is as long as the decoder says");
        at = Txtnext(at);
    }
    Require(at == text.c_str() + text.size() && Txtnext(at) == at, "a walk ends at the end");
    Require(Txtlen(text.c_str()) == characters.size(), "characters are counted");
    const KString string(text);
    Require(string.GetCount() == characters.size(), "characters are counted");
    const auto count = static_cast<unsigned>(characters.size());
    for (unsigned part = 0; part <= count + 1; part += 1 + count / 4) {
        std::string left;
        std::string right;
        for (unsigned index = 0; index < count; ++index) {
            left += index < part ? characters[index] : "";
            right += index + part >= count ? characters[index] : "";
        }
        Require(string.Left(part) == left.c_str(), "the left part has as many characters");
        Require(string.Right(part) == right.c_str(), "the right part has as many characters");
    }
}

void RequireSearch(const std::string& text, const std::string& part) {
    Require(
        OffsetOf(Txtstr(text.c_str(), part.c_str()), text) == PlainFind(text, part),
        "a part is found as whole characters"
    );
    Require(
        OffsetOf(Txtistr(text.c_str(), part.c_str()), text) ==
            PlainFind(PlainLowered(text), PlainLowered(part)),
        "and without regard to case"
    );
    Require(KSETUP::Lowered(text) == PlainLowered(text), "ASCII letters are lowered");
}

void RequireShown(const std::string& text) {
    const std::string shown = KSETUP::Printable(text);
    for (const std::string& character : CharactersOf(shown)) {
        const auto lead = static_cast<unsigned char>(character[0]);
        const bool isControl = lead < 0x20 || lead == 0x7F ||
                               (lead == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0);
        Require(!isControl && (lead < 0x80 || character.size() > 1), "what is shown is harmless");
    }
}

void RequireEscapes(const std::string& text) {
    const auto same = [](const KString& piece) { return piece; };
    const std::string escaped = KSETUP::Escaped(text);
    Require(escaped.find_first_of(",$*?\n\t") == std::string::npos, "an escape hides what means");
    Require(KSETUP::Trimmed(escaped) == escaped, "blanks at ends are hidden");
    if (text.find('\0') == std::string::npos) {
        Require(KSETUP::Unescaped(escaped, same) == text, "what was escaped comes out");
    }
    static_cast<void>(KSETUP::Unescaped(text, same));
}

void RequirePath(const std::string& text) {
    const std::string normal = KSETUP::NormalPath(text);
    Require(KSETUP::NormalPath(normal) == normal, "a normal path stays as it is");
    if (text.starts_with('/')) {
        Require(normal.starts_with('/'), "an absolute path stays one");
        Require((normal + "/").find("/../") == std::string::npos, "a normal path does not go up");
        Require(normal.find("//") == std::string::npos, "a normal path has no empty names");
    }
}

} // namespace

/// A text and a part of it, perhaps.
FUZZ_TARGET(Texts) {
    const std::vector<std::string> texts = KTEST::PiecesOf(input, std::size_t{2});
    const std::string text = KTEST::UpToNul(texts[0]);
    RequireCharacters(text);
    RequireSearch(text, KTEST::UpToNul(texts[1]));
    RequireShown(text);
    RequireEscapes(texts[0]);
    RequirePath(text);
    for (const KSETUP::KCommandWord& word : KSETUP::WordsOf(text)) {
        Require(word.text.size() <= text.size(), "a word is a part of its command");
    }
}
