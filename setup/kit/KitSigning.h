// SPDX-License-Identifier: MIT
#pragma once

#include <setup/kit/KKitStatement.h>
#include <setup/kit/KMinisign.h>

#include <cstddef>
#include <string>

namespace KSETUP {

/// \file
/// What an author does with keys, by minisign(1). Where a key has a password, that asks for it on
/// the terminal.

/// The public half of the key that signed a kit, in the kit: the first install believes it.
inline constexpr const char* kitKeyName = "key.pub";
/// The public half of the key that will sign the next kits, if that is another one.
inline constexpr const char* nextKeyName = "next-key.pub";
/// What the signature of a file is called, behind its name.
inline constexpr const char* signatureEnding = ".minisig";

/// Makes NAME.key and NAME.pub.
///
/// Throws   KSetupFailure, also when one of them is there; nothing is made then
void MakeKeyPair(const std::string& name, bool hasPassword);

/// Seals a kit and signs the seal with a secret key, NAME.key, whose public half lies beside it as
/// NAME.pub and goes into the kit. The kit's product data has to be loaded.
///
/// Returns  the number of sealed files
/// Throws   KSetupFailure; the kit may be sealed then, and is not signed
std::size_t SealAndSign(const std::string& kitDirectory, const std::string& secretKey);

/// Signs a file with a secret key, as above: FILE.minisig, beside it.
///
/// Throws   KSetupFailure, and no signature is there
void SignFile(
    const std::string& file, const std::string& secretKey, const KKitStatement& statement
);

/// Whether the seal of a kit is signed, however.
bool IsSigned(const std::string& kitDirectory);
/// Takes the signature away from a kit, whose seal is another one now. Returns whether it had one.
///
/// Throws   KSetupFailure
bool RemoveSignature(const std::string& kitDirectory);

} // namespace KSETUP
