// SPDX-License-Identifier: MIT
#include <setup/check/KPlanSteps.h>
#include <setup/files/PathText.h>

namespace KSETUP {

KPlanSteps::KPlanSteps(const KPlan& plan) {
    using Kind = KPlannedAction::Kind;
    bool commandRan = false;
    for (const KPlannedRule& rule : plan.GetRules()) {
        for (const KPlannedAction& action : rule.actions) {
            std::string_view path = *action.path;
            if (action.IsOfEntry() && !IsNormalPath(path)) {
                path = normalPaths.emplace_back(NormalPath(*action.path));
            }
            steps.push_back({&rule, &action, path, commandRan});
            commandRan =
                commandRan || action.kind == Kind::StartCommand || action.kind == Kind::RunCommand;
        }
    }
}

} // namespace KSETUP
