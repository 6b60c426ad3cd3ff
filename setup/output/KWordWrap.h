// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace KSETUP {

/// Breaks lines where words end, so that a terminal cuts none. A line goes on below its own begin; below what stands
/// behind a gap of two blanks or more, if there is room, as in a table of two columns. A word that is wider
/// than the terminal, as a path, stays whole, so that it can be copied. So does a line that begins with "{",
/// which is for programs.
///
///     KWordWrap wrap(80);
///     out << wrap.Take(text) << wrap.Flush();
class KWordWrap {
  public:
    /// For so many columns; 0 breaks nothing.
    explicit KWordWrap(std::size_t itsColumns) noexcept : columns(itsColumns) {}

    /// What can be written by now of all that came: the last word may go on. `text` is printable.
    std::string Take(std::string_view text);
    /// The rest of it.
    std::string Flush();

  private:
    void Break(std::string& out);
    void Place(std::string& out);
    std::size_t Hang() const noexcept;

    std::size_t columns;
    std::size_t column = 0; // cells of the line that are written
    std::size_t indent = 0; // blanks in front of its first word
    std::size_t gapEnd = 0; // where what is behind its last gap begins; 0 without one
    std::size_t blanks = 0; // that are held
    std::string word;       // that is held
    std::size_t wordCells = 0;
    bool hasWord = false;  // written in this line
    bool isAsItIs = false; // the line
};

/// A text that begins at the begin of a line, broken for so many columns.
std::string WrapWords(std::string_view text, std::size_t columns);

} // namespace KSETUP
