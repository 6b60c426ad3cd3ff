// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

/// How a process takes a directory tree for its root, in namespaces of its own: nothing that it mounts is
/// seen outside, no process outside can be seen from within, and all of it ends with the processes in it.
/// By processes with one thread.
namespace KSYS {

/// A directory of the system that a private root shows too, with all that is mounted below it, or a file.
struct ShownEntry {
    std::string source; ///< absolute, without links
    bool isDirectory = true;
    bool isReadOnly = true;
};

/// Where a private root shows entries of the system, each by the path that it has there behind this.
inline constexpr const char* privateRootPlace = "/run/ins-setup";

/// The step that failed; `error` is 0 without one.
struct FailedStep {
    unsigned error = 0;
    std::string path; ///< what it was about; empty for the process itself
};

/// The next process that this one forks becomes process 1 of a process namespace of its own.
/// Returns 0 or errno.
[[nodiscard]] unsigned SeparateProcesses() noexcept;

/// fork(2). The new process, where `result` is 0, goes on from here.
/// Returns 0 or errno.
[[nodiscard]] unsigned ForkProcess(pid_t& result) noexcept;

/// Takes mounts, host name and shared memory of its own, makes `directory` the root and the working
/// directory, and ends this process when its parent ends. In the root /run, /dev and /proc are the
/// process's own: /run is in memory and empty but for what is shown, /dev has the few devices that any
/// system has, /proc its own processes, with a read-only /proc/sys. No link is followed to them.
///
/// `directory` is absolute and without links. For process 1 of a process namespace.
/// Throws   std::bad_alloc
[[nodiscard]] FailedStep
EnterPrivateRoot(const std::string& directory, const std::vector<ShownEntry>& shown);

/// Shows one directory at the place of another, which is there. Returns 0 or errno.
[[nodiscard]] unsigned ShowDirectory(const char* source, const char* target) noexcept;

} // namespace KSYS
