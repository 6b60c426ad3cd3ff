// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

namespace KSETUP {

/// Compares two versions part by part: numbers by their value (2.10 is newer than 2.9), whatever
/// their length; a missing number counts as 0 (2 is 2.0). A word of a version that is still to come
/// (dev, alpha, beta, pre, rc) makes it older than the one without it, any other word newer: 2.2rc1
/// is older than 2.2, 2.2a is newer. "." "-" "_" "+" and a "v" in front mean nothing.
///
/// Returns  below 0 when `one` is older, above 0 when it is newer, else 0
int CompareVersions(std::string_view one, std::string_view other) noexcept;

} // namespace KSETUP
