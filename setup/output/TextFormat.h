// SPDX-License-Identifier: MIT
#pragma once

#include <setup/text/KText.h>

#include <cstdint>
#include <string>

namespace KSETUP {

/// \file
/// What people read, put together in one way everywhere.

/// What becomes of the ends of lines in a text.
enum class KLineEnds : std::uint8_t {
    Replaced, ///< of one line: an end could only come from outside
    Kept,     ///< of several lines
};

/// A text that may hold what comes from outside, as a file's name, as it may be shown: control
/// characters and bytes that are no UTF-8 become "?".
std::string Printable(const std::string& text, KLineEnds ends = KLineEnds::Replaced);

inline std::string Printable(const char* text, KLineEnds ends = KLineEnds::Replaced) {
    return Printable(std::string(text), ends);
}
KText Printable(const KText& text, KLineEnds ends = KLineEnds::Replaced);

/// With one decimal, as the language writes it: "0.3".
KText DecimalText(double number);

/// As "512 bytes", "2.0 KiB", up to TiB.
KText BytesInWords(std::uint64_t bytes);

/// Permission bits as chmod(1) has them: "0755".
std::string ModeText(unsigned mode);

} // namespace KSETUP
