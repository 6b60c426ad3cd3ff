// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace KTEST {

using Lines = std::vector<std::string>;

/// Whether `got` is the expected line, in which "..." stands for any text, none too.
bool MatchesLine(const std::string& expected, const std::string& got);

/// One line of two texts that are compared.
struct DifferenceLine {
    char mark;        ///< ' ' in both, '-' expected only, '+' got only
    std::string text; ///< for ' ' as it was expected
};

/// The lines of both in order, as many as possible of them in both.
std::vector<DifferenceLine> Difference(const Lines& expected, const Lines& got);

bool IsSame(const std::vector<DifferenceLine>& difference);

/// What differs under a heading, for a person; "" when nothing does.
std::string
DescribeDifference(const std::string& what, const std::vector<DifferenceLine>& difference);

} // namespace KTEST
