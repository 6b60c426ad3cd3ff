// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

namespace KSETUP {

/// Writes all bytes to an open descriptor, however many calls it takes.
///
/// Returns  0 or errno; some of the bytes may be written then
[[nodiscard]] int WriteAll(int file, std::string_view bytes) noexcept;

} // namespace KSETUP
