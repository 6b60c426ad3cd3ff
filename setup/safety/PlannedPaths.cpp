// SPDX-License-Identifier: MIT
#include <setup/safety/PlannedPaths.h>

#include <set>

namespace KSETUP {

namespace {

using Kind = KPlannedAction::Kind;

enum class Effect { None, Makes, Deletes, Service };

Effect EffectOf(Kind kind) noexcept {
    switch (kind) {
    case Kind::CreateDirectory:
    case Kind::CopyFile:
    case Kind::MakeLink:
    case Kind::CreateProfile:
    case Kind::PutOption:
    case Kind::RemoveOption: // the profile stays
        return Effect::Makes;
    case Kind::DeleteDirectory:
    case Kind::DeleteFile:
        return Effect::Deletes;
    case Kind::InstallService:
    case Kind::RemoveService:
    case Kind::StartService:
    case Kind::StopService:
        return Effect::Service;
    case Kind::StartCommand:
    case Kind::StopProgram:
        break;
    }
    return Effect::None;
}

/// The actions that change the file system, in the order of the plan.
template <typename Visitor>
void ForEachChange(const KPlan& plan, const Visitor& visit) {
    for (const KPlannedRule& rule : plan.GetRules()) {
        for (const KPlannedAction& action : rule.actions) {
            const Effect effect = EffectOf(action.kind);
            if (!action.lacks && (effect == Effect::Makes || effect == Effect::Deletes)) {
                visit(action, effect, KPlannedTree::Normal(action.path));
            }
        }
    }
}

std::vector<std::string> ToVector(const std::set<std::string>& paths) {
    return {paths.begin(), paths.end()};
}

} // namespace

std::vector<std::string> ChangedPaths(const KPlan& plan) {
    std::set<std::string> paths;
    ForEachChange(plan, [&](const KPlannedAction&, Effect, const std::string& path) {
        paths.insert(path);
    });
    return ToVector(paths);
}

std::vector<std::string> ReplacedPaths(const KPlan& plan) {
    std::set<std::string> paths;
    ForEachChange(plan, [&](const KPlannedAction& action, Effect, const std::string& path) {
        const bool replaces = action.kind == Kind::CopyFile && action.replaces;
        if (replaces || action.kind == Kind::DeleteFile) {
            paths.insert(path);
        }
    });
    return ToVector(paths);
}

std::vector<std::string> InstalledPaths(const KPlan& plan) {
    std::set<std::string> paths;
    ForEachChange(plan, [&](const KPlannedAction&, Effect effect, const std::string& path) {
        if (effect == Effect::Makes) {
            paths.insert(path);
        } else {
            paths.erase(path);
        }
    });
    return ToVector(paths);
}

bool HasServices(const KPlan& plan) noexcept {
    for (const KPlannedRule& rule : plan.GetRules()) {
        for (const KPlannedAction& action : rule.actions) {
            if (EffectOf(action.kind) == Effect::Service) {
                return true;
            }
        }
    }
    return false;
}

} // namespace KSETUP
