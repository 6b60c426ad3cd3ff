// SPDX-License-Identifier: MIT
#pragma once

#include <setup/output/KRunReport.h>
#include <setup/output/KSetupArguments.h>

namespace KSETUP {

/// `ins-setup status`: whether the product of the kit that is loaded is installed, which version, and
/// with --verify whether it is as it was installed. Takes no lock: a run that goes on is told.
///
/// Throws   KSetupFailure when there is nothing to compare with
void FillStatus(const KSetupArguments& arguments, KRunReport& report);

} // namespace KSETUP
