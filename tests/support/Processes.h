// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

#include <sys/types.h>

/// Processes that a test started, told of by the system itself.
namespace KTEST {

/// Waits until `condition` holds; one that never does is ended by the time limit of the test.
void WaitUntil(const std::function<bool()>& condition);

/// The letter of proc(5), 'T' for one that is held up; 0 when there is no such process.
char StateOf(pid_t process);
/// Whether there is such a process that has not ended; a zombie has.
bool IsAlive(pid_t process);

/// How a child ended: its exit status, or 128 and the signal. Waits for its end.
int EndOf(pid_t child);

/// What is left behind becomes this process's child, as long as the object lives, and not that of
/// the machine's first process.
class LeftBehind {
  public:
    LeftBehind();
    ~LeftBehind();
    LeftBehind(const LeftBehind&) = delete;
    LeftBehind& operator=(const LeftBehind&) = delete;

    /// Ends and reaps all children of this process. Returns how many had not ended.
    static int End();
};

} // namespace KTEST
