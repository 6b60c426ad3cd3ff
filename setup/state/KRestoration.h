// SPDX-License-Identifier: MIT
#pragma once

#include <setup/state/KBackup.h>
#include <setup/text/KText.h>

#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <sys/files/PathWalk.h>

namespace KSETUP {

/// What putting back came to.
struct KRestored {
    unsigned putBack = 0; ///< files, links and directories as they were
    unsigned deleted = 0; ///< that were not there before the run
    /// What the run made and is there still: directories that hold something else by now, and files
    /// that nobody knew before that it would make.
    std::vector<std::string> kept;
    /// What was edited since the run, and where it lies now.
    std::vector<std::pair<std::string, std::string>> edited;
    /// "cannot put back /opt/dps/x: No space left on device", one for each that failed.
    std::vector<KText> failures;
    bool stopped = false;
};

/// Puts back what a backup holds. It looks at everything first: what stands there as it was before
/// the run is left alone, what is as the run left it is replaced, and anything else was edited since.
/// So one that was stopped or killed can be repeated.
///
/// What ins-setup keeps for itself, below BASE/NAME, is put back in a step of its own, the last one.
///
/// Borrows the backup.
/// Threads  one at a time; the caller holds the product's KRunLock
///
///     KRestoration restoration(*backup.Open(run), backup);
///     if (restoration.GetEdited().empty()) { restoration.PutBack(); restoration.PutBackOwn(); }
class KRestoration {
  public:
    /// Looks; changes nothing.
    ///
    /// Throws   KSetupFailure (ExitCode::malformedScript) for a kept file that is not what was kept,
    ///          naming it; KSetupStop when `shallStop` says so
    KRestoration(
        const KOpenBackup& toPutBack,
        const KBackup& store,
        const std::function<bool()>& shallStop = {}
    );

    /// What was edited, replaced or made anew since the run; nothing is known of it after a run that
    /// was killed.
    const std::vector<std::string>& GetEdited() const noexcept { return edited; }
    /// Whether anything of the machine is not as it was before the run.
    bool HasWork() const noexcept { return hasWork; }

    /// Puts the machine's files back, each as a whole, and deletes what was not there. What was
    /// edited is kept beside, as NAME.edited. What fails is noted and the rest goes on. It is on the
    /// disk when it returns.
    void PutBack(const std::function<bool()>& shallStop = {});
    /// The manifest, the kept kit and the name of the run before.
    void PutBackOwn();
    /// Deletes a link that the run laid, such as one that enables a service.
    void DeleteLink(const std::string& path);

    const KRestored& GetResult() const noexcept { return result; }

  private:
    enum class State { AsBefore, Differs, Edited, Foreign };

    /// A file that is put back, and not yet in its place.
    struct KCopyBeside {
        std::string path;
        KSYS::Place place;
        std::string temporary; ///< its name there
        dev_t device = 0;
    };

    State Inspect(const std::string& path, const KBackupEntry& before) const;
    State InspectDirectory(
        const std::string& path, const KBackupEntry& now, const KBackupEntry& before
    ) const;
    State InspectMade(const std::string& path, KBackupEntry now) const;
    State
    InspectReplaced(const std::string& path, KBackupEntry now, const KBackupEntry& before) const;
    bool IsAsLeft(const std::string& path, KBackupEntry& now) const;
    void RequireKept(const std::string& path, const KBackupEntry& entry) const;
    bool IsOwn(const std::string& path) const;

    void PutBackAll(bool own, const std::function<bool()>& shallStop);
    void MakeDirectory(const std::string& path, const KBackupEntry& entry);
    void DeleteNew(const std::string& path);
    void DeleteNewDirectory(const std::string& path);
    void PutBackOne(const std::string& path, const KBackupEntry& entry);
    unsigned CopyBeside(const std::string& path, const KBackupEntry& entry);
    void PutCopiesInPlace();
    static unsigned PutBackLink(const KSYS::Place& place, const KBackupEntry& entry);
    bool KeepBeside(const std::string& path);
    void DeleteUnlistedOfKit();
    void FindKept();
    void Count(const std::string& path, unsigned& counter, const KSYS::Place& place);
    /// Keeps the file system of a directory, of `path` or that holds it, to be flushed.
    void RemainToFlush(const KSYS::Entry& directory, const std::string& path);
    void RemainToFlush(const KSYS::Place& place, const std::string& path);
    void RemainToFlushAll();
    void Flush();
    void Failed(const KText& what, unsigned errorNumber);

    const KOpenBackup& backup;
    const std::string base;
    const std::string ownDirectory;
    std::map<std::string, State> states; // of all paths of the index
    std::vector<std::string> edited;
    bool hasWork = false;
    KRestored result;
    std::vector<KCopyBeside> copies;
    std::map<dev_t, KSYS::KDescriptor> copiedOn; // the first of them on each file system
    std::uint64_t bytesBeside = 0;
    std::map<dev_t, KSYS::KDescriptor> written; // one directory on each file system
};

} // namespace KSETUP
