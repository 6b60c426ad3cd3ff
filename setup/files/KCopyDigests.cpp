// SPDX-License-Identifier: MIT
#include <setup/files/KCopyDigests.h>
#include <setup/files/PathText.h>

#include <cerrno>
#include <chrono>
#include <exception>
#include <filesystem>
#include <system_error>
#include <utility>

#include <sys/files/FileStatus.h>
#include <sys/processes/BlockedSignals.h>

namespace KSETUP {

namespace {

/// How long files gather before the thread looks again. To wake it for each would hold the copies of small
/// ones up by as much as they take.
constexpr std::chrono::milliseconds gathering(2);
constexpr const char* unlisted = "not listed"; // equals no digest

/// Through a link at the end, where one was written through.
KFileDigest DigestTarget(const std::string& path, const std::function<bool()>& shallStop) {
    KFileDigest digest = DigestFile(path, shallStop, KWriting::Begin);
    KSYS::Place place;
    if (digest.errorNumber == ELOOP &&
        KSYS::FindPlace(path.c_str(), KSYS::LastLink::Follow, place) == 0) {
        digest = DigestFile(place, shallStop);
    }
    return digest;
}

} // namespace

KCopyDigests::KCopyDigests(
    const std::vector<KCopy>& lasting, KDigests sealedFiles, std::string kitDirectory
)
    : sealed(std::move(sealedFiles)),
      kit(NormalPath(kitDirectory)) {
    copiesTo.reserve(lasting.size());
    for (const KCopy& copy : lasting) {
        ++copiesTo[copy.target];
    }
}

KCopyDigests::~KCopyDigests() {
    {
        const KSYS::KScopedLock hold(guard);
        isStopped = true;
        changed.notify_all();
    }
    if (thread.joinable()) {
        thread.join();
    }
}

/// What the seal says of a source; empty for what is no affair of a seal.
std::string KCopyDigests::FindExpected(const std::string& source) const {
    if (sealed.empty() || !IsAtOrBelow(source, kit)) {
        return "";
    }
    const auto known = sealed.find(source);
    return known != sealed.end() ? known->second.sha256 : unlisted;
}

void KCopyDigests::Add(
    const std::string& source, const std::string& target, const KFileDigest& known
) {
    Job job{NormalPath(source), NormalPath(target), {}};
    job.expected = FindExpected(job.source);
    const auto lasting = copiesTo.find(job.target);
    // A target of two copies is another one by the time that the thread comes to the first.
    const bool isLasting = lasting != copiesTo.end() && lasting->second == 1;
    if (!isLasting && job.expected.empty()) {
        return;
    }
    const bool isKnown =
        !known.sha256.empty() && (job.expected.empty() || job.expected == known.sha256);
    if (isLasting && isKnown) {
        const KSYS::KScopedLock hold(guard);
        digests.insert_or_assign(lasting->first, known);
        return;
    }
    {
        const KSYS::KScopedLock hold(guard);
        Start();
        if (isLasting && !isThreadless) {
            jobs.push_back(std::move(job));
            if (isAsleep) {
                changed.notify_all();
            }
            return;
        }
    }
    if (!job.expected.empty()) {
        Digest(job);
    }
}

void KCopyDigests::Start() {
    if (thread.joinable() || isThreadless) {
        return;
    }
    const KSYS::BlockedSignals
        blocked; // for the thread that inherits them: they are the main one's
    try {
        thread = std::thread([this] { Run(); });
    } catch (const std::system_error&) {
        isThreadless = true; // the manifest reads the files itself
    }
}

void KCopyDigests::Run() {
    KSYS::KScopedLock hold(guard);
    while (!isStopped) {
        if (jobs.empty()) {
            Gather(hold);
            continue;
        }
        const Job job = jobs.front();
        hold.Unlock();
        Digest(job);
        hold.Lock();
        jobs.pop_front();
        if (jobs.empty()) {
            changed.notify_all();
        }
    }
}

/// Returns when there may be something to do.
void KCopyDigests::Gather(KSYS::KScopedLock<KSYS::KAnnotatedMutex<std::mutex>>& hold) {
    changed.wait_for(hold.GetStandard(), gathering, [this]() SUP_REQUIRES(guard) {
        return isStopped || isAwaited;
    });
    if (jobs.empty()) {
        isAsleep = true;
        changed.wait(hold.GetStandard(), [this]() SUP_REQUIRES(guard) {
            return isStopped || !jobs.empty();
        });
        isAsleep = false;
    }
}

void KCopyDigests::WaitForEnd(KSYS::KScopedLock<KSYS::KAnnotatedMutex<std::mutex>>& hold) {
    isAwaited = true;
    changed.notify_all();
    changed.wait(hold.GetStandard(), [this]() SUP_REQUIRES(guard) { return jobs.empty(); });
    isAwaited = false;
}

std::function<bool()> KCopyDigests::ShallStop() {
    return [this] {
        const KSYS::KScopedLock hold(guard);
        return isStopped;
    };
}

/// Who may write in the target's directory is not to end runs, by writing there.
bool KCopyDigests::IsBroken(const Job& job, const std::string& sha256) {
    if (job.expected.empty() || sha256 == job.expected) {
        return false;
    }
    KSYS::Place place;
    bool isClosed = false;
    const bool isOpen = KSYS::FindPlace(job.target.c_str(), KSYS::LastLink::Keep, place) == 0 &&
                        KSYS::ReadClosedToOthers(place.directory.Get(), isClosed) == 0 && !isClosed;
    return !isOpen || DigestTarget(job.source, ShallStop()).sha256 != job.expected;
}

void KCopyDigests::Digest(const Job& job) {
    KFileDigest digest;
    bool isBroken = !job.expected.empty(); // what could not be looked at may be anything
    try {
        digest = DigestTarget(job.target, ShallStop());
        isBroken = IsBroken(job, digest.sha256);
    } catch (const std::exception&) {
        digest.errorNumber = ENOMEM; // or libcrypto's; who needs it reads the file, and is told
    }
    const KSYS::KScopedLock hold(guard);
    if (isBroken && !isStopped) {
        broken.push_back(job.target);
    }
    const auto lasting = copiesTo.find(job.target);
    if (digest.errorNumber == 0 && lasting != copiesTo.end()) {
        digests.insert_or_assign(lasting->first, std::move(digest));
    }
}

std::vector<std::string> KCopyDigests::FindBroken() {
    KSYS::KScopedLock hold(guard);
    WaitForEnd(hold);
    return std::exchange(broken, {});
}

KKeptDigests KCopyDigests::Take() {
    KSYS::KScopedLock hold(guard);
    WaitForEnd(hold);
    copiesTo = {};
    return std::exchange(digests, {});
}

} // namespace KSETUP
