// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>

namespace KSYS {

/// Takes note of SIGINT, SIGTERM and SIGHUP instead of dying of them, for the life of the program.
/// A reader who goes away (SIGPIPE) stops nothing either.
///
/// Thread   the handlers store a number; everything else is the main thread's
class KStopSignals {
  public:
    KStopSignals();

    /// A signal that came since the last call, or 0.
    int Take() noexcept;
    /// The first signal that came, or 0.
    int GetFirst() const noexcept { return first; }

    /// The next line, without its end. Nothing when the input ends before it does or cannot be
    /// read, or when a signal comes, or came before: GetFirst() tells which.
    std::optional<std::string> ReadLine(int descriptor);

  private:
    bool WaitForInput(int descriptor);

    int first = 0;
};

} // namespace KSYS
