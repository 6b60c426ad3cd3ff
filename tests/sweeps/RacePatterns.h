// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace KSWEEP {

/// What a user may write to, and swaps there.
struct KRaceSetUp {
    std::string name;                 ///< in a complaint
    std::vector<std::string> opened;  ///< directories that become the user's; made where missing
    std::vector<std::string> swapped; ///< entries in them
    std::vector<std::string> watched; ///< directories in which temporary files are looked for
    bool isOfGroup = false;           ///< the user's group may write in them; they stay root's
    bool isLate = false;              ///< the user gets them while the run goes on, as they are
    bool isSlow = false;              ///< the run waits at each call, so that much comes between
    bool byPipe = true;               ///< also by FIFOs; a service manager would wait for one
    std::string kit;                  ///< the kit's path in place of root's own; empty for that
    std::string control;              ///< the shell's way, in place of the pattern's
    std::string target;               ///< where links lead to; empty for the victim of the entry
};

/// A place on the way of a run.
struct KRacePattern {
    std::string name;
    bool isPlain = true; ///< of the product that runs nothing, else of the other one
    std::vector<KRaceSetUp> setUps;
    /// A shell's way of doing the same, as root. It has to be led astray, in each set-up.
    std::string control;
};

const std::vector<KRacePattern>& RacePatterns();

} // namespace KSWEEP
