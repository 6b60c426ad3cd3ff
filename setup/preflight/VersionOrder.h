// SPDX-License-Identifier: MIT
#pragma once

#include <compare>
#include <string_view>

namespace KSETUP {

/// Which of two versions is the newer one: numbers in them are compared as numbers ("2.10" is newer
/// than "2.9"), what is between them byte by byte, and what is longer is newer ("2.1.1" than "2.1"),
/// save for an ending behind "~", which is older than none ("2.1~rc1" than "2.1").
std::strong_ordering CompareVersions(std::string_view left, std::string_view right) noexcept;

} // namespace KSETUP
