// SPDX-License-Identifier: MIT
#pragma once

#include <setup/plan/KPlan.h>
#include <setup/text/KText.h>

#include <string>

namespace KSETUP {

/// \file
/// Whether others than root can exchange what a run installs, because a directory on the way of the
/// product path is theirs.

/// Whether root, or a service, runs something because of the plan: commands, and services that are
/// installed or started.
bool RunsPrograms(const KPlan& plan);

/// Who could, in words: what is wrong with a directory above the product path, or with the path itself
/// if it is there and not the product's own. Empty for nobody.
KText WhyPlaceIsShared(const KOwnership& ownership, const std::string& productPath);

/// What is told of it where nothing is run, or the run goes on all the same; empty where nobody could.
KText DescribeSharedPlace(const KOwnership& ownership, const std::string& productPath);

/// Why the run is refused: it would run what others can exchange, there or, as the program of a service
/// or of a command, elsewhere or in a directory there that the product did not make. Empty when it is
/// not.
KText WhySharedPlace(
    const KPlan& plan, const KOwnership& ownership, const std::string& productPath
);

} // namespace KSETUP
