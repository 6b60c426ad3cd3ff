// SPDX-License-Identifier: MIT
#pragma once

#include <setup/output/KSetupArguments.h>

namespace KSETUP {

/// `ins-setup kit new`, `kit add`, `kit seal`, `kit bundle` and `kit key new`. Returns the exit code.
///
/// Throws   KSetupFailure when something is in the way; nothing that was there is changed then
int RunKit(const KSetupArguments& arguments);

} // namespace KSETUP
