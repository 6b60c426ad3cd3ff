// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include <sys/files/DirectoryEntry.h>

namespace KSETUP {

/// The text of a file of lines, some of them at a time: it grows with the product, and need not be in
/// memory all at once. A head, what `toLine` makes of each of the entries, and an end.
///
/// Lifetime   borrows the entries
template <class Entries, class ToLine>
KSYS::PieceSource
LinePieces(std::string head, const Entries& entries, ToLine toLine, std::string end) {
    constexpr std::size_t bytesAtOnce = std::size_t{64} << 10U;
    return [first = std::move(head),
            last = std::move(end),
            piece = std::string(),
            at = entries.begin(),
            stop = entries.end(),
            toLine]() mutable {
        piece = std::exchange(first, {});
        for (; at != stop && piece.size() < bytesAtOnce; ++at) {
            piece += toLine(*at);
        }
        if (at == stop) {
            piece += std::exchange(last, {});
        }
        return std::string_view(piece);
    };
}

} // namespace KSETUP
