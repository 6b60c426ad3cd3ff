// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

namespace KSETUP {

/// The file to which the commands of a run write, beside the setup log. Whether a command failed
/// does not matter to the run, so this is the only place that tells.
///
/// Thread   the main thread's
class KCommandOutput {
  public:
    /// From here on commands write to the end of this file, which need not be there.
    ///
    /// Throws   KSetupFailure
    void Begin(const std::string& file);
    /// The file's path when commands wrote to it since; else empty.
    std::string FindWritten() const;

  private:
    std::string path;
    std::uintmax_t sizeBefore = 0;
};

} // namespace KSETUP
