// SPDX-License-Identifier: MIT
#pragma once

#include <setup/kit/KSetupKit.h>
#include <setup/output/KSetupArguments.h>
#include <setup/output/KSetupSignals.h>
#include <setup/output/KSetupVoice.h>
#include <setup/plan/KDiskView.h>
#include <setup/plan/KPlan.h>
#include <setup/preflight/KDigestPrefetch.h>
#include <setup/state/KManifest.h>
#include <setup/state/KRunLock.h>
#include <setup/state/KRunState.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace KSETUP {

/// The safety net of a run: refuses what would fail before anything changes, keeps others away, and
/// remembers what is begun and what was installed. In the order of the calls: Lock, ReadAhead,
/// RefuseErrors, LookAround, RefuseStopped, BackUp, Begin, SetRule, then End (with KeepManifest
/// before it) or Forget. A run that does not come so far leaves its state, which the next one tells
/// of.
///
/// Borrows everything that it is given; holds the product's lock as long as it lives.
/// Thread   the main thread's
class KRunGuard {
  public:
    KRunGuard(
        const KSetupKit& kitToUse,
        const KSetupArguments& given,
        KSetupVoice& speaker,
        KSetupSignals& taken,
        std::string serviceName
    );

    /// From here on the kit is what it was made as, and nobody else works on the product. Tells of a
    /// run that was interrupted.
    ///
    /// Throws   KSetupFailure for a kit that others can change or whose seal is broken, for another
    ///          run, and for a signal while the seal is checked or that run is waited for
    void Lock();

    /// Begins to read what is about to be copied, for the manifest, beside everything that follows.
    void ReadAhead(const KPlan& plan);

    /// Throws   KSetupFailure with all errors of the script, unless --no-check; a section that
    ///          includes itself in any case
    void RefuseErrors(const std::string& productPath, const std::shared_ptr<KDiskView>& view) const;

    /// Throws   KSetupFailure when there is no room, a place cannot be written, or a service manager
    ///          is missing
    /// Returns  the programs that run and are about to go, which it tells too
    std::vector<std::string> LookAround(const KPlan& plan) const;

    /// The last look before the first change: a signal until now changes nothing.
    ///
    /// Throws   KSetupFailure for one that came
    void RefuseStopped() const;

    /// With --backup, keeps what the plan may change, and the product's configuration.
    ///
    /// Throws   KSetupFailure; a former backup is there still
    void BackUp(const KPlan& plan, const std::string& configuration) const;

    /// A removal that was interrupted: it may have deleted the product's link already. Tells of one
    /// that may have been, but cannot be gone on with, because nobody knows any more.
    std::optional<KInterruptedRun> FindBegunRemoval() const;
    /// The first change is about to come. What an interrupted run had begun to write goes now.
    void Begin(const KRunDescription& run, const KPlan& plan);
    void SetRule(unsigned number) noexcept { state->SetRule(number); }

    /// Returns  why what was installed could not be written down; empty when it was
    std::string KeepManifest(const KPlan& plan, const std::string& productPath);
    /// What an earlier run installed and a removal left; without a manifest the product path, if it
    /// is there. So too with one that cannot be read: what is removed stays removed, and `notes`
    /// get why no more is known.
    std::vector<std::string>
    FindLeft(const std::string& productPath, std::vector<std::string>& notes) const;
    /// The run is over, or was never begun.
    void End() { state->End(); }
    /// The product is gone, and what was remembered of it goes too, save a backup.
    void Forget();

  private:
    void MergeFormer(KManifest& manifest) const;
    void WithSignals(const std::function<void()>& work) const;

    const KSetupKit& kit;
    const KSetupArguments& arguments;
    KSetupVoice& voice;
    KSetupSignals& signals;
    std::string service; // its name
    std::optional<KRunLock> lock;
    std::optional<KRunState> state;
    bool isAfterInterrupted = false;
    KDigests sealed; // of the kit's files, once its seal was read
    std::optional<KDigestPrefetch> digests;
};

} // namespace KSETUP
