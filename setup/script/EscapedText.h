// SPDX-License-Identifier: MIT
#pragma once

#include <setup/script/KScript.h>

#include <optional>
#include <string>
#include <string_view>

namespace KSETUP {

/// \file
/// The fields of ins-setup's own rules. In them a percent sign and two hexadecimal digits stand for
/// the byte of that number, so that a name may have what means something in a script: "%2C" is a
/// comma, "%24" a dollar sign, "%2A" an asterisk, "%20" a blank at an end, "%25" the sign itself.

/// A text as a rule gets it: the macros of what stands between two escapes expanded, the escapes
/// replaced. What a macro expands to is not looked at again.
///
/// Returns  nothing for a percent sign with anything else behind it, and for "%00"
std::optional<std::string> Unescaped(std::string_view text, const MacroExpander& expand);

/// A text such that it comes out of Unescaped as it is, whatever stands around it.
std::string Escaped(std::string_view text);

/// Whether a text would mean something else in a field of an engine's rule, or could not stand there:
/// it has one of , $ * ? or a control character, or a blank at an end.
bool NeedsEscapes(std::string_view text) noexcept;

} // namespace KSETUP
