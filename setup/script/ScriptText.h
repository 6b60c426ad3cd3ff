// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace KSETUP {

/// \file
/// Pieces of a script, as the engine compares them.

/// Without blanks at both ends: those that a script's reader takes off, or the ones that are named.
///
/// Lifetime a part of `text`
std::string_view Trimmed(std::string_view text, std::string_view blanks = " \t") noexcept;

/// With ASCII letters lowered.
std::string Lowered(const std::string& text);

/// The one of `known` that was meant by `written`: the same but for case, or for two letters at the
/// most. Empty when there is none. Only the first hundred are looked at, so that a text with many
/// mistakes takes no longer than one with many lines.
std::string FindMeant(const std::string& written, const std::vector<std::string>& known);

} // namespace KSETUP
