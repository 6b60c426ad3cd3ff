// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/KString.h>

#include <chrono>
#include <string>

namespace KSETUP {

/// Shows how far a run is: on a terminal one line that is drawn over, at most ten times a second;
/// anywhere else one plain line for each rule.
///
/// Thread   the main thread's
class KSetupProgress {
  public:
    KSetupProgress();

    bool IsTerminal() const noexcept { return terminal; }

    /// Draws the line, if it is time or `now` says so. Nothing where there is no terminal.
    void Draw(unsigned done, unsigned all, const KSUP::KString& status, bool now);
    /// Ends the line, so that other text can follow.
    void Finish();
    /// Writes a line for a rule. Nothing on a terminal.
    void WriteLine(unsigned number, unsigned all, const KSUP::KString& text);

  private:
    using Clock = std::chrono::steady_clock;

    const bool terminal;
    Clock::time_point lastDrawn;
    std::string shown;
};

} // namespace KSETUP
