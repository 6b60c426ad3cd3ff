// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

#include <sys/files/KDescriptor.h>

namespace KSYS {

/// Whether a descriptor is open on a terminal.
bool IsTerminal(int descriptor) noexcept;

/// The width of a terminal in columns; 0 when it does not say.
unsigned TerminalColumns(int descriptor) noexcept;

/// How many cells of a terminal a letter takes, by wcwidth(3); `letter` is UTF-8, whatever the locale
/// is. 1 for what is none.
std::size_t CellsOf(const char* letter, std::size_t bytes) noexcept;

/// Opens the terminal at which the program was started, to read and to write, whatever the standard
/// streams are led to. Returns the error number, ENXIO where there is none.
unsigned OpenControllingTerminal(KDescriptor& opened) noexcept;

/// Keeps a terminal from showing what is typed, until the end of its life; does nothing for what is none.
/// Whoever types ahead of the question is shown what it is.
class KHiddenInput {
  public:
    explicit KHiddenInput(int descriptor) noexcept;
    ~KHiddenInput();
    KHiddenInput(const KHiddenInput&) = delete;
    KHiddenInput& operator=(const KHiddenInput&) = delete;

  private:
    int terminal = -1; // borrowed
    unsigned formerModes = 0;
};

/// Whether the reader of a pipe went away, as `head` does once it has what it wants.
bool IsReaderGone(int descriptor) noexcept;

} // namespace KSYS
