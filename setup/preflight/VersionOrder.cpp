// SPDX-License-Identifier: MIT
#include <setup/preflight/VersionOrder.h>

#include <algorithm>

namespace KSETUP {

namespace {

bool IsDigit(char byte) noexcept {
    return byte >= '0' && byte <= '9';
}

/// Takes the digits at the beginning away, and gives them without leading zeros.
std::string_view TakeNumber(std::string_view& text) noexcept {
    const auto end = std::find_if_not(text.begin(), text.end(), IsDigit);
    std::string_view number = text.substr(0, static_cast<std::size_t>(end - text.begin()));
    text.remove_prefix(number.size());
    number.remove_prefix(std::min(number.find_first_not_of('0'), number.size()));
    return number;
}

/// The end of a version is newer than a "~" and older than anything else.
int Weight(std::string_view text) noexcept {
    return text.empty()          ? 1
           : text.front() == '~' ? 0
                                 : 2 + static_cast<unsigned char>(text.front());
}

} // namespace

std::strong_ordering CompareVersions(std::string_view left, std::string_view right) noexcept {
    while (!left.empty() || !right.empty()) {
        if (!left.empty() && !right.empty() && IsDigit(left.front()) && IsDigit(right.front())) {
            const std::string_view leftNumber = TakeNumber(left);
            const std::string_view rightNumber = TakeNumber(right);
            if (leftNumber.size() != rightNumber.size()) {
                return leftNumber.size() <=> rightNumber.size();
            }
            if (const int order = leftNumber.compare(rightNumber); order != 0) {
                return order <=> 0;
            }
            continue;
        }
        if (const int order = Weight(left) - Weight(right); order != 0) {
            return order <=> 0;
        }
        left.remove_prefix(1);
        right.remove_prefix(1);
    }
    return std::strong_ordering::equal;
}

} // namespace KSETUP
