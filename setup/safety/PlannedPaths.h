// SPDX-License-Identifier: MIT
#pragma once

#include <setup/plan/KPlan.h>

#include <string>
#include <vector>

namespace KSETUP {

/// The paths of a plan, each once, sorted. What a rule lacks (a source that is not there) is left
/// out. What commands and services change is not known and so not in here.

/// All that would be made, replaced, changed or deleted: what has to be writable, and what a backup
/// keeps.
std::vector<std::string> ChangedPaths(const KPlan& plan);
/// Files that stand there and would be replaced or deleted.
std::vector<std::string> ReplacedPaths(const KPlan& plan);
/// What would stand there afterwards because of the plan: what a manifest lists.
std::vector<std::string> InstalledPaths(const KPlan& plan);
/// Whether the plan installs, removes, starts or stops a service.
bool HasServices(const KPlan& plan) noexcept;

} // namespace KSETUP
