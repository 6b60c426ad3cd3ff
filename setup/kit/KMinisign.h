// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace KSETUP {

/// \file
/// The files of minisign(1): public keys and signatures. They are read strictly: what minisign would
/// not have written is refused, also where it could be understood.

/// A public key. A file of it has two lines, a comment that nobody vouches for and the key.
class KPublicKey {
  public:
    /// Reads the text of a key's file. `path` is only for the failure.
    ///
    /// Throws   KSetupFailure with ExitCode::malformedScript
    static KPublicKey FromText(std::string_view text, const std::string& path);

    /// As minisign shows it: 16 hexadecimal digits. Anyone can make a key with the id of another, so
    /// it finds a key and proves nothing.
    std::string GetId() const;
    /// The text of a file with this key.
    std::string ToText() const;

    /// Ed25519 over `message`.
    bool Verifies(std::string_view message, std::string_view signature) const;

    bool operator==(const KPublicKey&) const = default;

  private:
    std::string id;  // 8 bytes
    std::string key; // 32 bytes
};

/// A signature of a file, with a comment that is signed too. Files are signed by their BLAKE2b-512
/// ("ED"), as minisign has done since version 0.10; the older way ("Ed"), which needs all of a file
/// in memory, is refused.
class KSignature {
  public:
    /// Reads the text of a signature's file. `path` is only for the failure.
    ///
    /// Throws   KSetupFailure with ExitCode::malformedScript
    static KSignature FromText(std::string_view text, const std::string& path);

    /// The id of the key that is said to have made it.
    const std::string& GetKeyId() const noexcept { return keyId; }
    /// Proven only where Fits says so.
    const std::string& GetTrustedComment() const noexcept { return trustedComment; }

    /// Whether the key made it, of a file with this BLAKE2b-512 and of the trusted comment.
    bool Fits(const KPublicKey& key, std::string_view blake2b) const;

  private:
    std::string keyId; // as KPublicKey::GetId
    std::string signature;
    std::string trustedComment;
    std::string commentSignature;
};

} // namespace KSETUP
