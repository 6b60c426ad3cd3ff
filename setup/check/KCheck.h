// SPDX-License-Identifier: MIT
#pragma once

#include <setup/check/KFinding.h>
#include <setup/kit/KSetupKit.h>
#include <setup/plan/KDiskView.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace KSETUP {

/// What the check of a kit found.
struct KCheckResult {
    std::vector<KFinding> findings; ///< sorted by file and line
    /// Whether a load would never end, on a machine of either architecture. Nothing may override
    /// that.
    bool hasCycle = false;

    std::size_t Count(KSeverity severity) const noexcept;
    bool HasErrors() const noexcept { return Count(KSeverity::Error) != 0; }
};

/// Looks for mistakes in a kit's script, as for an install to `productPath` (empty: where the
/// script proposes). Sets the path map as a run for it does; changes nothing else.
///
/// Throws   KSetupFailure when the kit cannot be read
KCheckResult CheckKit(const KSetupKit& kit, const std::string& productPath = {});

/// The same without warnings, by what the view shows: for a run, which shows none.
KCheckResult CheckKitForErrors(
    const KSetupKit& kit, const std::string& productPath, const std::shared_ptr<KDiskView>& view
);

} // namespace KSETUP
