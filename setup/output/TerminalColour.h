// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

namespace KSETUP {

/// When colours are to be written.
enum class KColourChoice : std::uint8_t {
    Automatic, ///< on a terminal that is not dumb, unless NO_COLOR says otherwise
    Always,
    Never,
};

/// Whether what is written there can be drawn over: it is a terminal, and no dumb one.
bool CanDraw(int descriptor);
/// Whether what is written there is to have colours.
bool HasColour(KColourChoice choice, int descriptor);

/// Writes a text in bold and a colour past a stream that takes escape sequences away, and in its
/// order. `numbers` are those of the sequence, as "1;31".
void WriteColoured(
    std::ostream& stream, int descriptor, const char* numbers, const std::string& text
);

} // namespace KSETUP
