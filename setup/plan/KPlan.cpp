// SPDX-License-Identifier: MIT
#include <ins/Names.h>
#include <setup/files/PathText.h>
#include <setup/plan/KPlan.h>
#include <setup/plan/KPlanner.h>
#include <setup/plan/UnitFiles.h>
#include <setup/script/KSetupRuleLine.h>

#include <algorithm>
#include <utility>

namespace KSETUP {

namespace {

using Kind = KPlannedAction::Kind;

} // namespace

bool MakesEntry(Kind kind) noexcept {
    return kind == Kind::CreateDirectory || kind == Kind::CopyFile || kind == Kind::MakeLink ||
           kind == Kind::CreateProfile || kind == Kind::PutOption || kind == Kind::CreateUser;
}

KPlan::KPlan(
    const KScript& script,
    const std::string& section,
    const MacroExpander& expand,
    KPlannedTree& tree,
    const KChangePolicy& policy,
    KServiceFate fate
)
    : KPlan(script, std::make_shared<KScriptRules>(script, expand), section, tree, policy, fate) {}

KPlan::KPlan(
    const KScript& script,
    const std::shared_ptr<KScriptRules>& scriptRules,
    const std::string& section,
    KPlannedTree& tree,
    const KChangePolicy& policy,
    KServiceFate fate
)
    : view(tree.GetView()) {
    const MacroExpander& expand = scriptRules->GetExpander();
    KScript::Unfolded unfolded = script.Unfold(section, scriptRules);
    sections = std::move(unfolded.sections);
    cycles = std::move(unfolded.cycles);
    KPlanner planner(tree, policy, fate, expand);
    rules.reserve(unfolded.rules.size());
    for (const KScriptRule& rule : unfolded.rules) {
        rules.push_back({rule, planner.Plan(rule)});
    }
    protectedPaths = planner.TakeProtected();
    changedUnits = planner.TakeChangedUnits();
    const bool installs = section == KINS::Names::installSection;
    PlanCleanup(installs, tree, policy);
    if (installs) {
        const std::string record = expand("$pathTargetConfig$$iniFile$").c_str();
        NoteChange(record, tree.FindTarget(record)); // also one that stays as it was edited
    }
}

void KPlan::NoteChange(const std::string& path, const KPlannedEntry& former) {
    if (former.attribute != KSYS::ProtectingAttribute::None) {
        protectedPaths.push_back({path, former.attribute});
    }
}

/// What the rules make, or leave as it is: paths as KOwnership::RealPath has them. With the directories
/// above: they are no rubbish as long as something is in them.
std::unordered_set<std::string> KPlan::FindWanted(const KChangePolicy& policy) const {
    std::unordered_set<std::string> wanted;
    const auto& owned = policy.GetOwnership().GetManifest().GetEntries();
    const bool hasOffers = std::any_of(owned.begin(), owned.end(), [](const auto& one) {
        return KChangePolicy::IsOfferedPath(one.first);
    });
    const auto want = [&](const std::string& path) {
        std::string at = policy.GetOwnership().RealPath(path);
        while (at != "/" && wanted.insert(at).second) {
            at = ParentPath(at);
        }
    };
    for (const KPlannedRule& planned : rules) {
        if (planned.rule.type == KINS::KRuleType::Directory &&
            planned.rule.operation == KINS::KRuleOperation::Create) {
            want(planned.rule.fields[1]); // it may be there already, and then nothing is done
        }
        if (SetupOperationOf(planned.rule) == KSetupOperation::CreateEntry) {
            want(planned.rule.own->Get(KSetupField::Path)); // likewise
        }
        for (const KPlannedAction& action : planned.actions) {
            if (action.kind == Kind::InstallService) {
                for (const std::string& path : UnitPaths(*action.path)) {
                    want(path);
                }
            } else if (MakesEntry(action.kind) || action.kind == Kind::KeepFile) {
                want(*action.path);
                // What was offered earlier stays as long as the edited file does.
                if (hasOffers) {
                    const std::string offered = KChangePolicy::OfferedPath(*action.path);
                    if (policy.GetOwnership().Find(offered) != nullptr) {
                        want(offered);
                    }
                }
            }
        }
    }
    return wanted;
}

void KPlan::PlanCleanup(bool installs, KPlannedTree& tree, const KChangePolicy& policy) {
    const auto& entries = policy.GetOwnership().GetManifest().GetEntries();
    if (entries.empty()) {
        return;
    }
    const std::unordered_set<std::string> wanted =
        installs ? FindWanted(policy) : std::unordered_set<std::string>();
    for (auto at = entries.rbegin(); at != entries.rend(); ++at) { // what is in a directory first
        const auto& [path, entry] = *at;
        const KPlannedEntry found = tree.Find(path);
        const KEntryKind now = found.kind;
        if (now == KEntryKind::Nothing || tree.HasChanged(path) ||
            wanted.contains(policy.GetOwnership().RealPath(path))) {
            continue;
        }
        if (entry.kind == KManifestEntry::Kind::Directory) {
            if (now == KEntryKind::Directory && tree.IsEmpty(path)) { // in a purge too
                cleanup.push_back(ActionOf(tree, Kind::DeleteDirectory, path));
                NoteChange(path, found);
                tree.Remove(path);
            }
        } else if (policy.Purges()) {
            continue; // files are the script's affair
        } else if (policy.IsEdited(path)) {
            cleanup.push_back(KeepOf(tree, path, Text("it was edited")));
        } else if (policy.IsRubbish(path, entry, installs)) {
            cleanup.push_back(ActionOf(tree, Kind::DeleteFile, path));
            NoteChange(path, found);
            tree.Remove(path);
        }
    }
}

std::vector<std::string> KPlan::FindFilesThatGo() const {
    std::vector<std::string> paths;
    ForEachAction([&](const KPlannedAction& action) {
        const bool goes =
            action.kind == Kind::DeleteFile || (action.kind == Kind::CopyFile && action.replaces);
        if (goes && !action.lacks) {
            paths.push_back(NormalPath(*action.path));
        }
    });
    return paths;
}

} // namespace KSETUP
