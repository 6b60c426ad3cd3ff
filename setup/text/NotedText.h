// SPDX-License-Identifier: MIT
#pragma once

#include <setup/text/KText.h>

#include <string>

namespace KSETUP {

/// Keeps what a text is in the language of who reads it, for an error of the engine, which carries one
/// text: whoever tells the error finds the other by that.
///
/// Returns  the English text
/// Throws   std::bad_alloc
/// Thread   any
std::string NoteText(const KText& text);

/// The text that was noted by its English; for any other one itself, in both languages.
///
/// Throws   std::bad_alloc
/// Thread   any
KText FindNotedText(const std::string& english);

} // namespace KSETUP
