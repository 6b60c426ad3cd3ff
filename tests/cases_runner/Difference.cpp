// SPDX-License-Identifier: MIT
#include "Difference.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace KTEST {

namespace {

constexpr std::string_view anyText = "...";

} // namespace

bool MatchesLine(const std::string& expected, const std::string& got) {
    std::string_view pattern = expected;
    std::string_view rest = got;
    std::size_t gap = pattern.find(anyText);
    if (gap == std::string_view::npos) {
        return pattern == rest;
    }
    if (rest.substr(0, gap) != pattern.substr(0, gap)) {
        return false;
    }
    rest.remove_prefix(gap);
    for (;;) {
        pattern.remove_prefix(gap + anyText.size());
        gap = pattern.find(anyText);
        if (gap == std::string_view::npos) {
            return rest.ends_with(pattern);
        }
        const std::size_t at = rest.find(pattern.substr(0, gap));
        if (at == std::string_view::npos) {
            return false;
        }
        rest.remove_prefix(at + gap);
    }
}

std::vector<DifferenceLine> Difference(const Lines& expected, const Lines& got) {
    // Longest common subsequence; cases are small.
    std::vector<std::vector<unsigned>> common(
        expected.size() + 1, std::vector<unsigned>(got.size() + 1, 0)
    );
    for (std::size_t left = expected.size(); left-- > 0;) {
        for (std::size_t right = got.size(); right-- > 0;) {
            common[left][right] = MatchesLine(expected[left], got[right])
                                      ? common[left + 1][right + 1] + 1
                                      : std::max(common[left + 1][right], common[left][right + 1]);
        }
    }
    std::vector<DifferenceLine> lines;
    std::size_t left = 0;
    std::size_t right = 0;
    while (left < expected.size() || right < got.size()) {
        const bool isLeft = left < expected.size();
        const bool isRight = right < got.size();
        if (isLeft && isRight && MatchesLine(expected[left], got[right])) {
            lines.push_back({' ', expected[left]});
            ++left;
            ++right;
        } else if (!isRight || (isLeft && common[left + 1][right] >= common[left][right + 1])) {
            lines.push_back({'-', expected[left++]});
        } else {
            lines.push_back({'+', got[right++]});
        }
    }
    return lines;
}

bool IsSame(const std::vector<DifferenceLine>& difference) {
    return std::all_of(difference.begin(), difference.end(), [](const DifferenceLine& line) {
        return line.mark == ' ';
    });
}

std::string
DescribeDifference(const std::string& what, const std::vector<DifferenceLine>& difference) {
    if (IsSame(difference)) {
        return "";
    }
    std::string text = "    " + what + " (- expected, + got)\n";
    for (const DifferenceLine& line : difference) {
        text += std::string("      ") + line.mark + ' ' + line.text + '\n';
    }
    return text;
}

} // namespace KTEST
