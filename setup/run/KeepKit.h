// SPDX-License-Identifier: MIT
#pragma once

#include <setup/run/KPlannedRun.h>

namespace KSETUP {

/// Keeps what a removal of the product that was just installed needs of its kit; `sealed` as
/// KKeptKit has it.
///
/// Throws   KSetupFailure, what was kept before being there still
void KeepKit(const KPlannedRun& planned, const KDigests& sealed);

} // namespace KSETUP
