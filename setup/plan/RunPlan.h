// SPDX-License-Identifier: MIT
#pragma once

#include <setup/output/KSetupArguments.h>

namespace KSETUP {

/// `ins-setup plan install` and `plan remove`: prints what a run would do. Needs no root and writes
/// nothing. Returns the exit code.
///
/// Throws   KSetupFailure without a kit, or for an invalid product path
int RunPlan(const KSetupArguments& arguments);

/// `ins-setup macros`: prints every macro with its value. Returns the exit code.
int RunMacros(const KSetupArguments& arguments);

} // namespace KSETUP
