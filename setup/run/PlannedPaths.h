// SPDX-License-Identifier: MIT
#pragma once

#include <setup/files/KCopyDigests.h>
#include <setup/plan/KPlan.h>
#include <setup/rules/KRunChanges.h>

#include <deque>
#include <set>
#include <string>
#include <vector>

namespace KSETUP {

/// What a plan makes where nothing stands: files, links, directories, profiles and unit files.
std::vector<std::string> ExpectedPaths(const KPlan& plan);

/// The directories that they are in.
std::set<std::string> DirectoriesOf(const std::vector<std::string>& paths);

/// All that a plan may change: what it makes, overwrites or deletes, and the unit files of services.
std::vector<std::string> ChangedPaths(const KPlan& plan);

/// What the copies of patterns are to find, in the order of their rules.
///
/// Lifetime the names are the plan's
std::deque<KRunChanges::Matches> PlannedMatches(const KPlan& plan);

/// The files that are copied, in the order of their copies.
///
/// Lifetime the paths are the plan's
std::vector<const std::string*> CopiedFiles(const KPlan& plan);

/// The copies of which it is known before the run what they leave: from the kit's own files, to
/// targets that nothing else writes to. None where a command runs, which may write anywhere.
///
/// Lifetime the paths are the plan's
std::vector<KCopy> LastingCopies(const KPlan& plan, const std::string& kitDirectory);

} // namespace KSETUP
