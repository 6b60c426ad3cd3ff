// SPDX-License-Identifier: MIT
#pragma once

#include <setup/state/KInstalledRecord.h>
#include <setup/state/KKitFingerprint.h>
#include <setup/state/KOwnership.h>

#include <functional>
#include <string>

namespace KSETUP {

/// A fingerprint is that of one manifest: where another run wrote one, or a restore put one back,
/// it stands for nothing.
///
/// Throws   KSetupFailure for a manifest that cannot be read
std::string DigestManifest(const std::string& service);

/// Whether the record is of this kit, and all stands as its installation left it. Knows nothing of
/// options, of another path and of interrupted runs. The kit is read where a look at it does not
/// tell; `shallStop` is asked meanwhile. The ownership is the service's.
///
/// Throws   KSetupFailure, KSetupStop for a signal while the kit is read
bool IsInstalledFrom(
    const KKitFingerprint& kit,
    const KINS::KInstaller& installer,
    const KInstalledRecord& record,
    const std::string& service,
    const KOwnership& ownership,
    const std::string& version,
    const std::function<bool()>& shallStop = {}
);

} // namespace KSETUP
