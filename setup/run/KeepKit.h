// SPDX-License-Identifier: MIT
#pragma once

#include <setup/run/KPlannedRun.h>

#include <string>

namespace KSETUP {

/// Keeps what a removal of the product that was just installed needs of its kit. The removal sees
/// `installedVersion` as the value of "targetVerInfo"; `sealed` as KKeptKit has it.
///
/// Throws   KSetupFailure, what was kept before being there still
void KeepKit(
    const KPlannedRun& planned, const std::string& installedVersion, const KDigests& sealed
);

} // namespace KSETUP
