// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <string>

#include <sys/files/KDescriptor.h>
#include <sys/types.h>

namespace KSYS {

/// A shell that runs a command in a session and process group of its own. Until Reap, its process
/// id and with it the group's cannot be given to another process, so signals reach none but its
/// own. Where the program lets the kernel reap its children, or takes all of them itself, that is
/// so only until the shell and what it started have ended; nothing is signalled after that.
///
/// Thread   one at a time
class KShellProcess {
  public:
    /// Starts it; an `output` that is not open means that its output is dropped.
    ///
    /// Returns  0 or errno; nothing runs after a failure
    /// Throws   std::bad_alloc
    [[nodiscard]] unsigned Start(const std::string& commandLine, const KDescriptor& output);

    /// Readable once the shell has ended; negative where it had ended and was reaped before.
    int GetEndDescriptor() const noexcept { return endDescriptor.Get(); }
    /// Whether the shell ended within the time.
    bool HasEnded(std::chrono::milliseconds time) const noexcept;

    /// Sends a signal to the whole group.
    void SignalGroup(int signal) const noexcept;
    /// Whether anything but dead processes is left in the group; true when that cannot be told.
    bool IsGroupAlive() const noexcept;
    /// Waits for the shell's end and lets go of it.
    ///
    /// Returns  its exit status, 128 and the signal for one that a signal ended; -1 when the program
    ///          reaped it elsewhere
    int Reap() noexcept;

  private:
    bool IsReaped() const noexcept;

    pid_t process = -1;
    KDescriptor endDescriptor; // a pidfd; not open where the shell had ended and was reaped before
};

} // namespace KSYS
