// SPDX-License-Identifier: MIT
#pragma once

#include <setup/state/KPrivateDirectory.h>
#include <setup/state/StateDirectory.h>
#include <sup++/ThreadSafety.h>

#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <sys/KAnnotatedMutex.h>
#include <sys/files/KDescriptor.h>

namespace KSETUP {

/// What a run did to the disk, by who did it: every file, link and directory that the libraries make
/// or delete, unit files and profiles too, whatever a plan expected. It is the source of the
/// manifest. On the disk it is BASE/NAME/written, so that a run that goes on after one that was
/// killed knows what that one had made and finds in its place now. A kill may come between a change
/// and its entry, so the file begins with what is expected: of that, what was not there before the
/// run and is there after it was made by it.
///
/// One at a time in a process: the libraries have one listener.
///
/// Threads  made, asked and destroyed on one thread; the libraries tell it on the run's
///
///     KWriteJournal journal("dps", KWriteJournal::Begin::Anew);   // the rules run, then
///     KManifest manifest(journal.GetMade(), digests);
///     journal.End();                                  // the manifest is written
class KWriteJournal {
  public:
    enum class Begin {
        Anew,
        GoOn, ///< after a run that was interrupted: what it had made counts too
    };

    /// What the journal begins with.
    struct Beginning {
        /// Paths that the run may make, at which nothing stands.
        std::vector<std::string> expected;
        /// Files that the administrator edited before it: whatever the run does to them, one that goes
        /// on is to know.
        std::vector<std::string> edited;
        /// Files that nobody edited, that administrators may, and that the run writes anew: what is
        /// there after a kill may be half of one, and is nobody's edit.
        std::vector<std::string> rewritten;
        /// Directories in which files are written, and where a killed run may leave some half.
        std::set<std::string> directories;
    };
    /// Listens from here on.
    ///
    /// Throws   KSetupFailure when the file cannot be written
    KWriteJournal(
        const std::string& serviceName,
        Begin begin,
        const Beginning& beginning = {},
        const std::string& base = stateBaseDirectory
    );
    ~KWriteJournal();
    KWriteJournal(const KWriteJournal&) = delete;
    KWriteJournal& operator=(const KWriteJournal&) = delete;

    /// What a run that was interrupted had made; the rest as it was at its beginning.
    struct Begun {
        std::set<std::string> made;
        std::set<std::string> edited;
        std::set<std::string> rewritten;
        std::set<std::string> directories;
    };
    /// Empty without such a run.
    ///
    /// Throws   KSetupFailure when the file cannot be read
    static Begun Read(const std::string& serviceName, const std::string& base = stateBaseDirectory);

    /// Whether this run made the path, in its normal form, and did not delete it again. What one made
    /// that it goes on with does not count.
    bool IsMadeNow(const std::string& path) const;
    /// Whether the path, in its normal form, was made and not deleted again, also by what it goes on with.
    bool IsMade(const std::string& path) const;
    /// The paths of which that is so, sorted.
    std::vector<std::string> GetMade() const;
    /// Calls `take` with each of them. Of what is made or deleted meanwhile it may be told or not, and
    /// nobody waits for it.
    void ForEachMade(const std::function<void(const std::string& path)>& take) const;
    /// From here on keeps apart what is made and deleted: a look at all that was so far may begin.
    void BeginLater();
    /// Those paths, in their normal form.
    std::set<std::string> GetLater() const;
    /// Why the file does not hold all of it; 0 when it does.
    int GetErrorNumber() const noexcept;

    /// Takes the file away.
    ///
    /// Throws   KSetupFailure, the file being there still
    void End();
    /// The same for a product whose run was undone.
    ///
    /// Throws   as above
    static void
    Discard(const std::string& serviceName, const std::string& base = stateBaseDirectory);

  private:
    static void Listen(void* journal, unsigned what, const char* path) noexcept;
    void Note(bool isMade, bool isSoon, const std::string& path) SUP_REQUIRES(guard);
    void SaveHeld() noexcept SUP_REQUIRES(guard);

    KPrivateDirectory directory;

    mutable KSYS::KAnnotatedMutex<std::mutex> guard;
    KSYS::KDescriptor file SUP_GUARDED_BY(guard);
    std::map<std::string, bool> made SUP_GUARDED_BY(guard); // and whether this run did
    std::string pending SUP_GUARDED_BY(guard);              // entries that are not in the file yet
    std::optional<std::set<std::string>> later SUP_GUARDED_BY(guard); // once that was begun
    int errorNumber SUP_GUARDED_BY(guard) = 0;
};

} // namespace KSETUP
