// SPDX-License-Identifier: MIT
#pragma once

#include <csignal>
#include <string>
#include <vector>

#include <sys/types.h>

namespace KSYS {

/// Holds back what ends a program (SIGHUP, SIGINT, SIGQUIT, SIGTERM) from its begin to its end, so
/// that it can clear away what it made: it asks, or runs a program that gets them in its place.
///
/// Thread   the main one, before there are others
class KHeldSignals {
  public:
    KHeldSignals() noexcept;

    /// A signal that came since the last call, or 0.
    int Take() noexcept;

    /// Runs a program to its end, with this process's input, output and working directory, and passes
    /// on what somebody sends to this process. What a terminal sends, it sends to both. `words` are the
    /// program's path, its name and its arguments; the descriptors `kept` stay open in it, those that are.
    ///
    /// Returns  0 or errno, and then no program ran; `status` as waitpid(2) gives it
    /// Throws   std::bad_alloc
    [[nodiscard]] unsigned
    Run(std::vector<std::string> words,
        std::vector<std::string> environment,
        const std::vector<int>& kept,
        int& status);

    /// Waits for the end of a child, as waitpid(2) gives it, and passes signals on to it in the same way.
    /// Other children that end meanwhile are reaped.
    void WaitFor(pid_t child, int& status) noexcept;

    /// For a process that was forked from the one that holds them: it gets its signals again.
    void Release() noexcept;

  private:
    sigset_t held{};
    sigset_t former{};
};

/// Ends this process as a program ended, of which waitpid(2) gave this status: with its exit code, or
/// by the signal that ended it, without a core.
[[noreturn]] void EndAs(int status) noexcept;

} // namespace KSYS
