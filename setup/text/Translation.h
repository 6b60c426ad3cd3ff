// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

namespace KSETUP {

/// From now on, texts are looked up in the language that LANGUAGE, LC_ALL, LC_MESSAGES and LANG ask for,
/// in LANGUAGE/LC_MESSAGES/ins-setup.mo below a directory (absolute; whoever can write there chooses what
/// is said). Where the system has no locale, C.utf8 is taken from that directory, if it is there. The
/// locale of the process stays "C", so that the system's own words and numbers stay as
/// programs expect them.
///
/// Thread   while the process has one
void StartTranslation(const std::string& directory);

/// The catalogue's text, or the one that is given. It lives as long as the process, or as what is given.
///
/// Thread   any
const char* FindTranslation(const char* english) noexcept;
/// The same, by the language's rule for numbers.
const char* FindTranslation(const char* one, const char* many, std::uint64_t count) noexcept;

} // namespace KSETUP
