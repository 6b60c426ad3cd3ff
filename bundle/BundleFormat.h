// SPDX-License-Identifier: MIT
#pragma once

/// \file
/// What a bundle is made of, as docs/bundle.md describes it: a program, the files' bytes, the table of
/// them, and an end of fixed size by which the rest is found. Numbers have their lowest byte first.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <bundle/KSha256.h>

namespace KBUNDLE {

/// Architectures of a bundle, each a bit: the first one is the lowest.
using KArchitectureBits = std::uint32_t;
inline constexpr KArchitectureBits everyArchitecture = ~KArchitectureBits{0};
inline constexpr std::size_t mostArchitectures = 32;
/// The bits of the first ones, at most as many as there can be.
constexpr KArchitectureBits BitsOf(std::size_t count) {
    return count < mostArchitectures ? (KArchitectureBits{1} << count) - 1 : everyArchitecture;
}

/// A file or a directory that is in a bundle.
struct KBundleEntry {
    std::string name; ///< from the kit's directory, with "/"
    bool isDirectory = false;
    std::uint32_t mode = 0;        ///< permission bits
    std::int64_t seconds = 0;      ///< when it was changed last, since 1970
    std::uint32_t nanoseconds = 0; ///< of that second
    std::uint64_t byteCount = 0;   ///< of a file
    KSha256Bytes sha256{};         ///< of a file
    /// By whom it is wanted: all, in a bundle of one architecture.
    KArchitectureBits architectures = everyArchitecture;
};

/// The program for one architecture, in a bundle of several: a part of what is in front of the files.
struct KBundleHead {
    std::string architecture; ///< as KArchitecture calls it
    std::uint64_t offset = 0; ///< from the begin of the file
    std::uint64_t byteCount = 0;
};

/// All that is in a bundle. A directory stands before what is in it; the bytes of the files follow
/// each other in the order of the table. Of several architectures each has a name once at the most.
struct KBundleTable {
    std::string
        place; ///< where the product goes unless told otherwise; empty where that is not known
    std::vector<KBundleEntry> entries;
    std::vector<KBundleHead> heads{}; ///< none in a bundle of one architecture
    /// Those whose entries are looked at; is not in the file.
    KArchitectureBits chosen = everyArchitecture;

    bool IsChosen(const KBundleEntry& entry) const noexcept {
        return (entry.architectures & chosen) != 0;
    }
};

/// Whether it is needed to answer at all: a file that lies in the kit itself, or what is in its directory
/// "locale", the texts. Such files come first.
bool IsInFront(const KBundleEntry& entry);

/// Where the parts of a bundle are.
struct KBundleEnd {
    std::uint64_t headBytes = 0;         ///< the program, from the begin of the file
    std::uint64_t dataBytes = 0;         ///< behind it: frames of Zstandard
    std::uint64_t tableBytes = 0;        ///< behind them: one more frame
    std::uint64_t tableContentBytes = 0; ///< what that holds
    KSha256Bytes headSha256{};
    KSha256Bytes tableSha256{}; ///< of the frame
};

inline constexpr std::size_t bundleEndBytes = 112;
/// No table is larger: a reader takes it into memory.
inline constexpr std::uint64_t largestTable = std::uint64_t{1} << 28U;

std::string ToBytes(const KBundleEnd& end);
/// Reads the last bytes of a file of this size. Nothing for what is no end of a bundle, or one whose
/// parts are not as long as the file.
std::optional<KBundleEnd> ReadBundleEnd(std::string_view bytes, std::uint64_t fileBytes);

std::string ToBytes(const KBundleTable& table);
/// Throws   KBundleError (Damaged) for bytes that are no table, for a name that is absolute, leads
///          upwards, is there twice or is not in a directory of the table: for each architecture
KBundleTable ReadBundleTable(std::string_view bytes);

} // namespace KBUNDLE
