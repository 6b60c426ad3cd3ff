// SPDX-License-Identifier: MIT
//
// A run in which a system call fails: each call, once and from then on. The errors that a call can
// give take turns, so that each is met at calls of each kind, and each call is met with two of them.
#include "CallPoints.h"
#include "KAftermath.h"
#include "Sweeps.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <sys/syscall.h>

namespace KSWEEP {

namespace {

using KErrors = std::map<long, std::vector<int>>;

/// What calls can give, by their pages in section 2 of the manual, on a machine that works but for
/// this: broken or full disks, missing rights, no memory, no descriptors, signals.
const KErrors& AllErrors() {
    static const std::vector<int> opens = {EACCES, EIO, EMFILE, ENOMEM, EINTR, ENFILE};
    static const std::vector<int> looks = {EACCES, EIO, ENOMEM};
    static const std::vector<int> reads = {EIO, EINTR};
    static const std::vector<int> writes = {ENOSPC, EIO, EDQUOT, EINTR};
    static const std::vector<int> entries = {EACCES, EIO, ENOSPC, EROFS, EPERM, EBUSY};
    static const std::vector<int> rights = {EPERM, EIO, EROFS};
    static const std::vector<int> flushes = {EIO, ENOSPC, EDQUOT};
    static const KErrors errors = {
        {SYS_open, opens},
        {SYS_openat, opens},
        {SYS_openat2, opens},
        {SYS_stat, looks},
        {SYS_lstat, looks},
        {SYS_newfstatat, looks},
        {SYS_statx, looks},
        {SYS_access, looks},
        {SYS_faccessat2, looks},
        {SYS_readlink, looks},
        {SYS_readlinkat, looks},
        {SYS_getdents64, reads},
        {SYS_read, reads},
        {SYS_pread64, reads},
        {SYS_write, writes},
        {SYS_pwrite64, writes},
        {SYS_copy_file_range, writes},
        {SYS_ftruncate, writes},
        {SYS_renameat, entries},
        {SYS_renameat2, entries},
        {SYS_unlink, entries},
        {SYS_unlinkat, entries},
        {SYS_rmdir, entries},
        {SYS_mkdir, entries},
        {SYS_mkdirat, entries},
        {SYS_symlinkat, entries},
        {SYS_linkat, entries},
        {SYS_fchmod, rights},
        {SYS_fchmodat, rights},
        {SYS_fchown, rights},
        {SYS_fchownat, rights},
        {SYS_utimensat, rights},
        {SYS_fsync, flushes},
        {SYS_fdatasync, flushes},
        {SYS_syncfs, flushes},
        {SYS_close, flushes},
        {SYS_fstat, {EIO, ENOMEM}},
        {SYS_flock, {ENOLCK, EINTR, EIO}},
        {SYS_statfs, {EIO, EACCES}},
        {SYS_fstatfs, {EIO}},
        {SYS_mmap, {ENOMEM}},
        {SYS_clone3, {EAGAIN, ENOMEM}},
        {SYS_clone, {EAGAIN, ENOMEM}},
        {SYS_pipe2, {EMFILE, ENFILE}},
        {SYS_socket, {EMFILE, ENOMEM}},
        {SYS_connect, {ECONNREFUSED, EINTR}},
        {SYS_wait4, {EINTR}},
        {SYS_getrandom, {EINTR, ENOSYS}},
    };
    return errors;
}

const std::vector<int>& ErrorsOf(const KSeenCall& call) {
    static const std::vector<int> none;
    static const std::vector<int> makes = {
        ENOSPC, EROFS, EACCES, EIO, EMFILE, EDQUOT, EINTR, EPERM};
    const auto found = AllErrors().find(call.number);
    return call.makes ? makes : found != AllErrors().end() ? found->second : none;
}

/// The calls before the program's own are those that load it, up to the one that makes its thread
/// known to the kernel.
class KOwnCalls {
  public:
    bool operator()(const KSeenCall& call) {
        isLoaded = isLoaded || call.number == SYS_set_tid_address;
        const bool isOfLoader = call.path.empty() || call.path.find(".so") != std::string::npos ||
                                call.path.starts_with("/proc/") || call.path.starts_with("/lib") ||
                                call.path.starts_with("/usr/lib");
        hasBegun = hasBegun || (isLoaded && !isOfLoader);
        return hasBegun && !ErrorsOf(call).empty();
    }

  private:
    bool isLoaded = false;
    bool hasBegun = false;
};

KWatch FallibleCalls() {
    KWatch watch{{SYS_set_tid_address}, KOwnCalls()};
    for (const auto& one : AllErrors()) {
        watch.numbers.push_back(one.first);
    }
    return watch;
}

class KErrorPoint {
  public:
    /// The call is known among those of its number: threads do not always make theirs in the same order,
    /// and another call cannot give every error.
    KErrorPoint(
        const KSubject& itsSubject,
        const KWay& itsWay,
        KJudged& whatIsJudged,
        const KSeenCall& call,
        int errorNumber,
        bool onwards
    )
        : subject(itsSubject),
          way(itsWay),
          judged(whatIsJudged),
          number(call.number),
          blow({KBlow::Kind::Fail, call.nthOfNumber, errorNumber, onwards}) {}

    std::string FindWrong() const {
        subject.GetMachine().PutBack(way.from);
        const auto all = [](const KSeenCall&) { return true; };
        const KTracedEnd end = Trace(subject.Words(way.words), blow, {{number}, all});
        if (!end.wasStruck) {
            return {};
        }
        // What it says goes into a file without a name; it may be the very line that says why.
        const KSeenCall& struck = end.calls.back();
        const bool isMute = struck.number == SYS_write && (blow.onwards || struck.path.empty());
        return KAftermath(subject, way)
            .FindWrong(end, ::strerrordesc_np(blow.errorNumber), judged, isMute);
    }

  private:
    const KSubject& subject;
    const KWay& way;
    KJudged& judged;
    const long number;
    const KBlow blow;
};

} // namespace

void SweepErrors(const KSubject& subject, const KSelection& selection, KReport& report) {
    unsigned number =
        0; // in its way: two machines need not count the same calls, and share each way
    std::map<std::pair<std::string, long>, unsigned>
        turns;                             // by the way, and the number of the call
    std::map<std::string, KJudged> judged; // by the way
    ForEachCall(subject, selection, report, FallibleCalls(), [&](const KCallPoint& at) {
        number = at.nth == 1 ? 0 : number;
        const std::vector<int>& errors = ErrorsOf(at.call);
        for (const bool onwards : {false, true}) {
            const int error = errors[turns[{at.way.name, at.call.number}]++ % errors.size()];
            const std::string name =
                at.way.name + ":" + std::to_string(at.nth) + (onwards ? "on" : "once");
            // Interrupted for ever is no failure that a machine has.
            if ((onwards && error == EINTR) || !selection.Has(number++, name) || !at.isChosen) {
                continue;
            }
            const KErrorPoint point(subject, at.way, judged[at.way.name], at.call, error, onwards);
            report.Add(
                name,
                at.call.ToText() + " " + ::strerrorname_np(error) +
                    (onwards ? " from then on" : ""),
                point.FindWrong()
            );
        }
    });
}

} // namespace KSWEEP
