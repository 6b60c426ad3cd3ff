// SPDX-License-Identifier: MIT
#pragma once

#include <setup/output/KRunReport.h>
#include <setup/run/KRunContext.h>
#include <setup/state/KRestoration.h>

#include <functional>
#include <string>
#include <vector>

namespace KSETUP {

/// What became of a run that was to be undone.
struct KUndone {
    KPutBackReport report;
    std::vector<std::string> leftBehind; ///< what the run made and is there still
    std::vector<KText> failures;         ///< in words; the rest was put back
    bool stopped = false;

    /// Whether everything that is kept was put back. What was not can be tried again.
    bool IsWhole() const noexcept { return failures.empty() && !stopped; }
};

/// Puts back the files of a backup, what enables its services, their state and, when all of that is
/// done, the program's own files. The backup and what is remembered of the run stay.
///
/// Thread   the main thread's
KUndone Undo(
    const KOpenBackup& backup,
    KRestoration& restoration,
    const std::function<bool()>& shallStop = {}
);

/// Forgets the run that was undone: its backup, its journal and its state, save where the backup
/// holds the state of one that had been interrupted before. A backup that cannot be deleted is told.
///
/// Throws   KSetupFailure, the state being there still; or its end not being on the disk, the backup
///          gone all the same
void ForgetUndone(const KOpenBackup& backup, KBackup& store, KRunReport& report);

/// Tells in the report what was put back.
void FillUndone(const KUndone& undone, bool hasCommands, KRunReport& report);

} // namespace KSETUP
