// SPDX-License-Identifier: MIT
#pragma once

#include <setup/files/KCopyDigests.h>
#include <setup/plan/KPlan.h>
#include <sup++/KDirectory.h>
#include <sup++/KString.h>

#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace KSETUP {

/// Files of a bundle that was unpacked for this run alone. They get a second name in their place where
/// a copy would be no other: nothing of them is written again, they need no more room, and the first
/// name goes with the directory they were unpacked to.
///
/// Lifetime the paths are the plan's
/// Threads  constructed on one; Link on the run's
class KFileSharing {
  public:
    /// Of the copies that last (LastingCopies), those from such a kit to where nothing stands, on the
    /// same file system, whose rights nothing else changes. None of another kit.
    KFileSharing(
        const KPlan& plan, const std::vector<KCopy>& lasting, const std::string& kitDirectory
    );

    /// By its normal path.
    bool IsShared(const std::string& target) const { return shared.contains(target); }

    /// Returns  whether it was done; else nothing was, and the file has to be copied
    bool Link(
        const KSUP::KString& source,
        KSUP::KDirectory* fromDirectory,
        const KSUP::KString& target,
        KSUP::KDirectory* toDirectory
    );

  private:
    int unpackedSince = -1; // opened before the kit was unpacked
    bool isTracked = false;
    std::unordered_set<std::string_view> shared;
};

} // namespace KSETUP
