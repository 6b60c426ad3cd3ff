// SPDX-License-Identifier: MIT
#pragma once

#include "KMachineState.h"

#include <string>
#include <vector>

namespace KSWEEP {

/// What is root's alone and must stay so: below one directory the same names as at given places, so that
/// who is led there by a link finds what it expects. Each file holds a secret.
class KVictims {
  public:
    /// Takes the names from looks at a product.
    explicit KVictims(std::vector<KLook> looks);

    /// The victim of a path.
    static std::string Of(const std::string& path);

    /// Makes them, whatever is there.
    ///
    /// Throws   std::runtime_error, std::filesystem::filesystem_error
    void Make();
    /// Lays what is the user's own under the name `bait`: named as what is at `path`.
    void LayBait(const std::string& path, const std::string& bait) const;

    /// What became of them, what of them can be read in `places`, and which of the user's own
    /// programs there runs as somebody else; empty when nothing is wrong.
    std::string FindEscape(const std::vector<std::string>& places) const;

  private:
    std::vector<KLook> names;
    KLook asMade;
};

} // namespace KSWEEP
