// SPDX-License-Identifier: MIT
#include <setup/script/ScriptText.h>
#include <sup++/KUtil.h>

#include <algorithm>
#include <numeric>

namespace KSETUP {

namespace {

constexpr std::size_t mostWrongLetters = 2;
/// Nobody misses by two letters a name that is longer, nor needs a hint at one of more names.
constexpr std::size_t longestMeant = 128;
constexpr std::size_t mostKnown = 100;

/// Whether two names can be as near as that.
bool IsNear(const std::string& left, const std::string& right) noexcept {
    const std::size_t less = std::min(left.size(), right.size());
    const std::size_t more = std::max(left.size(), right.size());
    return more - less <= mostWrongLetters && more <= longestMeant;
}

/// How many letters are to be changed, added or taken away.
std::size_t Distance(const std::string& left, const std::string& right) {
    std::vector<std::size_t> row(right.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < left.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i + 1;
        for (std::size_t j = 0; j < right.size(); ++j) {
            const std::size_t changed = diagonal + (left[i] == right[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

} // namespace

std::string_view Trimmed(std::string_view text, std::string_view blanks) noexcept {
    const std::size_t first = text.find_first_not_of(blanks);
    return first == std::string_view::npos
               ? std::string_view()
               : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

std::string Lowered(const std::string& text) {
    return KSUP::KUtil::Lowerify(text).c_str();
}

std::string FindMeant(const std::string& written, const std::vector<std::string>& known) {
    const std::string lowered = Lowered(written);
    std::string best;
    std::size_t bestDistance = mostWrongLetters + 1;
    for (std::size_t index = 0; index < std::min(known.size(), mostKnown); ++index) {
        const std::string& one = known[index];
        if (!IsNear(lowered, one)) {
            continue;
        }
        const std::size_t distance = Distance(lowered, Lowered(one));
        if (distance < bestDistance && distance < one.size()) {
            best = one;
            bestDistance = distance;
        }
    }
    return best;
}

} // namespace KSETUP
