// SPDX-License-Identifier: MIT
#pragma once

#include <setup/files/KCopyDigests.h>
#include <setup/plan/KPlan.h>
#include <sup++/KDirectory.h>
#include <sup++/KString.h>

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <bundle/KSha256.h>

namespace KSETUP {

/// Files of a bundle that was unpacked for this run alone. They get a second name in their place where
/// a copy would be no other: nothing of them is written again, they need no more room, and the first
/// name goes with the directory they were unpacked to.
///
/// Lifetime the paths are the plan's
/// Threads  constructed on one; Link on the run's
class KFileSharing {
  public:
    /// A file as the bundle's table has it; with no sum where that is not known.
    struct Unpacked {
        std::uint64_t byteCount = 0;
        timespec changed{};
        std::optional<KBUNDLE::KSha256Bytes> sha256;
    };

    /// Of the copies that last (LastingCopies), those from such a kit to where nothing stands, on the
    /// same file system, whose rights nothing else changes. None of another kit.
    KFileSharing(
        const KPlan& plan, const std::vector<KCopy>& lasting, const std::string& kitDirectory
    );

    /// By its normal path.
    bool IsShared(const std::string& target) const { return shared.contains(target); }

    /// `digest` is what is known of the file from its unpacking; it has no sum where nothing is.
    ///
    /// Returns  whether it was done; else nothing was, and the file has to be copied
    bool Link(
        const KSUP::KString& source,
        KSUP::KDirectory* fromDirectory,
        const KSUP::KString& target,
        KSUP::KDirectory* toDirectory,
        KFileDigest& digest
    );

  private:
    int unpackedSince = -1; // opened before the kit was unpacked
    bool isTracked = false;
    std::unordered_map<std::string_view, Unpacked> shared; // by their targets
};

} // namespace KSETUP
