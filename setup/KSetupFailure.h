// SPDX-License-Identifier: MIT
#pragma once

#include <setup/ExitCode.h>
#include <setup/text/KText.h>

#include <stdexcept>

namespace KSETUP {

/// Ends the program with a message for its user: what is wrong, where, and what to do.
class KSetupFailure : public std::runtime_error {
  public:
    KSetupFailure(int code, const KText& message)
        : std::runtime_error(message.English()),
          exitCode(code),
          text(message) {}

    const KText& GetText() const noexcept { return text; } // what() has its English
    int GetExitCode() const noexcept { return exitCode; }

    /// Something of ins-setup's own that this user may not see.
    bool IsDenied() const noexcept { return exitCode == ExitCode::notRoot; }
    /// Something of ins-setup's own that was read and means nothing: it stays so. What is neither
    /// this nor denied is trouble of the moment, in which nothing is known: not to be taken for
    /// "there is none".
    bool IsDamage() const noexcept { return exitCode == ExitCode::malformedScript; }

  private:
    int exitCode;
    KText text;
};

} // namespace KSETUP
