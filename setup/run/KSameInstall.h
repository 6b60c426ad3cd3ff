// SPDX-License-Identifier: MIT
#pragma once

#include <setup/run/KLockedProduct.h>
#include <setup/run/KPlannedRun.h>
#include <setup/state/KKitFingerprint.h>

namespace KSETUP {

/// Finds out whether an install would do again what was done: the same kit, and nothing changed on
/// the machine. The kit is looked at when this is made, before the run, and once more behind it.
///
/// Borrows the locked product.
/// Thread   the main thread's
///
///     const KSameInstall same(product);
///     if (!same.IsDone()) { … the run … same.Remember(run's plan, its manifest); }
class KSameInstall {
  public:
    /// Throws   KSetupFailure when the kit cannot be read
    explicit KSameInstall(KLockedProduct& locked);

    /// Whether there is nothing to do, which the report then tells. Not after a run that was
    /// interrupted, for another path, with lines to add, or with --reinstall.
    ///
    /// Throws   KSetupFailure, KSetupStop for a signal while the kit is read
    bool IsDone() const;

    /// Remembers the kit of a run that is done. What fails is a note: the next install does more
    /// than it need.
    void Remember(const KPlannedRun& planned, const KManifest& manifest) const;

  private:
    bool IsForTheSamePlace() const;
    void WriteFingerprint(const KPlannedRun& planned, const KManifest& manifest) const;

    KLockedProduct& product;
    KKitFingerprint kit;
};

} // namespace KSETUP
