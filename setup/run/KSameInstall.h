// SPDX-License-Identifier: MIT
#pragma once

#include <setup/run/KLockedProduct.h>
#include <setup/run/KPlannedRun.h>
#include <setup/state/KKitFingerprint.h>

#include <future>
#include <string>

namespace KSETUP {

/// Finds out whether an install would do again what was done: the same kit, and nothing changed on
/// the machine. The kit was looked at before the run, and is once more behind its rules.
///
/// Borrows the kit and its locked product.
/// Thread   the main thread's, but for LookAgain, which the run's may call before Remember
///
///     KSameInstall same(kit);
///     if (!same.IsDone()) { … the rules … same.LookAgain(); … same.Remember(run's plan, its manifest); }
class KSameInstall {
  public:
    explicit KSameInstall(const KTrustedKit& trusted);
    /// Looks at the kit once more, on a thread of its own: all that was to be copied is.
    void LookAgain();

    /// Whether there is nothing to do, which the report then tells. Not after a run that was
    /// interrupted, for another path, with lines to add, or with --reinstall.
    ///
    /// Throws   KSetupFailure, KSetupStop for a signal while the kit is read
    bool IsDone() const;

    /// Remembers the kit of a run that is done. What fails is a note: the next install does more
    /// than it need.
    void Remember(const KPlannedRun& planned, const KManifest& manifest);

  private:
    bool IsForTheSamePlace() const;
    void WriteFingerprint(const KPlannedRun& planned, const KManifest& manifest);

    KLockedProduct& product;
    KKitFingerprint kit;
    std::future<std::string> laterLook;
};

} // namespace KSETUP
