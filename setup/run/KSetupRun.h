// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KInstaller.h>
#include <setup/kit/KSetupKit.h>
#include <setup/output/KRunReport.h>
#include <setup/output/KSetupArguments.h>
#include <setup/output/KSetupSignals.h>
#include <setup/output/KSetupVoice.h>
#include <setup/plan/KDiskView.h>
#include <setup/plan/KPlan.h>
#include <setup/run/KCommandOutput.h>
#include <setup/run/KRunGuard.h>
#include <setup/run/KRunWatch.h>
#include <setup/script/KMacroContext.h>
#include <sup++/KError.h>
#include <sup++/KString.h>

#include <memory>
#include <string>

namespace KSETUP {

/// One install or removal, from the checks before it to what is found out after it. What it learns
/// goes into the report, which the caller tells.
///
/// Borrows the kit, the arguments, the voice and the report.
/// Thread   the main thread's
class KSetupRun {
  public:
    KSetupRun(
        const KSetupKit& kitToUse,
        const KSetupArguments& given,
        KSetupVoice& speaker,
        KRunReport& toFill
    );

    /// Throws   KSetupFailure when nothing was begun; the report's log end may then say more
    void Install();
    void Remove();

  private:
    void Plan(const char* section);
    void RequireLoadable() const;
    void AskBeforeRemoval();
    void BackUp();
    void FindLogs();
    void Prepare();
    void Load();
    void Watch();
    void End();
    void FillEnd(const KSUP::KError& error);
    void FillStopped();
    std::string WhatStays() const;
    void FillLogEnd();
    void FillNotes();
    void FillInstalled();
    void FillRemoved();

    const KSetupKit& kit;
    const KSetupArguments& arguments;
    KSetupVoice& voice;
    KRunReport& report;
    KSetupSignals signals;
    KMacroContext macros;
    KRunGuard guard;
    std::string begunPath; // of a removal that goes on without a record
    std::shared_ptr<KDiskView> view = std::make_shared<KDiskView>(); // until something changes
    std::unique_ptr<KPlan> plan;
    std::string commandLog; // its path
    KCommandOutput commandOutput;
    std::unique_ptr<KRunWatch> watch;
    KINS::KInstaller installer; // last: its run uses the rest
};

} // namespace KSETUP
