// SPDX-License-Identifier: MIT
#pragma once

#include <setup/output/KSetupArguments.h>

namespace KSETUP {

/// `ins-setup check`: prints what is wrong with a kit's script. Returns the exit code.
///
/// Throws   KSetupFailure without a kit
int RunCheck(const KSetupArguments& arguments);

} // namespace KSETUP
