// SPDX-License-Identifier: MIT
#pragma once

namespace KSYS {

/// Whether a descriptor is open on a terminal.
bool IsTerminal(int descriptor) noexcept;

/// The width of a terminal in columns; 0 when it does not say.
unsigned TerminalColumns(int descriptor) noexcept;

/// Whether the reader of a pipe went away, as `head` does once it has what it wants.
bool IsReaderGone(int descriptor) noexcept;

} // namespace KSYS
