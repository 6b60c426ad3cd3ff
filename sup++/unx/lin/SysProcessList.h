// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/unx/lin/KDescriptor.h>

#include <string>
#include <vector>

#include <sys/types.h>

/// The processes of this machine, as proc(5) tells of them. All may throw std::bad_alloc.
namespace KSUP::Sys {

struct ProcessEntry {
    pid_t id = 0;
    pid_t parent = 0;
    pid_t group = 0;
    bool dead = false;   ///< a zombie: it has ended, nobody asked for its status yet
    bool kernel = false; ///< a thread of the kernel
};

std::vector<ProcessEntry> ListProcesses();

/// A process that cannot be mistaken for a later one of the same number.
struct HeldProcess {
    pid_t id = 0;
    KDescriptor descriptor; // a pidfd
    std::string name;       // what it runs
};

/// The running processes of a program: with a "/" a path, compared by file (and by name where the
/// file was replaced meanwhile), else the last component of the path that a process runs. A script
/// counts as the program of the interpreter that its first line names. Never process 1, this one,
/// an ancestor or a thread of the kernel.
std::vector<HeldProcess> FindProcesses(const std::string& program);

/// Sends a signal. Returns 0 (also for one that has ended) or errno
[[nodiscard]] unsigned Signal(const HeldProcess& process, int signal) noexcept;

/// Waits until all have ended or the time is up; forgets those that have.
void WaitForEnd(std::vector<HeldProcess>& processes, unsigned timeoutMs) noexcept;

} // namespace KSUP::Sys
