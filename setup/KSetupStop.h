// SPDX-License-Identifier: MIT
#pragma once

#include <setup/text/KText.h>

#include <stdexcept>

namespace KSETUP {

/// A run that was stopped on request before its first change: no failure, so a type of its own. The
/// program answers with the signal that came.
class KSetupStop : public std::runtime_error {
  public:
    /// `words` say where it was stopped, and that nothing was changed.
    explicit KSetupStop(const KText& words) : std::runtime_error(words.English()), text(words) {}

    const KText& GetText() const noexcept { return text; } // what() has its English

  private:
    KText text;
};

} // namespace KSETUP
