// SPDX-License-Identifier: MIT
#pragma once

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

  private:
    int exitCode;
};

} // namespace KSETUP
