// SPDX-License-Identifier: MIT
#pragma once

#include <setup/state/KBackupIndex.h>
#include <setup/state/KManifest.h>
#include <setup/state/KPrivateDirectory.h>
#include <setup/state/StateDirectory.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace KSETUP {

/// What a run is about to change.
struct KBackupWish {
    std::string run; ///< its name (RunId.h)
    bool hasCommands = false;
    std::vector<std::string> paths; ///< absolute
    std::vector<KServiceBefore> services;
};

/// A backup that is whole, open for reading.
struct KOpenBackup {
    KPrivateDirectory directory;
    KBackupIndex index;
    /// What the run left at the paths of the index, where it came to its end, be it a failure.
    std::optional<KBackupEntries> left;
};

/// Keeps what a run is about to overwrite or delete: kept files named by numbers, an index that tells
/// what stood at each path, "nothing" included, and, once the run has ended, a list "left" of what
/// it left there.
///
/// There are two places for one, because the backup of the last run is of use until a later one
/// *succeeds*:
///
///     BASE/NAME/backup.next   of the run that goes on, or did not come to its end
///     BASE/NAME/backup        of the last run that did
///
/// Which run one is of is in its index; that is what counts, not the place. A run that goes on after
/// one that did not end bears the same name and adds what is not kept yet; what is kept stays.
///
/// A kept file is a reflink where the file system has them, else a copy; with its SHA-256. A hard
/// link never is: whatever writes into the file in its place, a command of the script, a service or
/// a person, would write into the backup. Owner, mode, time of modification and extended attributes
/// are kept. It also keeps the directories above each path, so that they can be made again, or taken
/// away when the run made them.
///
/// Threads  one at a time; the caller holds the product's KRunLock
///
///     KBackup backup("dps");
///     backup.Save({.run = MakeRunId(), .paths = paths});   // before the run
///     backup.NoteLeft(made, manifest);                     // behind its last rule
///     backup.Commit();                                     // when it is done
class KBackup {
  public:
    explicit KBackup(std::string serviceName, std::string base = stateBaseDirectory);

    /// Keeps what stands at the paths; also notes where nothing does. What was kept for the same
    /// run before is added to, anything else of a run that did not end goes. `shallStop` is asked
    /// before each path, during this call only.
    ///
    /// Throws   KSetupFailure when something cannot be kept (ExitCode::cannotWrite), KSetupStop when
    ///          `shallStop` says so; what was kept before is there still
    void Save(const KBackupWish& wish, const std::function<bool()>& shallStop = {});

    /// Writes down what the run left at its paths, and at those that it made (`made`) besides.
    /// Files that `installed` knows, of that size, are not read.
    ///
    /// Throws   KSetupFailure; a restoration then does not know what was edited since
    void NoteLeft(const std::vector<std::string>& made, const KManifest& installed = {}) const;
    /// The run that Save was for is done: its backup takes the place of the former one.
    ///
    /// Throws   KSetupFailure, both being whole
    void Commit();
    /// The same, of a run that had none: the former one is out of date.
    ///
    /// Throws   KSetupFailure
    void Discard();

    /// Before a run that does not go on with the backup of the one before. Where a program was
    /// killed behind the end of its run, which is no interrupted one then, the backup is committed;
    /// any other of a run that did not end goes.
    ///
    /// Throws   KSetupFailure
    void Tidy(bool isInterrupted);

    /// The name of the run that did not come to its end, or whose end was not noted any more, and
    /// for which there is a backup; empty without one.
    ///
    /// Throws   KSetupFailure when the directory cannot be trusted or the index understood
    std::string GetBegunRun() const;
    /// The name of the last run that ended well, as far as there is a backup of it; empty without
    /// one. For a product without a manifest, which would know more.
    ///
    /// Throws   as above
    std::string GetDoneRun() const;
    /// The backup of this run; nothing when there is none.
    ///
    /// Throws   as above
    std::optional<KOpenBackup> Open(const std::string& run) const;
    /// Whether there is a backup, of whatever run.
    ///
    /// Throws   KSetupFailure when the directory cannot be trusted
    bool Exists() const;
    /// Deletes the backup of this run, and what is left of one that was being deleted.
    ///
    /// Throws   KSetupFailure
    void Delete(const std::string& run);

    const std::string& GetName() const noexcept { return name; }
    const std::string& GetBase() const noexcept { return base; }

  private:
    static std::optional<KBackupIndex> LoadIndex(const KPrivateDirectory& store);
    static KBackupIndex TakeOver(
        const std::optional<KPrivateDirectory>& former,
        const std::string& run,
        const KPrivateDirectory& store
    );
    static void Replace(const KPrivateDirectory& product, const char* from, const char* to);

    std::string name;
    std::string base;
};

/// What stands at a path, without a digest; nothing for what is neither a file nor a directory nor a
/// link. A link that another user laid on the way is not followed.
///
/// Returns  0 or errno; 0 with the kind Nothing for what is not there
unsigned LookForBackup(const std::string& path, std::optional<KBackupEntry>& entry);

/// The SHA-256 of a file, found as above; empty when it cannot be read.
std::string DigestForBackup(const std::string& path);

} // namespace KSETUP
