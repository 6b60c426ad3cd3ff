// SPDX-License-Identifier: MIT
#include <setup/output/CheckHelp.h>
#include <setup/output/KWordWrap.h>
#include <setup/output/TextCells.h>
#include <setup/text/KText.h>
#include <setup/text/Translation.h>

#include <algorithm>
#include <array>
#include <cstddef>

namespace KSETUP {

namespace {

constexpr std::size_t cellCount = 4; // of a row
constexpr std::size_t textWidth = 78;

/// "| a | b |" as its cells; a line that is no such row as none.
std::vector<std::string> CellsOf(std::string_view line) {
    constexpr std::string_view border = " | ";
    std::vector<std::string> cells;
    if (!line.starts_with("| `") || !line.ends_with(" |")) {
        return cells;
    }
    line.remove_prefix(2);
    line.remove_suffix(1);
    while (!line.empty()) {
        // An empty cell has one blank only, which is that of its border too.
        const std::size_t end = line.starts_with("| ") ? 0 : line.find(border);
        const std::size_t taken = end == 0 ? 2 : border.size();
        cells.emplace_back(line.substr(0, std::min(end, line.find_last_not_of(" |") + 1)));
        line.remove_prefix(end == std::string_view::npos ? line.size() : end + taken);
    }
    return cells;
}

/// A heading, and the text of a cell beside it.
struct KPart {
    std::string heading;
    const std::string& text;
};

/// The texts in one column, whatever the language makes of the headings.
std::string InColumns(const std::vector<KPart>& parts, std::size_t cells) {
    constexpr std::size_t gap = 2;
    std::size_t margin = 0;
    for (const KPart& part : parts) {
        margin = std::max(margin, TextCells(part.heading) + gap);
    }
    std::string text;
    for (const KPart& part : parts) {
        const std::string blanks(margin - TextCells(part.heading), ' ');
        // One that is nothing but code has no translation, and is its own.
        const std::string shown = FindTranslation(part.text.c_str());
        text += part.text.empty() ? "" : WrapWords(part.heading + blanks + shown, cells) + "\n";
    }
    return text;
}

} // namespace

std::vector<KCheckHelp> ReadCheckHelp(std::string_view page) {
    std::vector<KCheckHelp> all;
    bool isError = false;
    while (!page.empty()) {
        const std::size_t end = std::min(page.find('\n'), page.size());
        const std::string_view line = page.substr(0, end);
        page.remove_prefix(std::min(end + 1, page.size()));
        if (line.starts_with("## ")) {
            isError = line == "## Errors";
        }
        std::vector<std::string> cells = CellsOf(line);
        if (cells.size() == cellCount) {
            for (std::string& cell : cells) {
                std::erase(cell, '`');
            }
            all.push_back({cells[0], isError, cells[1], cells[2], cells[3]});
        }
    }
    return all;
}

std::string ToText(const KCheckHelp& help, std::size_t columns) {
    const std::size_t cells = columns == 0 ? textWidth : std::min(columns, textWidth);
    const std::string text = help.name + (help.isError ? " (error)\n\n" : " (warning)\n\n") +
                             InColumns(
                                 {{Text("Found when").Translated(), help.found},
                                  {Text("Example").Translated(), help.example},
                                  {Text("Instead").Translated(), help.instead}},
                                 cells
                             );
    const KText allowed = Text("A comment in the line before silences it where it is meant so:");
    return help.isError ? text
                        : text + "\n" + WrapWords(allowed.Translated(), cells) +
                              "\n    ; check: allow " + help.name + "\n";
}

std::string ToText(const std::vector<KCheckHelp>& all) {
    constexpr std::size_t margin = 28;
    std::string text;
    for (const KCheckHelp& one : all) {
        const std::string kind = one.isError ? "error" : "warning";
        text += "    " + one.name +
                std::string(margin - std::min(margin, one.name.size() + 1), ' ') + " " + kind +
                "\n";
    }
    return text;
}

} // namespace KSETUP
