// SPDX-License-Identifier: MIT
#pragma once

#include <setup/kit/KSetupKit.h>
#include <setup/output/KRunReport.h>
#include <setup/output/KSetupArguments.h>
#include <setup/output/KSetupVoice.h>

namespace KSETUP {

/// `ins-setup status`: whether the product of the kit that is loaded is installed, which version, and
/// with --verify whether it is as it was installed.
///
/// Throws   KSetupFailure when there is nothing to compare with
void FillStatus(const KSetupArguments& arguments, KRunReport& report);

/// `ins-setup restore`: puts back what the last run with --backup replaced. Says for which other run
/// it waits.
///
/// Throws   KSetupFailure when nothing was begun
void FillRestore(const KSetupArguments& arguments, KSetupVoice& voice, KRunReport& report);

} // namespace KSETUP
