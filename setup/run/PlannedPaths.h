// SPDX-License-Identifier: MIT
#pragma once

#include <setup/plan/KPlan.h>
#include <setup/preflight/KDigestPrefetch.h>

#include <string>
#include <vector>

namespace KSETUP {

/// What a plan leaves: files, links and directories that its rules make, and the directories on the
/// way to them that are the product's own, which an earlier run may have made: from the product path
/// on, and from the service's directory in /etc on.
std::vector<std::string>
MadePaths(const KPlan& plan, const std::string& productPath, const std::string& serviceName);

/// The directories of the product's own, in /etc too, in which a plan makes or replaces something.
std::vector<std::string>
OwnDirectories(const KPlan& plan, const std::string& productPath, const std::string& serviceName);

/// All that a plan may change: what it makes, overwrites or deletes, and the unit files of services.
std::vector<std::string> ChangedPaths(const KPlan& plan);

/// The copies of which it is known before the run what they leave: from the kit's own files, to
/// targets that nothing else writes to. None where a command runs, which may write anywhere.
std::vector<KCopy> LastingCopies(const KPlan& plan, const std::string& kitDirectory);

} // namespace KSETUP
