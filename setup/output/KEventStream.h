// SPDX-License-Identifier: MIT
#pragma once

#include <setup/output/KRunReport.h>
#include <setup/text/KText.h>

#include <chrono>
#include <string>

namespace KSETUP {

/// A run as one JSON object a line: "start", "rule started", "rule done", "status", "result". The
/// percentage in them is that of the whole run: it never goes back, and is 100 in a "result" of
/// "done" only. A reader who goes away stops nothing.
///
/// Thread   one at a time
class KEventStream {
  public:
    /// Writes to an open descriptor, which stays the caller's.
    explicit KEventStream(int descriptor) noexcept : output(descriptor) {}

    void Start(const std::string& command, const std::string& product, unsigned rules);
    /// `number` counts from 1. `place` is where the script has the rule.
    void RuleStarted(unsigned number, const std::string& place, const KText& text);
    void RuleDone(unsigned number, unsigned percent);
    /// What the rule that runs reports; at most ten times a second.
    void Status(const KText& text, unsigned percent);
    void Result(const KRunReport& report);

  private:
    using Clock = std::chrono::steady_clock;

    void Write(const KJsonObject& event) const;

    int output;
    unsigned percentage = 0; // as told last
    KText lastText;
    unsigned lastPercentage = 0;
    Clock::time_point lastStatus;
};

} // namespace KSETUP
