// SPDX-License-Identifier: MIT
#include <algorithm>
#include <new>
#include <system_error>
#include <utility>

#include <bundle/KBundleError.h>
#include <bundle/KFrames.h>
#include <sys/files/FileContent.h>

namespace KBUNDLE {

namespace {

constexpr std::size_t chunkBytes = std::size_t{1} << 20U;
/// A frame that asks for more memory is refused; the packer stays below.
constexpr int largestWindowLog = 27;

} // namespace

KFrames::KFrames(int itsFile, std::string itsPath, std::uint64_t begin, std::uint64_t byteCount)
    : file(itsFile),
      path(std::move(itsPath)),
      offset(begin),
      left(byteCount),
      packed(std::make_unique_for_overwrite<char[]>(chunkBytes)),
      stream(::ZSTD_createDCtx(), &::ZSTD_freeDCtx) {
    if (stream == nullptr) {
        throw std::bad_alloc();
    }
    ::ZSTD_DCtx_setParameter(stream.get(), ZSTD_d_windowLogMax, largestWindowLog);
    const bool isSmall = byteCount <= chunkBytes; // a thread would take longer
    for (KPiece& piece : pieces) {
        piece.bytes = std::make_unique_for_overwrite<char[]>(chunkBytes);
        if (isSmall) {
            return;
        }
    }
    try {
        worker = std::thread([this] { Work(); });
    } catch (const std::system_error&) { // more threads than somebody may have
    }
}

KFrames::~KFrames() {
    if (worker.joinable()) {
        stops = true;
        free.release();
        worker.join();
    }
}

std::string_view KFrames::Next(std::uint64_t most) {
    if (current.empty() && !Take()) {
        return {};
    }
    const std::string_view bytes =
        current.substr(0, static_cast<std::size_t>(std::min<std::uint64_t>(most, current.size())));
    current.remove_prefix(bytes.size());
    return bytes;
}

/// Goes on to the next piece; false behind the last one.
bool KFrames::Take() {
    if (isAtEnd) {
        return false;
    }
    const KPiece* piece = pieces.data();
    if (worker.joinable()) {
        if (taken != 0) { // the one before is done with
            free.release();
        }
        filled.acquire();
        piece = &pieces[taken++ % pieceCount];
    } else {
        Decode(pieces.front());
    }
    current = {piece->bytes.get(), piece->byteCount};
    isAtEnd = current.empty();
    if (isAtEnd && failure) {
        std::rethrow_exception(failure);
    }
    return !isAtEnd;
}

void KFrames::Work() noexcept {
    for (std::size_t number = 0;; ++number) {
        free.acquire();
        if (stops) {
            return;
        }
        KPiece& piece = pieces[number % pieceCount];
        Decode(piece);
        const bool isLast = piece.byteCount == 0; // which is not ours any more behind this
        filled.release();
        if (isLast) {
            return;
        }
    }
}

void KFrames::Decode(KPiece& piece) noexcept {
    piece.byteCount = 0;
    try {
        DecodeInto(piece);
    } catch (...) { // to be thrown where somebody takes it
        failure = std::current_exception();
    }
}

/// What is before a fault counts: whoever takes it knows by that which file is the first wrong one.
void KFrames::DecodeInto(KPiece& piece) {
    ZSTD_outBuffer out{piece.bytes.get(), isWrong ? 0 : chunkBytes, 0};
    while (out.pos < out.size) {
        if (in.pos == in.size && !Read() && isDrained) {
            break;
        }
        const std::size_t before = out.pos;
        isWrong = ::ZSTD_isError(::ZSTD_decompressStream(stream.get(), &out, &in)) != 0;
        if (isWrong) {
            break;
        }
        isDrained = in.pos == in.size && out.pos == before;
    }
    piece.byteCount = out.pos;
}

/// More of what is packed.
bool KFrames::Read() {
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(left, chunkBytes));
    if (wanted == 0) {
        return false;
    }
    std::size_t count = 0;
    const unsigned failed =
        KSYS::ReadAt(file, packed.get(), wanted, static_cast<off_t>(offset), count);
    if (failed != 0) {
        FailOnRead(path, failed);
    }
    offset += count;
    left = count == 0 ? 0 : left - count;
    in = {packed.get(), count, 0};
    isDrained = false;
    return count != 0;
}

} // namespace KBUNDLE
