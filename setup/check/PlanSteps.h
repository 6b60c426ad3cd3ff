// SPDX-License-Identifier: MIT
#pragma once

#include <setup/check/KCheckContext.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace KSETUP {

/// One action of a plan, in its place.
struct KPlanStep {
    const KPlannedRule* rule;
    const KPlannedAction* action;
    std::string path; ///< the action's, normal where it is one of a file
    /// A command stood before it: what commands make and change is not known.
    bool commandRan;
};

/// All actions of a plan in their order.
///
/// Lifetime the plan's
std::vector<KPlanStep> StepsOf(const KPlan& plan);

/// Whether the action makes a file or a link.
bool MakesFile(const KPlannedAction& action) noexcept;

/// A rule that copies, of whatever type.
struct KCopyLine {
    std::string name; ///< of the file; perhaps a pattern
    std::string from; ///< the directory
    std::string to;   ///< likewise; empty where the line has none
    std::string newName;
    bool isPattern = false;
    std::size_t nameField = 1; ///< which field has it
};

/// Nothing for a rule that does not copy.
std::optional<KCopyLine> CopyLineOf(const KScriptRule& rule);

/// A path of a step as the kit's author knows it: one in the kit without the kit's directory.
std::string InKit(const std::string& path, const KCheckContext& context);

} // namespace KSETUP
