// SPDX-License-Identifier: MIT
#pragma once

#include <setup/KSetupFailure.h>
#include <setup/kit/KKitStatement.h>
#include <setup/kit/KMinisign.h>
#include <setup/state/KKnownKeys.h>
#include <setup/text/KText.h>

#include <optional>
#include <string>
#include <vector>

namespace KSETUP {

/// \file
/// Who signed a kit, and whether that is whom the machine wants. Nothing of the kit is run for it.

/// A file that is signed by FILE.minisig.
struct KSignedFile {
    std::string path;
    std::string blake2b;                  ///< of what is used of it, whoever writes to it meanwhile
    std::optional<std::string> signature; ///< the text of FILE.minisig; nothing without one
};
/// The text of FILE.minisig; nothing where it is missing.
///
/// Throws   KSetupFailure when it cannot be read
std::optional<std::string> ReadSignature(const std::string& file);

/// What came of looking at a kit's signature.
struct KKitSigner {
    enum class Kind {
        Unsigned,     ///< and no key is known that it would have to be signed with
        Unverifiable, ///< signed, but nobody knows the key, and the kit does not bring it
        FirstUse,     ///< signed with the key that it brings; no key was known
        Known,        ///< signed with a key that the machine knows
        Installed,    ///< the very kit that is installed, whose key was replaced by it
    };
    Kind kind = Kind::Unsigned;
    std::optional<KPublicKey> key;     ///< that signed it; nothing where it is not verified
    std::string keyId;                 ///< as the signature says; empty without one
    std::string knownFrom;             ///< the file that the key is known from
    std::string seal;                  ///< the SHA-256 of the kit's seal; empty without one
    std::optional<KPublicKey> nextKey; ///< which the kit brings

    bool IsVerified() const noexcept { return kind >= Kind::FirstUse; }
};

/// Looks whether a kit is signed as it has to be: its seal, the bundle that it came in, and that both
/// signatures were meant for this product and version. The kit's files are held against the seal
/// by VerifySeal.
///
/// Throws   KSetupFailure with ExitCode::malformedScript where a key is known and the kit is not
///          sealed, not signed, or signed with another; also without one where a signature is wrong
KKitSigner FindSigner(
    const std::string& kitDirectory,
    const KKitStatement& productData,
    const KKnownKeys& known,
    const std::optional<KSignedFile>& bundle = std::nullopt
);

/// What is wrong with a kit, of what FindSigner says to who wanted to install it; without a full stop.
KText WhyNotSigned(const KSetupFailure& failure);

/// The one of `keys` that made the signature of `file`, over what it is.
///
/// Throws   KSetupFailure as above: without a signature, for another's, and for one that is not right
const KKnownKey& RequireSigned(
    const KSignedFile& file, const std::vector<KKnownKey>& keys, const KText& keysInWords
);

} // namespace KSETUP
