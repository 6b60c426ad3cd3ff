// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

namespace KSETUP {

/// Where a symbolic link leads, and what decides that.
struct KLinkWay {
    std::string end;     ///< without links; of what is missing, the directory in which it would be
    bool isThere = true; ///< false also for links that lead round in a circle
    /// The directories and links that are passed, from the first to the last, without the end.
    std::vector<std::string> passed;

    /// Whether it ends in a kit and passes nothing on the way that is neither in the kit nor above
    /// it.
    bool StaysIn(const std::string& kit) const;
};

/// Follows a link, by its path without another link in it. Missing is what cannot be looked at, too.
KLinkWay FollowLink(const std::string& link);

} // namespace KSETUP
