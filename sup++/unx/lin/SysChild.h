// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/unx/lin/KDescriptor.h>

#include <chrono>
#include <string>

#include <sys/types.h>

namespace KSUP::Sys {

/// A shell that runs a command in a process group of its own. Until Reap, its process id and with
/// it the group's cannot be given to another process, so signals reach none but its own.
///
/// Thread   one at a time
class ShellProcess {
  public:
    /// Starts it. `outputPath` empty means that the output is dropped.
    ///
    /// Returns  0 or errno; nothing runs after a failure
    /// Throws   std::bad_alloc
    [[nodiscard]] unsigned Start(const std::string& commandLine, const std::string& outputPath);

    /// Readable once the shell has ended.
    int GetEndDescriptor() const noexcept { return endDescriptor.Get(); }

    /// Sends a signal to the whole group.
    void SignalGroup(int signal) const noexcept;
    /// Whether anything but dead processes is left in the group.
    bool IsGroupAlive() const;
    /// Waits for the shell's end and lets go of it.
    void Reap() noexcept;

  private:
    pid_t process = -1;
    KDescriptor endDescriptor; // a pidfd; without one (it ended at once and was reaped) not open
};

} // namespace KSUP::Sys
