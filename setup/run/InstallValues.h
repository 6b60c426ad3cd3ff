// SPDX-License-Identifier: MIT
#pragma once

#include <setup/plan/ValueMacros.h>
#include <setup/run/KLockedProduct.h>

#include <memory>

namespace KSETUP {

/// The values of an install: those that are known, and those that whoever sits at the terminal is asked for. An
/// upgrade asks for what is new.
///
/// Throws   KSetupFailure with ExitCode::usage for values that nobody gives, with the names of all, and with
///          ExitCode::malformedScript for a script that would show a secret; KSetupStop for a signal or
///          the end of input
KValueTexts FindInstallValues(KLockedProduct& product, const std::shared_ptr<KDiskView>& view);

} // namespace KSETUP
