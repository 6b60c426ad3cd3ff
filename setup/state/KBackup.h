// SPDX-License-Identifier: MIT
#pragma once

#include <setup/state/KBackupIndex.h>
#include <setup/state/KPrivateDirectory.h>
#include <setup/state/StateDirectory.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace KSETUP {

/// What putting back came to.
struct KRestored {
    unsigned putBack = 0; ///< files, links and directories as they were
    unsigned deleted = 0; ///< that were not there before the run
    /// Directories that the run made and that hold something else by now.
    std::vector<std::string> kept;
    /// "cannot put back /opt/dps/x: No space left on device", one for each that failed.
    std::vector<std::string> failures;
    bool stopped = false;
};

/// How a backup is made.
struct KBackupWay {
    /// A run goes on: what the one before kept is older than what stands there now, and stays; what
    /// was not kept yet is added.
    bool addsToFormer = false;
    /// Something may write into files that are there, a command or a service: no file is kept as a
    /// hard link then, which would follow.
    bool filesMayBeWrittenTo = false;
};

/// Keeps what a run is about to overwrite or delete, in BASE/NAME/backup: kept files named by
/// numbers, and an index that tells what stood at each path, "nothing" included.
///
/// A kept file is a reflink where the file system has them. Else one of more than 64 KiB is a hard
/// link, where it is on the same file system: the engine never writes into a file that is there, it
/// makes a new one, so the link keeps the old bytes. Smaller ones are copied, because people write
/// into them: among these are the configuration and scripts; and all are where commands or services
/// may (KBackupWay).
///
/// A new backup takes the former one's place only when all of it is on the disk. It also keeps the
/// directories above each path, so that they can be made again, or taken away when the run made
/// them. Owner, mode, time of modification and extended attributes are kept.
///
/// Threads  one at a time; the caller holds the product's KRunLock
///
///     KBackup backup("dps");
///     backup.Save(paths);                          // before the run
///     const KRestored result = backup.Restore();   // perhaps, one day
class KBackup {
  public:
    explicit KBackup(std::string serviceName, std::string base = stateBaseDirectory);

    /// Keeps what stands at these absolute paths; also notes where nothing does. `shallStop` is
    /// asked before each, during this call only.
    ///
    /// Throws   KSetupFailure when something cannot be kept (ExitCode::cannotWrite), KSetupStop when
    ///          `shallStop` says so; the former backup is there still
    void Save(
        const std::vector<std::string>& paths,
        const std::function<bool()>& shallStop = {},
        const KBackupWay& way = KBackupWay()
    );

    /// Puts everything back, each file as a whole, and deletes what was not there. What fails is
    /// noted and the rest goes on; it can be repeated, as the backup stays. What was put back is on
    /// the disk when it returns.
    ///
    /// Throws   KSetupFailure without a backup (ExitCode::noKit) or with one that cannot be
    ///          understood (ExitCode::malformedScript); nothing was changed
    KRestored Restore(const std::function<bool()>& shallStop = {}) const;

    /// Whether there is a complete backup.
    ///
    /// Throws   KSetupFailure when the directory cannot be trusted
    bool Exists() const;
    /// Deletes the backup, and what a killed run left of one.
    ///
    /// Throws   KSetupFailure
    void Discard();

  private:
    static std::optional<KBackupIndex> LoadIndex(const std::optional<KPrivateDirectory>& store);
    static KBackupIndex TakeOver(const KPrivateDirectory& product, const KPrivateDirectory& store);
    void Replace(const KPrivateDirectory& product) const;

    std::string name;
    std::string base;
};

} // namespace KSETUP
