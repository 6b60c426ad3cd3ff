// SPDX-License-Identifier: MIT
#pragma once

#include <setup/files/KFileDigest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace KSETUP {

/// A file that will be copied.
struct KCopy {
    std::string source;
    std::string target;
};

/// Digests the sources of copies on a thread of its own while they are being copied, so that a
/// manifest does not have to read everything again when all is done.
///
/// Thread   constructed, asked and destroyed on one thread
class KDigestPrefetch {
  public:
    /// Begins at once. Of several copies to one target the last counts. Sources whose digests are
    /// `known`, by their paths, are not read.
    explicit KDigestPrefetch(std::vector<KCopy> copies, KDigests known = {});
    /// Stops, within 1 MiB.
    ~KDigestPrefetch();
    KDigestPrefetch(const KDigestPrefetch&) = delete;
    KDigestPrefetch& operator=(const KDigestPrefetch&) = delete;

    /// Waits for the end. By target: a file that could not be read is not there.
    KDigests Take();

  private:
    void Run();

    std::vector<KCopy> copies; // the thread's until it is joined, as the next two
    KDigests known;
    KDigests digests;
    std::atomic<bool> isStopped{false};
    std::thread thread; // last: it uses the rest
};

} // namespace KSETUP
