// SPDX-License-Identifier: MIT
// Numbers, modes and versions as slow models read them.
#include "Fuzz.h"

#include <setup/preflight/VersionOrder.h>
#include <setup/script/KSetupRuleLine.h>
#include <sup++/KError.h>
#include <sup++/KUtil.h>

#include <cstring>
#include <limits>
#include <optional>

namespace {

using KSUP::KUtil;
using KTEST::Require;

int ValueOf(char digit) {
    return digit >= '0' && digit <= '9'   ? digit - '0'
           : digit >= 'a' && digit <= 'f' ? digit - 'a' + 10
           : digit >= 'A' && digit <= 'F' ? digit - 'A' + 10
                                          : 99;
}

/// As the documentation has it: leading blanks, a sign, as many digits as there are.
std::optional<unsigned> PlainNumber(std::string text, bool hex) {
    const bool isMarked = text.size() >= 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    text.erase(0, isMarked ? 2 : 0);
    const int base = isMarked || hex ? 16 : 10;
    std::size_t at = std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size());
    const bool isNegative = at < text.size() && text[at] == '-';
    at += at < text.size() && (text[at] == '-' || text[at] == '+') ? 1U : 0U;
    // A stream reads the mark of base 16 itself, too.
    if (base == 16 && at + 1 < text.size() && text[at] == '0' &&
        (text[at + 1] == 'x' || text[at + 1] == 'X')) {
        at += 2;
    }
    unsigned long long value = 0;
    bool hasDigit = false;
    for (; at < text.size() && ValueOf(text[at]) < base; ++at) {
        hasDigit = true;
        value = std::min(
            value * static_cast<unsigned>(base) + static_cast<unsigned>(ValueOf(text[at])),
            1ULL << 40U
        );
    }
    if (!hasDigit || value > std::numeric_limits<unsigned>::max()) {
        return std::nullopt;
    }
    return isNegative ? 0U - static_cast<unsigned>(value) : static_cast<unsigned>(value);
}

std::optional<unsigned> Read(const std::string& text, bool hex) {
    try {
        return KUtil::StringToNumber<unsigned>(text, hex);
    } catch (const KSUP::KError&) {
        return std::nullopt;
    }
}

void RequireRoundTrip(unsigned value) {
    Require(
        Read(KUtil::NumberToString(value, false).c_str(), false) == value, "decimal reads back"
    );
    Require(Read(KUtil::NumberToString(value, true).c_str(), false) == value, "\"0x\" reads back");
}

void RequireMode(const std::string& text) {
    std::optional<unsigned> plain = 0U;
    for (const char digit : text) {
        plain = digit < '0' || digit > '7' || text.size() > 4 ? std::nullopt
                : plain ? std::optional(*plain * 8 + static_cast<unsigned>(digit - '0'))
                        : plain;
    }
    const bool isLong = text.size() == 3 || text.size() == 4;
    Require(KSETUP::ParseMode(text) == (isLong ? plain : std::nullopt), "a mode is octal digits");
}

void RequireOrder(const std::string& a, const std::string& b, const std::string& c) {
    using KSETUP::CompareVersions;
    Require(CompareVersions(a, a) == 0, "a version is its own equal");
    Require((CompareVersions(a, b) > 0) == (CompareVersions(b, a) < 0), "both ways say the same");
    Require(
        !(CompareVersions(a, b) <= 0 && CompareVersions(b, c) <= 0) || CompareVersions(a, c) <= 0,
        "what is older than the older one is older"
    );
}

} // namespace

/// Three texts.
FUZZ_TARGET(Numbers) {
    const std::vector<std::string> texts = KTEST::PiecesOf(input, std::size_t{3});
    const std::string text = KTEST::UpToNul(texts[0]);
    for (const bool hex : {false, true}) {
        Require(
            Read(text, hex) == PlainNumber(text, hex), "a number is read as the model reads it"
        );
    }
    unsigned value = 0;
    double fraction = 0;
    std::memcpy(&value, texts[0].data(), std::min(texts[0].size(), sizeof(value)));
    std::memcpy(&fraction, texts[0].data(), std::min(texts[0].size(), sizeof(fraction)));
    RequireRoundTrip(value);
    Require(!KUtil::NumberToString(fraction, false).IsEmpty(), "any double has a text");
    RequireMode(texts[0]);
    RequireOrder(texts[0], texts[1], texts[2]);
}
