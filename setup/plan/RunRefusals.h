// SPDX-License-Identifier: MIT
#pragma once

#include <setup/plan/KPlan.h>
#include <setup/plan/KPlannedTree.h>
#include <setup/script/KMacroContext.h>

#include <string>

namespace KSETUP {

/// \file
/// What would end a run besides its rules: before the first one, and after the last.

/// Why the run would be refused because a directory that it changes, or a file in one, cannot be
/// written to. Empty when nothing is known against it. Asked of the disk at the call.
std::string WhyNotWritable(const KPlan& plan);

/// Whether systemd runs this machine; it does not in containers and while an image is built.
bool IsSystemdRunning();

/// Whether the plan has service rules, for which a run needs systemd.
bool HasServices(const KPlan& plan);

/// Why an install could not write the product's record on what its rules leave: the link is missing
/// or leads nowhere, or there is no configuration file where it leads. Empty when it could.
std::string WhyNoRecord(const KPlannedTree& tree, const KMacroContext& macros);

} // namespace KSETUP
