// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace KSETUP {

/// Why nothing may be installed in, or removed from, this directory; empty when it is fine. A
/// removal deletes what its script names below the product path: with the path of the system
/// itself, that would be what other programs own.
std::string WhyNotAProductPath(const std::string& path);

} // namespace KSETUP
