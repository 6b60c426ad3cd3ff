// SPDX-License-Identifier: MIT
#pragma once

#include <setup/run/KRunContext.h>

namespace KSETUP {

/// \file
/// The runs of ins-setup, each from the lock to its end. The steps are types, of which each takes
/// the one before: KLockedProduct, KTrustedKit, KPlannedRun, KCheckedRun, KRun. So nothing is looked
/// at before it is locked, and nothing is changed before it is checked. What they learn goes into the
/// report, which the caller tells.
///
/// All throw KSetupFailure and KSetupStop when nothing was begun.
/// Thread   the main thread's

void Install(const KRunContext& context);
/// Does nothing for a product that is not installed: that is what was asked for.
void Remove(const KRunContext& context);
/// Undoes the last run, if it kept a backup (KRestore.cpp).
void Restore(const KRunContext& context);

} // namespace KSETUP
