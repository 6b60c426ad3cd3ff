// SPDX-License-Identifier: MIT
#pragma once

#include <setup/output/KProgressRate.h>
#include <setup/output/KProgressView.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace KSETUP {

/// Shows how far a run is: on a terminal a bar that is drawn over, at most ten times a second;
/// anywhere else one plain line for each rule, and one every ten seconds for a rule that takes long.
///
/// Thread   the main thread's
class KSetupProgress {
  public:
    using Clock = KProgressRate::Clock;

    /// Units    `isColoured` of the terminal
    explicit KSetupProgress(bool isColoured = false);

    bool IsTerminal() const noexcept { return terminal; }

    /// A rule began.
    void BeginRule(const KProgressView& view, Clock::time_point time = Clock::now());
    /// Shows how far it is, if it is time or `now` says so.
    void Show(const KProgressView& view, bool now, Clock::time_point time = Clock::now());
    /// The run is over: the bar stays as it is, without a rule.
    void End(const KProgressView& view);
    /// Goes behind what is drawn, so that other text can follow.
    void Finish();

  private:
    void Draw(std::vector<std::string> lines);

    const bool terminal;
    const bool colour;
    Clock::time_point lastShown;
    KProgressRate rate;
    std::vector<std::string> shown;
};

} // namespace KSETUP
