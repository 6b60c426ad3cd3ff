// SPDX-License-Identifier: MIT
#include <setup/output/KWordWrap.h>
#include <setup/output/TextCells.h>
#include <sup++/Txt.h>

#include <algorithm>

#include <sys/processes/Terminal.h>

namespace KSETUP {

namespace {

constexpr std::size_t furtherIndent = 2; // of what goes on from a line that is indented
constexpr std::size_t leastGap = 2;      // blanks between columns

} // namespace

std::size_t KWordWrap::Hang() const noexcept {
    if (gapEnd != 0 && gapEnd <= columns / 2) {
        return gapEnd;
    }
    const bool isDeep = indent == 0 || indent >= columns / 4; // and stands apart by itself
    const std::size_t hang = isDeep ? indent : indent + furtherIndent;
    return hang <= columns / 2 ? hang : 0;
}

void KWordWrap::Break(std::string& out) {
    out += '\n';
    column = Hang();
    out.append(column, ' ');
    hasWord = false;
}

/// The word that is held, behind its blanks or in the next line.
void KWordWrap::Place(std::string& out) {
    if (word.empty()) {
        return;
    }
    const bool isBehindGap = hasWord && blanks >= leastGap;
    if (isBehindGap) {
        gapEnd = column + blanks;
    }
    const bool isTooWide = hasWord && column + blanks + wordCells > columns;
    if (isTooWide && Hang() < column + blanks) { // else it would stand at the same place
        Break(out);
    } else {
        indent = !hasWord && column == 0 ? blanks : indent;
        out.append(blanks, ' ');
        column += blanks;
    }
    out += word;
    column += wordCells;
    hasWord = true;
    blanks = 0;
    word.clear();
    wordCells = 0;
}

std::string KWordWrap::Take(std::string_view text) {
    if (columns == 0) {
        return std::string(text);
    }
    const std::string whole(text);
    std::string out;
    for (std::size_t at = 0; at < whole.size();) {
        const std::size_t size =
            std::min(std::max<std::size_t>(Txtchrsize(whole.c_str() + at), 1), whole.size() - at);
        const char first = whole[at];
        if (first == '\n') {
            Place(out);
            out += '\n';
            *this = KWordWrap(columns);
        } else if (first == ' ' && !isAsItIs) {
            Place(out);
            ++blanks;
        } else {
            isAsItIs = isAsItIs || (first == '{' && column + blanks == 0 && word.empty());
            word.append(whole, at, size);
            wordCells += KSYS::CellsOf(whole.c_str() + at, size);
        }
        at += size;
    }
    return out;
}

std::string KWordWrap::Flush() {
    std::string out;
    Place(out);
    out.append(blanks, ' ');
    column += blanks;
    blanks = 0;
    return out;
}

std::string WrapWords(std::string_view text, std::size_t columns) {
    KWordWrap wrap(columns);
    const std::string begin = wrap.Take(text);
    return begin + wrap.Flush();
}

} // namespace KSETUP
