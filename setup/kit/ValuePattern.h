// SPDX-License-Identifier: MIT
#pragma once

#include <setup/text/KText.h>

#include <string>

/// \file
/// The patterns of a kit's values: POSIX extended regular expressions (regex(7)), which a value has to match
/// from its first letter to its last. Letters are those of UTF-8, whatever the caller's language is.
namespace KSETUP {

/// Why a text is no pattern; empty for one that is. Refused are also those that a look at a stranger's kit
/// could be held up by: very long ones, those that repeat much, references back.
KText WhyNoPattern(const std::string& pattern);

/// Whether all of a text matches. False for what is no pattern.
///
/// Units    a thousand bytes of text, for which the worst patterns take half a second: the time grows with the
///          square of them
bool MatchesPattern(const std::string& text, const std::string& pattern);

} // namespace KSETUP
