// SPDX-License-Identifier: MIT
#include <setup/kit/ProductData.h>
#include <setup/kit/ValuePattern.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <clocale>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include <regex.h>

namespace KSETUP {

namespace {

constexpr std::size_t mostPatternBytes = 256;
constexpr std::uint64_t mostWrittenOut = 1000;

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

/// How many letters, sets of letters and groups a pattern has once all that it repeats is written out, as the
/// library does it; what it takes grows with the square of that. Any text, also what is no pattern.
class KWrittenOut {
  public:
    std::uint64_t Count(std::string_view pattern) {
        for (rest = pattern; !rest.empty();) {
            Take();
        }
        while (open.size() > 1) {
            Close();
        }
        return open.front();
    }

  private:
    void Take() {
        const char first = rest.front();
        if (first == '{') {
            Repeat();
            return;
        }
        if (first == '(') {
            open.push_back(0);
        } else if (first == ')' && open.size() > 1) {
            Close();
        } else {
            Add(1);
        }
        rest.remove_prefix(
            first == '[' ? SizeOfSet() : std::min<std::size_t>(first == '\\' ? 2 : 1, rest.size())
        );
    }

    void Add(std::uint64_t letters) {
        last = letters;
        open.back() = std::min(open.back() + letters, enough);
    }

    void Close() {
        const std::uint64_t group = open.back() + 1;
        open.pop_back();
        Add(group);
    }

    /// "[]a]" and "[^]a]" have the bracket as a letter; "[[:alpha:]]" has one in it.
    std::size_t SizeOfSet() const {
        std::size_t at = rest.starts_with("[^") ? 2 : 1;
        at += at < rest.size() && rest[at] == ']' ? 1U : 0U;
        while (at < rest.size() && rest[at] != ']') {
            const bool isClass =
                rest[at] == '[' && at + 1 < rest.size() &&
                std::string_view(".:=").find(rest[at + 1]) != std::string_view::npos;
            const std::size_t end = isClass ? rest.find(std::string{rest[at + 1], ']'}, at + 2)
                                            : std::string_view::npos;
            at = end == std::string_view::npos ? at + 1 : end + 2;
        }
        return std::min(at + 1, rest.size());
    }

    void Repeat() {
        std::uint64_t most = 1;
        std::uint64_t number = 0;
        for (rest.remove_prefix(1); !rest.empty() && rest.front() != '}'; rest.remove_prefix(1)) {
            const bool isDigit = std::isdigit(static_cast<unsigned char>(rest.front())) != 0;
            number = isDigit ? std::min(number * 10 + unsigned(rest.front() - '0'), enough) : 0;
            most = std::max(most, number);
        }
        rest.remove_prefix(rest.empty() ? 0 : 1);
        open.back() -= std::min(open.back(), last);
        Add(std::min(last * most, enough));
    }

    static constexpr std::uint64_t enough = 1'000'000; // nothing gets larger
    std::string_view rest;
    std::vector<std::uint64_t> open{0}; // the letters of each group that is not closed
    std::uint64_t last = 0;             // of what would be repeated
};

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
    if (KWrittenOut().Count(pattern) > mostWrittenOut) {
        return Text(
            "it has more than %s letters once what it repeats is written out", mostWrittenOut
        );
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
