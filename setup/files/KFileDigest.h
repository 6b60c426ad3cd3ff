// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>

#include <sys/files/DirectoryEntry.h>

namespace KSETUP {

struct KFileDigest {
    unsigned errorNumber = 0; ///< 0 when the file was read to its end
    std::uint64_t size = 0;   ///< bytes that were read
    std::string sha256;       ///< in hexadecimal; empty when it was not read to its end
    unsigned mode = 0;        ///< permission bits of the file that was read, 0 of one that was not
};

/// By path.
using KDigests = std::unordered_map<std::string, KFileDigest>;
/// By paths that somebody else keeps, as a plan does.
using KKeptDigests = std::unordered_map<std::string_view, KFileDigest>;

/// Whether the disk is to have a file soon, which is flushed with others later.
enum class KWriting : std::uint8_t { Leave, Begin };

/// Reads a regular file and digests it. A link is not followed, and nothing but a file is waited
/// for. `shallStop` is asked before each 1 MiB; the error is ECANCELED when it says so.
///
/// Throws   KSetupFailure when libcrypto fails
KFileDigest DigestFile(
    const KSYS::Entry& entry,
    const std::function<bool()>& shallStop = {},
    KWriting writing = KWriting::Leave
);

/// Bytes in hexadecimal, as digests are written.
std::string HexText(std::span<const std::uint8_t> bytes);

/// SHA-256 of bytes, in hexadecimal.
///
/// Throws   KSetupFailure when libcrypto fails
std::string DigestBytes(std::string_view bytes);

/// The same of bytes that need not be in memory all at once.
///
/// Threads  one at a time
class KDigestSum {
  public:
    /// Throws   KSetupFailure when libcrypto fails; so do the others
    KDigestSum();
    ~KDigestSum();
    KDigestSum(const KDigestSum&) = delete;
    KDigestSum& operator=(const KDigestSum&) = delete;

    void Add(std::string_view bytes);
    /// In hexadecimal; once.
    std::string End();

  private:
    class Sha256;
    const std::unique_ptr<Sha256> sum;
};

} // namespace KSETUP
