// SPDX-License-Identifier: MIT
// A pattern matches what a model says that tries everything, and, where the documentation lets both
// mean the same, what fnmatch(3) says.
#include "Fuzz.h"

#include <sup++/KFileEnum.h>
#include <sup++/Txt.h>

#include <algorithm>

#include <fnmatch.h>

namespace {

using KTEST::Require;

/// Whether what is left of a name matches what is left of a pattern, for all lefts of both.
bool PlainMatches(const std::string& name, const std::string& pattern) {
    // matches[i]: the pattern up to where we are matches the first i bytes of the name.
    std::vector<bool> matches(name.size() + 1);
    matches[0] = true;
    for (const char* at = pattern.c_str(); *at != '\0';) {
        std::vector<bool> now(name.size() + 1);
        const std::size_t size = *at == '*' || *at == '?' ? 1 : Txtchrsize(at);
        for (const char* from = name.c_str();; from += Txtchrsize(from)) {
            const auto index = static_cast<std::size_t>(from - name.c_str());
            const std::size_t next = index + Txtchrsize(from);
            if (matches[index] && *at == '*') {
                std::fill(now.begin() + static_cast<std::ptrdiff_t>(index), now.end(), true);
            } else if (matches[index] && *from != '\0' && (*at == '?' || (next - index == size && name.compare(index, size, at, size) == 0))) {
                now[next] = true;
            }
            if (*from == '\0') {
                break;
            }
        }
        matches = now;
        at += size;
    }
    return matches.back();
}

/// Where every byte is a character to both.
bool IsAscii(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](char byte) {
        return static_cast<unsigned char>(byte) < 0x80;
    });
}

} // namespace

/// A name and a pattern.
FUZZ_TARGET(Wildcard) {
    const std::vector<std::string> texts = KTEST::PiecesOf(input, std::size_t{2});
    const std::string name = KTEST::UpToNul(texts[0]).substr(0, 300);
    const std::string pattern = KTEST::UpToNul(texts[1]).substr(0, 100);
    const bool matches = KSUP::KFileEnum::Matches(name.c_str(), pattern.c_str());
    Require(matches == PlainMatches(name, pattern), "a name matches as the model says");
    // fnmatch has brackets besides, and takes its time for many stars.
    const bool isCommon = IsAscii(name) && IsAscii(pattern) &&
                          pattern.find_first_of("[\\") == std::string::npos &&
                          std::count(pattern.begin(), pattern.end(), '*') < 4;
    if (isCommon) {
        Require(
            matches == (::fnmatch(pattern.c_str(), name.c_str(), FNM_NOESCAPE) == 0),
            "a name matches as fnmatch says"
        );
    }
}
