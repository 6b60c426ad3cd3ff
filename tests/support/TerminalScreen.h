// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace KTEST {

/// What a terminal shows of what was written to it: enough of one for lines that are drawn over.
/// Colours are told as "<32>text<0>", with the numbers of the escape sequence.
class TerminalScreen {
  public:
    explicit TerminalScreen(std::size_t width) : columns(width) {}

    /// Takes bytes as a terminal would; a sequence that it does not know shows as "<?>".
    void Write(const std::string& bytes);
    /// The lines from the first one on, without blanks and empty lines at their ends.
    std::vector<std::string> GetLines() const;

  private:
    struct Cell {
        std::string letter = " "; ///< empty behind a letter that is two cells wide
        std::string colour{};
    };

    void Put(const std::string& letter);
    void Obey(char command, const std::string& numbers);
    std::vector<Cell>& Line();

    std::size_t columns;
    std::vector<std::vector<Cell>> lines;
    std::size_t row = 0;
    std::size_t column = 0;
    std::string colour;
    std::string held; ///< a letter or sequence that has not come whole
};

} // namespace KTEST
