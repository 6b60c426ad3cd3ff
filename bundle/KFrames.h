// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <semaphore>
#include <string>
#include <string_view>
#include <thread>

#include <zstd.h>

namespace KBUNDLE {

/// The frames of zstd(1) in a part of a file, as what is in them. A thread of its own decodes ahead,
/// up to 4 MiB, while what came is digested and written; where none can be had it is done in between.
///
/// Thread   one at a time
/// Lifetime borrows the descriptor, which it reads at offsets
class KFrames {
  public:
    /// `path` is for errors.
    ///
    /// Throws   std::bad_alloc
    KFrames(int itsFile, std::string itsPath, std::uint64_t begin, std::uint64_t byteCount);
    ~KFrames();
    KFrames(const KFrames&) = delete;
    KFrames& operator=(const KFrames&) = delete;

    /// The next bytes, at most 1 MiB and `most`, good until the next call; none where the frames are wrong
    /// or at an end.
    ///
    /// Throws   KBundleError (CannotRead)
    std::string_view Next(std::uint64_t most);

  private:
    struct KPiece {
        std::unique_ptr<char[]> bytes;
        std::size_t byteCount = 0; ///< 0 is the end
    };

    void Work() noexcept;
    void Decode(KPiece& piece) noexcept;
    void DecodeInto(KPiece& piece);
    bool Read();
    bool Take();

    // Of whoever decodes.
    int file;
    std::string path;
    std::uint64_t offset;
    std::uint64_t left;
    bool isDrained = true; // nothing more comes without further input
    bool isWrong = false;
    std::unique_ptr<char[]> packed;
    ZSTD_inBuffer in{};
    std::unique_ptr<ZSTD_DCtx, std::size_t (*)(ZSTD_DCtx*)> stream;

    // Handed over in turn.
    static constexpr std::ptrdiff_t pieceCount = 4;
    std::array<KPiece, pieceCount> pieces;
    std::counting_semaphore<pieceCount + 1> free{pieceCount};
    std::counting_semaphore<pieceCount> filled{0};
    std::atomic<bool> stops = false;
    std::exception_ptr failure; // of the last piece

    // Of whoever takes.
    std::size_t taken = 0;
    std::string_view current;
    bool isAtEnd = false;
    std::thread worker;
};

} // namespace KBUNDLE
