// SPDX-License-Identifier: MIT
#pragma once

#include <setup/output/KRunReport.h>
#include <setup/output/KSetupArguments.h>

namespace KSETUP {

/// `ins-setup verify`: who signed a kit or a bundle, and that it is what was signed. Runs nothing of
/// it. A user who is not root is told without the keys that only root can see.
///
/// Throws   KSetupFailure with ExitCode::malformedScript for what is not signed, or not as the
///          machine wants it
void Verify(const KSetupArguments& arguments, KRunReport& report);

} // namespace KSETUP
