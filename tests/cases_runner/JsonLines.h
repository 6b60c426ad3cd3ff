// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace KTEST {

/// Each line, which is to be one JSON value: a long one as several lines that a person can read.
/// One that is none comes as it is, behind "no JSON: ".
std::vector<std::string> ReadableJson(const std::vector<std::string>& lines);

} // namespace KTEST
