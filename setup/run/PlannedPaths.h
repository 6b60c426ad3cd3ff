// SPDX-License-Identifier: MIT
#pragma once

#include <setup/plan/KPlan.h>
#include <setup/safety/KDigestsAhead.h>

#include <string>
#include <vector>

namespace KSETUP {

/// What a plan leaves: files, links and directories that its rules make.
std::vector<std::string> MadePaths(const KPlan& plan);

/// All that a plan may change: what it makes, overwrites or deletes, and the unit files of services.
std::vector<std::string> ChangedPaths(const KPlan& plan);

/// The copies whose targets are left as they are copied: no later rule writes into them. None where a
/// command runs, which may write anywhere.
std::vector<KCopy> LastingCopies(const KPlan& plan);

} // namespace KSETUP
