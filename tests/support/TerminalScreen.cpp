// SPDX-License-Identifier: MIT
#include "TerminalScreen.h"

#include <algorithm>
#include <clocale>
#include <cwchar>
#include <string_view>

namespace KTEST {

namespace {

/// How many bytes the letter that begins with this one has.
std::size_t BytesOf(char first) {
    const auto byte = static_cast<unsigned char>(first);
    return byte < 0xC0 ? 1 : byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
}

std::size_t CellsOf(const std::string& letter) {
    static const locale_t utf8 = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    const locale_t former = ::uselocale(utf8);
    wchar_t wide = 0;
    std::mbstate_t state{};
    int cells = 1;
    if (std::mbrtowc(&wide, letter.data(), letter.size(), &state) <= letter.size()) {
        cells = ::wcwidth(wide);
    }
    ::uselocale(former);
    return static_cast<std::size_t>(std::max(cells, 0));
}

} // namespace

std::vector<TerminalScreen::Cell>& TerminalScreen::Line() {
    if (lines.size() <= row) {
        lines.resize(row + 1);
    }
    return lines[row];
}

void TerminalScreen::Put(const std::string& letter) {
    const std::size_t cells = CellsOf(letter);
    if (cells == 0) {
        if (column > 0 && column <= Line().size()) {
            Line()[column - 1].letter += letter;
        }
        return;
    }
    if (column + cells > columns) { // it goes on in the next line
        ++row;
        column = 0;
    }
    std::vector<Cell>& line = Line();
    line.resize(std::max(line.size(), column + cells));
    line[column] = {letter, colour};
    for (std::size_t at = 1; at < cells; ++at) {
        line[column + at] = {"", colour};
    }
    column += cells;
}

void TerminalScreen::Obey(char command, const std::string& numbers) {
    switch (command) {
    case 'm':
        colour = numbers == "0" ? "" : numbers;
        break;
    case 'A':
        row -= std::min<std::size_t>(row, numbers.empty() ? 1 : std::stoul(numbers));
        break;
    case 'K':
        Line().resize(std::min(Line().size(), column));
        break;
    case 'J':
        Line().resize(std::min(Line().size(), column));
        lines.resize(row + 1);
        break;
    default:
        Put("<");
        Put("?");
        Put(">");
    }
}

void TerminalScreen::Write(const std::string& bytes) {
    const std::string text = held + bytes;
    held.clear();
    for (std::size_t at = 0; at < text.size();) {
        if (text.compare(at, 2, "\x1b[") == 0) {
            const std::size_t end = text.find_first_not_of("0123456789;", at + 2);
            if (end == std::string::npos) {
                held = text.substr(at);
                return;
            }
            Obey(text[end], text.substr(at + 2, end - at - 2));
            at = end + 1;
            continue;
        }
        const std::size_t size = BytesOf(text[at]);
        if (at + size > text.size() || (text[at] == '\x1b' && at + 1 == text.size())) {
            held = text.substr(at);
            return;
        }
        if (text[at] == '\n') {
            ++row;
        } else if (text[at] == '\r') {
            column = 0;
        } else if (text[at] == '\b') {
            column -= column > 0 ? 1 : 0;
        } else {
            Put(text.substr(at, size));
        }
        at += size;
    }
}

std::vector<std::string> TerminalScreen::GetLines() const {
    std::vector<std::string> shown;
    for (const std::vector<Cell>& line : lines) {
        std::string text;
        std::string now;
        for (const Cell& cell : line) {
            if (cell.colour != now) {
                text += "<" + (cell.colour.empty() ? "0" : cell.colour) + ">";
                now = cell.colour;
            }
            text += cell.letter;
        }
        text += now.empty() ? "" : "<0>";
        text.erase(text.find_last_not_of(' ') + 1);
        shown.push_back(text);
    }
    while (!shown.empty() && shown.back().empty()) {
        shown.pop_back();
    }
    return shown;
}

} // namespace KTEST
