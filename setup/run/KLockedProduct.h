// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KInstaller.h>
#include <setup/run/KRunContext.h>
#include <setup/script/KMacroContext.h>
#include <setup/state/KInstalledRecord.h>
#include <setup/state/KOwnership.h>
#include <setup/state/KRunLock.h>
#include <setup/state/KRunState.h>

#include <optional>
#include <string>

namespace KSETUP {

/// The kit's product while nobody else works on it: the only source of its macros, record, state
/// and manifest for a run, so that none of them can be from before a wait for another run.
///
/// Borrows the context.
/// Thread   the main thread's
class KLockedProduct {
  public:
    /// Takes the product's lock, waits for it as the arguments say, and tells of a run that was
    /// interrupted, and of a record that is damaged.
    ///
    /// Throws   KSetupFailure for another run, KSetupStop while it is waited for
    explicit KLockedProduct(const KRunContext& given);
    KLockedProduct(const KLockedProduct&) = delete;
    KLockedProduct& operator=(const KLockedProduct&) = delete;

    const KRunContext& GetContext() const noexcept { return context; }
    /// The name of the product's service, by which the machine knows the product.
    const std::string& GetService() const noexcept { return service; }
    /// For questions about the product; it never runs.
    const KINS::KInstaller& GetInstaller() const noexcept { return installer; }
    KMacroContext& GetMacros() noexcept { return macros; }
    const std::optional<KInstalledRecord>& GetRecord() const noexcept { return record; }
    /// The run that did not come to its end; nothing without one.
    const std::optional<KInterruptedRun>& GetInterrupted() const noexcept { return interrupted; }

    /// What was installed, as it is written down now; nothing without a manifest.
    ///
    /// Throws   KSetupFailure for one that cannot be understood
    std::optional<KManifest> LoadManifest() const { return KManifest::Read(service); }
    /// What was the product's when it was locked, and what is another's.
    KOwnership& GetOwnership() noexcept { return ownership; }

  private:
    const KRunContext& context;
    std::string service;
    KRunLock lock; // before all that is read under it
    KINS::KInstaller installer;
    std::optional<KInstalledRecord> record;
    KMacroContext macros; // behind the record, which it knows
    std::optional<KInterruptedRun> interrupted;
    KOwnership ownership;
};

} // namespace KSETUP
