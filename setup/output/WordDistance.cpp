// SPDX-License-Identifier: MIT
#include <setup/output/WordDistance.h>

#include <algorithm>
#include <cstddef>

namespace KSETUP {

namespace {

/// How many letters have to be added, taken away, changed or swapped with the next one.
std::size_t DistanceOf(std::string_view left, std::string_view right) {
    std::vector<std::vector<std::size_t>> steps(
        left.size() + 1, std::vector<std::size_t>(right.size() + 1)
    );
    for (std::size_t row = 0; row <= left.size(); ++row) {
        for (std::size_t column = 0; column <= right.size(); ++column) {
            if (row == 0 || column == 0) {
                steps[row][column] = row + column;
                continue;
            }
            const bool isSame = left[row - 1] == right[column - 1];
            std::size_t& here = steps[row][column];
            here = std::min(
                {steps[row - 1][column] + 1,
                 steps[row][column - 1] + 1,
                 steps[row - 1][column - 1] + (isSame ? 0 : 1)}
            );
            if (row > 1 && column > 1 && left[row - 1] == right[column - 2] &&
                left[row - 2] == right[column - 1]) {
                here = std::min(here, steps[row - 2][column - 2] + 1);
            }
        }
    }
    return steps[left.size()][right.size()];
}

} // namespace

std::string NearestWord(std::string_view written, const std::vector<std::string>& words) {
    constexpr std::size_t lettersForOne = 3; // a third of a word may be wrong
    constexpr std::size_t longest = 64;      // what is longer is no misspelt word
    std::string nearest;
    std::size_t least = std::min<std::size_t>((written.size() + 1) / lettersForOne, 4) + 1;
    for (const std::string& word : written.size() <= longest ? words : std::vector<std::string>()) {
        if (const std::size_t distance = DistanceOf(written, word); distance < least) {
            least = distance;
            nearest = word;
        }
    }
    return nearest;
}

} // namespace KSETUP
