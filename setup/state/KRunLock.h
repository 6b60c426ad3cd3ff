// SPDX-License-Identifier: MIT
#pragma once

#include <setup/text/KText.h>

#include <functional>
#include <optional>
#include <string>

#include <sys/files/KDescriptor.h>
#include <sys/files/LockPlaces.h>
#include <sys/types.h>

namespace KSETUP {

/// Who holds a product's lock.
struct KLockHolder {
    pid_t pid = 0;       ///< 0 when it did not say yet
    std::string command; ///< its command line, printable

    /// ": process 4711 (ins-setup install)." as the end of a sentence; "." without a process.
    KText ToWords() const;
};

/// One run at a time for a product: a lock (flock(2)) on NAME.lock in root's place for locks, which
/// nobody else can enter (sys/files/LockPlaces.h), held as long as the object lives. The file itself
/// means nothing: it stays, and a holder that dies lets go. It holds the holder's process id and
/// command line, a line each, for those who wait.
///
/// The file is closed on exec, so that a command of the script does not inherit the lock.
///
/// Threads  one at a time
///
///     KRunLock lock("dps", arguments.waitSeconds, [&] { return signals.Take() != 0; });
class KRunLock {
  public:
    /// Takes the lock; waits up to `waitSeconds` for its holder to let go. `shallStop` is asked
    /// between tries, ten times a second, during this call only. `tell` is given one sentence,
    /// which names the holder, once it is clear that there is something to wait for.
    ///
    /// Throws   KSetupFailure: ExitCode::anotherRun naming the holder, ExitCode::cannotWrite when
    ///          the place or the file is not root's alone or cannot be made, KSetupStop when
    ///          `shallStop` said so. Nothing is left behind but the file
    explicit KRunLock(
        const std::string& serviceName,
        unsigned waitSeconds = 0,
        const std::function<bool()>& shallStop = {},
        const KSYS::LockPlaces& places = KSYS::LockPlaces::Of(0),
        const std::function<void(const KText&)>& tell = {}
    );
    /// Empties the file and lets go.
    ~KRunLock();
    KRunLock(const KRunLock&) = delete;
    KRunLock& operator=(const KRunLock&) = delete;

    /// Who holds the lock now; nothing when nobody does, or only this process.
    ///
    /// Throws   KSetupFailure when the file cannot be trusted, ExitCode::notRoot for a user who
    ///          may not look
    static std::optional<KLockHolder> FindHolder(
        const std::string& serviceName, const KSYS::LockPlaces& places = KSYS::LockPlaces::Of(0)
    );

  private:
    KSYS::KDescriptor file;
};

} // namespace KSETUP
