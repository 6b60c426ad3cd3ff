// SPDX-License-Identifier: MIT
#include <setup/preflight/KDigestPrefetch.h>

#include <exception>
#include <system_error>
#include <utility>

#include <sys/processes/BlockedSignals.h>

namespace KSETUP {

KDigestPrefetch::KDigestPrefetch(std::vector<KCopy> toCopy, KDigests alreadyRead)
    : copies(std::move(toCopy)),
      known(std::move(alreadyRead)) {
    const KSYS::BlockedSignals
        blocked; // for the thread that inherits them: they are the main one's
    try {
        thread = std::thread([this] { Run(); });
    } catch (const std::system_error&) {
        copies.clear(); // no thread to be had: the manifest reads the files itself
    }
}

KDigestPrefetch::~KDigestPrefetch() {
    isStopped.store(true, std::memory_order_relaxed);
    if (thread.joinable()) {
        thread.join();
    }
}

KDigests KDigestPrefetch::Take() {
    if (thread.joinable()) {
        thread.join();
    }
    return std::move(digests);
}

void KDigestPrefetch::Run() {
    const auto shallStop = [this] { return isStopped.load(std::memory_order_relaxed); };
    try {
        for (const KCopy& copy : copies) {
            const auto read = known.find(copy.source);
            KFileDigest digest =
                read != known.end() ? read->second : DigestFile(copy.source, shallStop);
            if (digest.errorNumber == 0) {
                digests.insert_or_assign(copy.target, std::move(digest));
            } else {
                digests.erase(copy.target);
            }
        }
    } catch (const std::exception&) {
        digests.clear(); // of no use in part; whoever needs them reads the files
    }
}

} // namespace KSETUP
