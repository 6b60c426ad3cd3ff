// SPDX-License-Identifier: MIT
#pragma once

#include <setup/plan/KPlan.h>

#include <string>
#include <vector>

namespace KSETUP {

/// The processes that run a file which the plan replaces or deletes, as "dpsd (1234), /opt/…".
std::vector<std::string> FindRunningPrograms(const KPlan& plan);

} // namespace KSETUP
