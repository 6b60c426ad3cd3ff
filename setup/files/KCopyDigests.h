// SPDX-License-Identifier: MIT
#pragma once

#include <setup/files/KFileDigest.h>
#include <sup++/ThreadSafety.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

#include <sys/KAnnotatedMutex.h>

namespace KSETUP {

/// A file that will be copied.
///
/// Lifetime   borrows the paths
struct KCopy {
    std::string_view source;
    std::string_view target;
};

/// Digests what a run copied, on a thread of its own while it goes on, so that a manifest does not
/// have to read everything again when all is done. What was written is read, never its source: that
/// may have been another one when it was copied. From a sealed kit it has to be what was sealed.
///
/// Thread   constructed, and Take, on one; Add and FindBroken on the run's
class KCopyDigests {
  public:
    /// `lasting` are the copies whose targets nothing else writes to. `sealedFiles` are those of a
    /// sealed kit, below `kitDirectory`, by their paths; none are those of a kit without a seal.
    ///
    /// Lifetime   borrows the copies' paths
    KCopyDigests(const std::vector<KCopy>& lasting, KDigests sealedFiles, std::string kitDirectory);
    /// Stops, within 1 MiB.
    ~KCopyDigests();
    KCopyDigests(const KCopyDigests&) = delete;
    KCopyDigests& operator=(const KCopyDigests&) = delete;

    /// A file was copied. One of a sealed kit that will not stay as it is is read at once. One of which
    /// somebody `known` made the digest while it was written, and nobody could write to it since, is not
    /// read once more; without a digest nothing is known.
    void Add(const std::string& source, const std::string& target, const KFileDigest& known = {});
    /// Waits until all that was added is read.
    ///
    /// Returns  the targets that are not what the kit's seal lists, whose sources somebody changed;
    ///          in a directory in which others may write, where they may have changed the target, only
    ///          those whose sources are not what it lists either
    std::vector<std::string> FindBroken();

    /// Waits for the end, behind which nothing is added. By target: what lasts and could be read.
    ///
    /// Lifetime   the paths are those of the copies
    KKeptDigests Take();

    /// The digests of a sealed kit.
    const KDigests& GetSealed() const noexcept { return sealed; }

  private:
    struct Job {
        std::string source;
        std::string target;
        std::string expected; ///< empty where nothing is known; a text that is no digest for "none"
    };
    std::string FindExpected(const std::string& source) const;
    void Start() SUP_REQUIRES(guard);
    void Run();
    void Gather(KSYS::KScopedLock<KSYS::KAnnotatedMutex<std::mutex>>& hold) SUP_REQUIRES(guard);
    void WaitForEnd(KSYS::KScopedLock<KSYS::KAnnotatedMutex<std::mutex>>& hold) SUP_REQUIRES(guard);
    void Digest(const Job& job);
    bool IsBroken(const Job& job, const std::string& sha256);
    std::function<bool()> ShallStop();

    const KDigests sealed;
    const std::string kit;
    std::unordered_map<std::string_view, unsigned> copiesTo; // lasting targets; fixed until the end

    KSYS::KAnnotatedMutex<std::mutex> guard;
    std::condition_variable changed;
    std::deque<Job> jobs SUP_GUARDED_BY(guard); // the first is being done
    KKeptDigests digests SUP_GUARDED_BY(guard);
    std::vector<std::string> broken SUP_GUARDED_BY(guard);
    bool isAsleep SUP_GUARDED_BY(guard) = false;  // until the next file comes
    bool isAwaited SUP_GUARDED_BY(guard) = false; // by who needs all of it
    bool isStopped SUP_GUARDED_BY(guard) = false;
    bool isThreadless SUP_GUARDED_BY(guard) = false;
    std::thread thread;
};

} // namespace KSETUP
