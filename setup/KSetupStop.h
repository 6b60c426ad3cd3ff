// SPDX-License-Identifier: MIT
#pragma once

#include <stdexcept>
#include <string>

namespace KSETUP {

/// A run that was stopped on request before its first change: no failure, so a type of its own. The
/// program answers with the signal that came.
class KSetupStop : public std::runtime_error {
  public:
    /// `words` say where it was stopped, and that nothing was changed.
    explicit KSetupStop(const std::string& words) : std::runtime_error(words) {}
};

} // namespace KSETUP
