// SPDX-License-Identifier: MIT
#pragma once

#include <setup/ExitCode.h>

#include <stdexcept>
#include <string>

namespace KSETUP {

/// Ends the program with a message for its user: what is wrong, where, and what to do.
class KSetupFailure : public std::runtime_error {
  public:
    KSetupFailure(int code, const std::string& message)
        : std::runtime_error(message),
          exitCode(code) {}

    int GetExitCode() const noexcept { return exitCode; }

    /// Something of ins-setup's own that this user may not see.
    bool IsDenied() const noexcept { return exitCode == ExitCode::notRoot; }
    /// Something of ins-setup's own that was read and means nothing: it stays so. What is neither
    /// this nor denied is trouble of the moment, in which nothing is known: not to be taken for
    /// "there is none".
    bool IsDamage() const noexcept { return exitCode == ExitCode::malformedScript; }

  private:
    int exitCode;
};

} // namespace KSETUP
