// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include <sys/files/KDescriptor.h>
#include <sys/types.h>

/// The processes of this machine, as proc(5) tells of them. All may throw std::bad_alloc.
namespace KSYS {

struct ProcessEntry {
    pid_t id = 0;
    pid_t parent = 0;
    pid_t group = 0;
    bool dead = false;   ///< all of it has ended, nobody asked for its status yet
    bool kernel = false; ///< a thread of the kernel
};

/// Returns  0 or errno
[[nodiscard]] unsigned ListProcesses(std::vector<ProcessEntry>& all);

/// Opens a pidfd; a number that no process has leaves it closed.
///
/// Returns  0 or errno
[[nodiscard]] unsigned OpenProcess(pid_t id, KDescriptor& process) noexcept;

/// Whether the process of a pidfd has ended by then.
bool EndsWithin(const KDescriptor& process, std::chrono::milliseconds time) noexcept;

/// A process that cannot be mistaken for a later one of the same number.
struct HeldProcess {
    pid_t id = 0;
    KDescriptor descriptor; // a pidfd
    std::string name;       // what it runs
};

/// The running processes of a program: with a "/" a path, compared by file (and by name where the
/// file was replaced meanwhile), else the last component of the path that a process runs. A script
/// counts as the program of what its first line names, or of a shell. Never process 1, this one, an
/// ancestor or a thread of the kernel.
///
/// Returns  0 or errno, and then what was found so far
[[nodiscard]] unsigned FindProcesses(const std::string& program, std::vector<HeldProcess>& found);

/// Sends a signal. Returns 0 (also for one that has ended) or errno
[[nodiscard]] unsigned Signal(const HeldProcess& process, int signal) noexcept;

/// Waits until all have ended or the time is up; forgets those that have.
void WaitForEnd(std::vector<HeldProcess>& processes, std::chrono::milliseconds time) noexcept;

} // namespace KSYS
