// SPDX-License-Identifier: MIT
#pragma once

#include <setup/plan/KChangePolicy.h>
#include <setup/plan/KPlan.h>

#include <set>
#include <string>
#include <vector>

namespace KSETUP {

/// What the administrator had done to a product's services before an upgrade: it stays so. Only
/// services of which the product's manifest has the unit file count; the others are new.
///
///     stopped   it was at rest, and had not failed
///     disabled  the link that starts it at boot was gone
///     masked    a link to /dev/null stood in the place of its unit file
struct KServiceOverrides {
    std::set<std::string> stopped;
    std::set<std::string> disabled;
    std::set<std::string> masked;

    /// Asks systemd, and the disk. What cannot be asked about counts as running.
    static KServiceOverrides Look(const KPlan& plan, const KOwnership& ownership);
    /// As one text for the state file, and back: "stopped:a disabled:a".
    std::string ToText() const;
    static KServiceOverrides FromText(const std::string& text);
};

} // namespace KSETUP
