// SPDX-License-Identifier: MIT
#include <setup/files/PathText.h>
#include <setup/plan/KPlanner.h>
#include <setup/plan/UnitFiles.h>

#include <algorithm>
#include <climits>
#include <utility>

namespace KSETUP {

namespace {

using Kind = KPlannedAction::Kind;
using Fields = std::vector<std::string>;
using KINS::KRuleOperation;
using KINS::KRuleType;

constexpr std::size_t bytesShown = 60;

/// The field of a rule of the engine's that is, or is a part of, a path that no call of the system
/// takes by far; null for none. What is only just too long is told by the rule that meets it.
const std::string* FindEndlessPath(const KScriptRule& rule) {
    constexpr std::size_t mostBytes = 2 * PATH_MAX; // of a directory and a name, both too long
    const bool hasPaths = rule.type == KRuleType::File || rule.type == KRuleType::Directory ||
                          rule.type == KRuleType::Profile || rule.type == KRuleType::Service;
    const std::size_t count = !hasPaths                         ? 0
                              : rule.type == KRuleType::Profile ? 2 // then come section and key
                                                                : rule.fields.size();
    for (std::size_t index = 1; index < std::min(count, rule.fields.size()); ++index) {
        if (rule.fields[index].size() >= mostBytes) {
            return &rule.fields[index];
        }
    }
    return nullptr;
}

} // namespace

KPlannedAction
ActionOf(const KPlannedTree& tree, Kind kind, const std::string& path, const std::string& source) {
    KPlannedAction action;
    action.kind = kind;
    action.path = &tree.Keep(path);
    action.source = &tree.Keep(source);
    return action;
}

KPlannedAction KeepOf(const KPlannedTree& tree, const std::string& path, const KText& why) {
    KPlannedAction action = ActionOf(tree, KPlannedAction::Kind::KeepFile, path, why.English());
    action.whyKept = why;
    return action;
}

KText WhyNoPlace(const KPlannedPlace& place, const std::string& path) {
    if (place.problem == KPathProblem::None) {
        return {}; // of nearly all
    }
    const std::string directory = ParentPath(NormalPath(path));
    switch (place.problem) {
    case KPathProblem::None:
        return "";
    case KPathProblem::Missing:
        return Text("there is no directory %s", directory);
    case KPathProblem::NoDirectory:
        return Text("%s is no directory", directory);
    case KPathProblem::Link:
        return Text("a symbolic link on the way is not followed: %s", path);
    case KPathProblem::TooLong:
        return Text("a name or a path is too long: %s", path);
    }
    return "";
}

std::vector<KPlannedAction> KPlanner::Plan(const KScriptRule& rule) {
    actions.clear();
    if (const std::string* path = FindEndlessPath(rule)) {
        // Never looked at: each step of its way would be remembered, which is more than memory holds.
        actions.push_back(KeepOf(tree, path->substr(0, bytesShown) + "…", Text("it is too long")));
        actions.back().obstacle =
            Text("a path of %s bytes is longer than any can be", path->size());
        return std::move(actions);
    }
    if (rule.own != nullptr) {
        PlanOwn(*rule.own);
        return std::move(actions);
    }
    if (rule.operation == KRuleOperation::None) {
        return {}; // it does nothing, or there is no run at all
    }
    switch (rule.type) {
    case KRuleType::File:
        PlanFile(rule.operation, rule.fields);
        break;
    case KRuleType::Directory:
        PlanDirectory(rule.operation, rule.fields[1]);
        break;
    case KRuleType::Profile:
        PlanProfile(rule.operation, rule.fields);
        break;
    case KRuleType::Process:
        PlanProcess(rule.operation, rule.fields[1]);
        break;
    case KRuleType::Service:
        PlanService(rule.operation, rule.fields);
        break;
    case KRuleType::Section:
    case KRuleType::None:
        break;
    }
    return std::move(actions);
}

void KPlanner::NoteChange(const std::string& path, const KPlannedEntry& former) {
    if (former.attribute != KSYS::ProtectingAttribute::None) {
        protectedPaths.push_back({path, former.attribute});
    }
}

KText KPlanner::WhyNoPlace(const std::string& path, KPlannedTree::Last last) const {
    return KSETUP::WhyNoPlace(tree.Resolve(path, last, KPlannedTree::Links::Trusted), path);
}

void KPlanner::PlanProcess(KRuleOperation operation, const std::string& command) {
    if (operation == KRuleOperation::Start) {
        services.NoteCommand();
        actions.push_back(ActionOf(tree, Kind::StartCommand, command));
    } else if (operation == KRuleOperation::Stop) {
        actions.push_back(ActionOf(tree, Kind::StopProgram, command));
    }
}

/// What the administrator masked stays so; what is another's is an obstacle.
bool KPlanner::StaysMasked(const std::string& service) const {
    const std::string unit = UnitPaths(service).front();
    return policy.GetOwnership().GetManifest().Find(unit) != nullptr &&
           tree.Find(unit).GetTarget() == "/dev/null";
}

void KPlanner::PlanService(KRuleOperation operation, const Fields& fields) {
    const std::string& name = fields[1];
    const bool isWhole = fields.size() == 5;
    const bool comesUp = operation == KRuleOperation::Install || operation == KRuleOperation::Start;
    if (comesUp && StaysMasked(name)) {
        actions.push_back(KeepOf(tree, UnitPaths(name).front(), Text("it is masked")));
        return;
    }
    if (operation == KRuleOperation::Install) {
        const std::string unit = UnitPaths(name).front();
        const KPlannedEntry former = tree.Find(unit);
        actions.push_back(ActionOf(tree, Kind::InstallService, name, isWhole ? fields[3] : ""));
        actions.back().obstacle = isWhole ? services.Install(name, fields[2], fields[3], fields[4])
                                          : services.Install(name, "", "", "");
        if (WasMadeByPlan(unit)) { // else it stays as it is
            NoteChange(unit, former);
            changedUnits.push_back(name);
        }
    } else if (operation == KRuleOperation::Start) {
        actions.push_back(ActionOf(tree, Kind::StartService, name));
        actions.back().obstacle = services.Start(name);
    } else if (operation == KRuleOperation::Stop) {
        actions.push_back(ActionOf(tree, Kind::StopService, name));
        actions.back().obstacle = services.Stop(name);
    } else if (operation == KRuleOperation::Remove) {
        const std::string unit = UnitPaths(name).front();
        const KPlannedEntry former = tree.Find(unit);
        actions.push_back(ActionOf(tree, Kind::RemoveService, name));
        services.Remove(name);
        if (former.kind != KEntryKind::Nothing && !tree.Exists(unit)) { // else it is not ours
            NoteChange(unit, former);
            changedUnits.push_back(name);
        }
    }
}

} // namespace KSETUP
