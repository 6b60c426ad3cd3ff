// SPDX-License-Identifier: MIT
#pragma once

#include <setup/plan/KPlan.h>

#include <optional>
#include <string>

namespace KSETUP {

/// Why a command could not be run.
struct KMissingProgram {
    KText words;  ///< the rule with its place, and what it lacks, without a full stop
    KText advice; ///< a sentence, with one
};

/// The first command of the plan for which this system lacks the shell or, where it is a simple one, the
/// program. What the plan installs before it is there; behind a command nothing is known any more. Asks
/// the shell, which runs nothing for that.
///
/// `script` is the path of the plan's script
/// Throws   std::bad_alloc
std::optional<KMissingProgram> FindMissingProgram(const KPlan& plan, const std::string& script);

} // namespace KSETUP
