// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace KSETUP {

/// The file to which the commands of a run write, beside the setup log. Of those whose failure does not matter
/// to the run this is the only place that tells.
///
/// Thread   the main thread's; BeginRule any
class KCommandOutput {
  public:
    /// From here on commands write to the end of this file, which need not be there.
    ///
    /// Throws   KSetupFailure
    void Begin(const std::string& file);
    /// The file's path when commands wrote to it since; else empty.
    std::string FindWritten() const;

    /// What is written from here on is of the next rule.
    void BeginRule() noexcept;
    /// The last lines of what this rule wrote, at most ten and two KiB, as a terminal would show them in the end:
    /// without colours, and of a line that was drawn over the last text. What is cut off in front is "…".
    std::vector<std::string> ReadRuleEnd() const;

  private:
    std::string path;
    std::uintmax_t sizeBefore = 0;
    std::atomic<std::uintmax_t> ruleBegin = 0;
};

} // namespace KSETUP
