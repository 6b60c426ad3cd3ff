// SPDX-License-Identifier: MIT
#pragma once

#include <setup/files/KFileDigest.h>

#include <functional>
#include <string>

namespace KSETUP {

/// The seal's file in a kit, and the one of its signature.
inline constexpr const char* sealName = "SHA256SUMS";
inline constexpr const char* sealSignatureName = "SHA256SUMS.minisig";

/// Writes SHA256SUMS into a kit, in the format of sha256sum(1), so that `sha256sum -c SHA256SUMS`
/// there proves the same of the bytes: every file save itself and its signature, sorted by name. In
/// front of each stands a comment with its mode, or where the link leads to. A link that leads out
/// of the kit is refused.
///
/// Returns  the number of files
/// Throws   KSetupFailure, with the former seal still in place
std::size_t WriteSeal(const std::string& kitDirectory);

/// Whether a kit has a seal.
bool IsSealed(const std::string& kitDirectory);

/// The text of a kit's seal.
///
/// Throws   KSetupFailure, also for a seal that is a link out of the kit: it could be another one each
///          time
std::string ReadSealText(const std::string& kitDirectory);

enum class KSealExtent { Whole, WhatIsThere };

/// Holds a kit against its seal. A kit without one is fine; in one with a seal every file has to be
/// listed and to be what it was, for a wildcard reads also what nobody listed. A link that leads out
/// of the kit is refused. `shallStop` is asked before each file and each 1 MiB of one.
///
/// For a removal the payload may be gone: its files need not be there, and are what they were where
/// they are.
///
/// Returns  the digests of the files that were read, by path: `kitDirectory` as it stands, and the
///          name in it; of a link also by where it leads to
/// Throws   KSetupFailure that names what is missing, changed or not listed; also when the seal
///          cannot be read, or KSetupStop when `shallStop` said so
KDigests VerifySeal(
    const std::string& kitDirectory,
    KSealExtent extent = KSealExtent::Whole,
    const std::function<bool()>& shallStop = {}
);

} // namespace KSETUP
