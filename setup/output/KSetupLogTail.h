// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace KSETUP {

/// What the setup log says about the run that is being reported.
class KSetupLogTail {
  public:
    /// Reads the end of the log, at most what one run is likely to have written.
    explicit KSetupLogTail(const char* path);

    /// The description of the rule that was executed last; empty when there was none.
    std::string GetLastRule() const;
    /// The last lines, without their time.
    std::vector<std::string> GetLast(std::size_t count) const;

  private:
    std::vector<std::string> lines;
};

} // namespace KSETUP
