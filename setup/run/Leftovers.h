// SPDX-License-Identifier: MIT
#pragma once

#include <setup/run/KLockedProduct.h>

namespace KSETUP {

/// What a removal left of a product that is not installed any more. With --purge it is deleted and
/// forgotten; else it is told. Does nothing when nothing is left.
///
/// Throws   KSetupFailure when it cannot be forgotten
void SettleLeftovers(KLockedProduct& product);

} // namespace KSETUP
