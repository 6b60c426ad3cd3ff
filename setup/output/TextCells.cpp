// SPDX-License-Identifier: MIT
#include <setup/output/TextCells.h>
#include <sup++/Txt.h>

#include <algorithm>

#include <sys/processes/Terminal.h>

namespace KSETUP {

namespace {

/// Calls `take` with each letter's place, size and cells, from the first one on, until it says no.
template <class Take>
void ForEachLetter(const std::string& text, const Take& take) {
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t size =
            std::min(std::max<std::size_t>(Txtchrsize(text.c_str() + at), 1), text.size() - at);
        if (!take(at, size, KSYS::CellsOf(text.c_str() + at, size))) {
            return;
        }
        at += size;
    }
}

} // namespace

std::size_t TextCells(const std::string& text) {
    std::size_t cells = 0;
    ForEachLetter(text, [&](std::size_t, std::size_t, std::size_t its) {
        cells += its;
        return true;
    });
    return cells;
}

std::string FirstCells(const std::string& text, std::size_t cells) {
    std::size_t end = 0;
    std::size_t taken = 0;
    ForEachLetter(text, [&](std::size_t at, std::size_t size, std::size_t its) {
        taken += its;
        end = taken <= cells ? at + size : end;
        return taken <= cells;
    });
    return text.substr(0, end);
}

std::string LastCells(const std::string& text, std::size_t cells) {
    std::size_t before = TextCells(text);
    std::size_t begin = 0;
    ForEachLetter(text, [&](std::size_t at, std::size_t size, std::size_t its) {
        // What joins a letter that is left out goes with it.
        if (before <= cells && its > 0) {
            begin = at;
            return false;
        }
        before -= its;
        begin = at + size;
        return true;
    });
    return text.substr(begin);
}

} // namespace KSETUP
