// SPDX-License-Identifier: MIT
#pragma once

#include <setup/plan/KPlan.h>

#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace KSETUP {

/// One action of a plan, in its place.
struct KPlanStep {
    const KPlannedRule* rule;
    const KPlannedAction* action;
    std::string_view path; ///< the action's, normal where it is one of a file
    /// A command stood before it: what commands make and change is not known.
    bool commandRan;
};

/// All actions of a plan in their order. Borrows the plan.
///
/// Thread   any
class KPlanSteps {
  public:
    explicit KPlanSteps(const KPlan& plan);
    KPlanSteps(const KPlanSteps&) = delete;
    KPlanSteps& operator=(const KPlanSteps&) = delete;

    const std::vector<KPlanStep>& Get() const noexcept { return steps; }

  private:
    std::vector<KPlanStep> steps;
    std::deque<std::string> normalPaths; // those that the script writes otherwise
};

} // namespace KSETUP
