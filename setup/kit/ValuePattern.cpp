// SPDX-License-Identifier: MIT
#include <setup/kit/ProductData.h>
#include <setup/kit/ValuePattern.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <clocale>
#include <cstddef>
#include <cstdint>

#include <regex.h>

namespace KSETUP {

namespace {

constexpr std::size_t mostPatternBytes = 256;
constexpr std::uint64_t mostRepeated =
    10'000; // the library copies what is repeated, also in each other

/// A pattern as the library holds it, while the language is UTF-8's.
class KCompiledPattern {
  public:
    explicit KCompiledPattern(const std::string& pattern)
        : former(utf8() == nullptr ? nullptr : ::uselocale(utf8())),
          error(::regcomp(&compiled, pattern.c_str(), REG_EXTENDED)) {}
    ~KCompiledPattern() {
        if (error == 0) {
            ::regfree(&compiled);
        }
        if (former != nullptr) {
            ::uselocale(former);
        }
    }
    KCompiledPattern(const KCompiledPattern&) = delete;
    KCompiledPattern& operator=(const KCompiledPattern&) = delete;

    /// In the library's words; empty without one.
    std::string GetError() const {
        std::array<char, 200> words{};
        ::regerror(error, &compiled, words.data(), words.size());
        return error == 0 ? "" : words.data();
    }

    /// The longest of the leftmost matches is the one that is told, so one of all of the text is found.
    bool MatchesAll(const std::string& text) const {
        regmatch_t match{};
        return error == 0 && ::regexec(&compiled, text.c_str(), 1, &match, 0) == 0 &&
               match.rm_so == 0 && static_cast<std::size_t>(match.rm_eo) == text.size();
    }

  private:
    static locale_t utf8() {
        static const locale_t one = ::newlocale(LC_ALL_MASK, "C.UTF-8", nullptr);
        return one;
    }

    locale_t former;
    regex_t compiled{};
    int error;
};

/// How often a part may be copied, if all that is repeated stood in each other.
std::uint64_t CountRepeated(const std::string& pattern) {
    std::uint64_t all = 1;
    for (std::size_t at = 0; at < pattern.size() && all <= mostRepeated; ++at) {
        if (pattern[at] != '{') {
            continue;
        }
        std::uint64_t most = 1;
        std::uint64_t number = 0;
        for (++at; at < pattern.size() && pattern[at] != '}'; ++at) {
            const bool isDigit = std::isdigit(static_cast<unsigned char>(pattern[at])) != 0;
            number = !isDigit
                         ? 0
                         : std::min(number * 10 + unsigned(pattern[at] - '0'), mostRepeated + 1);
            most = std::max(most, number);
        }
        all *= most;
    }
    return all;
}

bool RefersBack(const std::string& pattern) {
    for (std::size_t at = 0; at + 1 < pattern.size(); ++at) {
        if (pattern[at] == '\\' && std::isdigit(static_cast<unsigned char>(pattern[++at])) != 0) {
            return true;
        }
    }
    return false;
}

} // namespace

KText WhyNoPattern(const std::string& pattern) {
    if (HasControlCharacter(pattern)) {
        return Text("it has a control character");
    }
    if (pattern.size() > mostPatternBytes) {
        return Text("it is longer than %s bytes", mostPatternBytes);
    }
    if (CountRepeated(pattern) > mostRepeated) {
        return Text("it repeats its parts more than %s times", mostRepeated);
    }
    if (RefersBack(pattern)) {
        return Text("it refers back to a part of itself");
    }
    return KCompiledPattern(pattern).GetError();
}

bool MatchesPattern(const std::string& text, const std::string& pattern) {
    return KCompiledPattern(pattern).MatchesAll(text);
}

} // namespace KSETUP
