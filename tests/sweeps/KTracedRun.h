// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace KSWEEP {

/// A system call of a traced program, as it was about to be made.
struct KSeenCall {
    long number = 0;
    std::string path;         ///< the last name among its arguments; empty for calls with none
    bool makes = false;       ///< it opens a file and makes it, if it is not there
    unsigned nthOfNumber = 0; ///< counted from 1 among all calls of its number

    /// As strace(1) would begin its line: "unlinkat(sweep.service)".
    std::string ToText() const;
};

/// At which calls a run stops. All others go on at their own speed.
struct KWatch {
    std::vector<long> numbers;                    ///< of these system calls, each one
    std::function<bool(const KSeenCall&)> counts; ///< asked for each, in turn
};

/// What happens to a run, and at which of its calls.
struct KBlow {
    enum class Kind {
        None,      ///< it runs to its end
        Kill,      ///< killed with all its threads, the call not being made
        HalfWrite, ///< half of the bytes of a call that writes are written, then killed
        Fail       ///< the call gives an error
    };
    Kind kind = Kind::None;
    unsigned nth = 0;     ///< counted from 1 among the calls that count
    int errorNumber = 0;  ///< of Fail
    bool onwards = false; ///< of Fail: and all calls that are watched after it
};

/// How a run ended, and what it said.
struct KTracedEnd {
    bool wasStruck = false; ///< it came to the call
    int exitCode = -1;      ///< -1 when a signal ended it
    int signal = 0;
    std::string out;
    std::string err;
    std::vector<KSeenCall> calls; ///< that count, up to the blow
};

/// Runs a program under ptrace(2), all its threads, not its children, to the end of all of them. A run that
/// takes longer than 30 seconds is ended by SIGALRM.
///
/// `seen`, if there is one, is called before each call that counts is made and when it was made (`isDone`);
/// the calling thread stands still meanwhile.
///
/// Throws   std::system_error when it cannot be traced
KTracedEnd Trace(
    const std::vector<std::string>& words,
    const KBlow& blow,
    const KWatch& watch,
    const std::function<void(const KSeenCall&, bool isDone)>& seen = {}
);

/// Runs a program to its end without looking at its calls, which takes much less time.
///
/// Throws   std::system_error
KTracedEnd RunUntraced(const std::vector<std::string>& words);

/// The calls that may change a file, or bring a change to the disk.
const KWatch& FileChanges();
/// Whether it hands bytes over, so that it can be done by half.
bool WritesBytes(const KSeenCall& call);

} // namespace KSWEEP
