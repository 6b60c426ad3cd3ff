// SPDX-License-Identifier: MIT
#include <setup/check/PlanSteps.h>
#include <setup/files/PathText.h>

namespace KSETUP {

namespace {

using Kind = KPlannedAction::Kind;

} // namespace

std::vector<KPlanStep> StepsOf(const KPlan& plan) {
    std::vector<KPlanStep> steps;
    bool commandRan = false;
    for (const KPlannedRule& rule : plan.GetRules()) {
        for (const KPlannedAction& action : rule.actions) {
            steps.push_back(
                {&rule,
                 &action,
                 action.IsOfEntry() ? NormalPath(action.path) : action.path,
                 commandRan}
            );
            commandRan = commandRan || action.kind == Kind::StartCommand;
        }
    }
    return steps;
}

bool MakesFile(const KPlannedAction& action) noexcept {
    return !action.lacks && (action.kind == Kind::CopyFile || action.kind == Kind::MakeLink ||
                             action.kind == Kind::CreateProfile || action.kind == Kind::PutOption);
}

std::string InKit(const std::string& path, const KCheckContext& context) {
    const std::string normal = NormalPath(path);
    const std::string& kit = context.GetKitDirectory();
    return normal != kit && IsAtOrBelow(normal, kit) ? normal.substr(kit.size() + 1) : normal;
}

} // namespace KSETUP
