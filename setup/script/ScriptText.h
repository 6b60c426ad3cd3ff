// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace KSETUP {

/// \file
/// Pieces of a script, as the engine compares them.

/// Without blanks at both ends: those that a script's reader takes off, or the ones that are named.
///
/// Lifetime a part of `text`
std::string_view Trimmed(std::string_view text, std::string_view blanks = " \t") noexcept;

/// With ASCII letters lowered.
std::string Lowered(const std::string& text);

} // namespace KSETUP
