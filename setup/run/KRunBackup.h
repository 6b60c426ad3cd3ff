// SPDX-License-Identifier: MIT
#pragma once

#include <setup/run/KPlannedRun.h>
#include <setup/state/KBackup.h>
#include <setup/state/KManifest.h>

#include <functional>
#include <string>
#include <vector>

namespace KSETUP {

/// The backup of one run, from before its first rule to its end, and the run's name. A run that goes
/// on after one with a backup bears the name of that one and adds to its backup, also without being
/// told to: else it would put back a part only.
///
/// Borrows the planned run.
/// Thread   the main thread's
///
///     KRunBackup backup(planned);
///     backup.Save();
///     backup.Conclude(journal.GetMade(), &manifest, [&] { state.End(); });   // or Fail, or Undo
class KRunBackup {
  public:
    /// Chooses the name. Changes nothing.
    ///
    /// Throws   KSetupFailure when the directory of the state cannot be trusted
    explicit KRunBackup(const KPlannedRun& plannedRun);

    const std::string& GetRun() const noexcept { return run; }

    /// Keeps what the run may change, where that is asked for, and tells so.
    ///
    /// Throws   KSetupFailure or KSetupStop; nothing was changed
    void Save();
    /// The run is done: `end` forgets that it goes on. `manifest` is what is installed now; null
    /// after a removal.
    ///
    /// Throws   KSetupFailure, the run standing as interrupted
    void Conclude(
        const std::vector<std::string>& made,
        const KManifest* manifest,
        const std::function<void()>& end
    );
    /// The run failed or was stopped: writes down what it left. What of that fails goes into the
    /// report's notes.
    void Fail(const std::vector<std::string>& made);
    /// The same for one that was to be put back then (--rollback): puts it back, forgets the run,
    /// and fills the report.
    ///
    /// Returns  whether all was put back; never throws for what fails
    bool RollBack();

  private:
    std::vector<std::string> FindPaths(const std::vector<KServiceBefore>& services) const;

    const KPlannedRun& planned;
    KBackup store;
    std::string run;
    bool goesOn = false; // with the backup of the run before
    bool isKept = false; // there is a backup of this run
};

} // namespace KSETUP
