// SPDX-License-Identifier: MIT
#pragma once

#include <setup/output/KSetupArguments.h>
#include <setup/plan/KPlan.h>
#include <setup/plan/KPlannedTree.h>
#include <setup/script/KMacroContext.h>
#include <setup/text/KText.h>

#include <string>

namespace KSETUP {

/// \file
/// What would end a run besides its rules: before the first one, and after the last.

/// Why the run would be refused because a directory that it changes, or a file in one, cannot be
/// written to. Empty when nothing is known against it. Asked of the disk at the call.
KText WhyNotWritable(const KPlan& plan);

/// Whether systemd runs this machine; it does not in containers and while an image is built.
bool IsSystemdRunning();

/// Whether the plan has service rules, for which a run needs systemd.
bool HasServices(const KPlan& plan);

/// Why an install could not write the product's record on what its rules leave: the link is missing
/// or leads nowhere, or there is no configuration file where it leads. Empty when it could.
KText WhyNoRecord(const KPlannedTree& tree, const KMacroContext& macros);

/// What a run answers that an action with an obstacle ends.
int ExitCodeOf(const KPlannedAction& obstacle) noexcept;

/// What the command line lets a run change.
KChangePolicy::Options OptionsOf(const KSetupArguments& arguments) noexcept;

/// Why the product must not take, or delete in, one of the directories that its script names: it is
/// the system's. Empty when it may. `service` is the product's.
KText WhySystemPlace(
    const KPlan& plan,
    const KChangePolicy& policy,
    const std::string& productPath,
    const std::string& service
);

/// What a directory holds in which a product is installed for the first time, in a sentence; empty
/// for nothing.
KText DescribeForeignContent(const KOwnership& ownership, const std::string& productPath);

/// Said of a product that is installed, of which no manifest tells what it consists of.
inline constexpr const char* followsScript =
    TextFormat("Nothing is written down of what was installed, so "
               "the script is followed, also where it deletes "
               "what may not be the product's.");

/// The first thing that is not the product's and would be replaced or deleted, in words with what to
/// do; empty without one.
KText WhyConflict(const KPlan& plan);

} // namespace KSETUP
