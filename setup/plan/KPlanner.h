// SPDX-License-Identifier: MIT
#pragma once

#include <setup/plan/KChangePolicy.h>
#include <setup/plan/KPlan.h>
#include <setup/plan/KPlannedServices.h>
#include <setup/plan/KPlannedTree.h>
#include <setup/plan/PlanOwnRules.h>
#include <setup/script/KSetupRuleLine.h>
#include <setup/text/KText.h>

#include <string>
#include <utility>
#include <vector>

namespace KSETUP {

/// Finds out what single rules do, on the tree that the ones before left. What stands there already
/// is changed as the policy says. Borrows both.
///
/// Thread   one at a time
class KPlanner {
  public:
    KPlanner(
        KPlannedTree& plannedTree,
        const KChangePolicy& changePolicy,
        KServiceFate fate,
        const MacroExpander& expand
    )
        : tree(plannedTree),
          policy(changePolicy),
          services(plannedTree, fate),
          ownRules(plannedTree, expand) {}

    std::vector<KPlannedAction> Plan(const KScriptRule& rule);
    /// What the rules so far would change and cannot: see KPlan::GetProtected.
    std::vector<KPlan::Protected> TakeProtected() { return std::move(protectedPaths); }
    /// See KPlan::GetChangedUnits.
    std::vector<std::string> TakeChangedUnits() { return std::move(changedUnits); }

  private:
    /// Of what stands at a path before it is written into, replaced or deleted.
    void NoteChange(const std::string& path, const KPlannedEntry& former);
    void PlanFile(KINS::KRuleOperation operation, const std::vector<std::string>& fields);
    void CopyMatches(
        const std::string& pattern,
        const std::string& target,
        KChangePolicy::Treatment treatment = KChangePolicy::Treatment::ByPlace
    );
    void Copy(
        const std::string& source,
        const std::string& target,
        KChangePolicy::Treatment treatment = KChangePolicy::Treatment::ByPlace
    );
    /// Whether what stands at the target stays; the new one may then lie beside it.
    bool Keeps(const KPlannedAction& copy);
    void Delete(const std::string& path, KChangePolicy::Named named);
    /// Deletes what is the product's own and in the way of something of another kind.
    bool MakeWay(const std::string& path);
    bool WasMadeByPlan(const std::string& path) const;
    /// Of a path that leads to the place.
    bool WasMadeByPlan(const std::string& path, const KPlannedPlace& place) const;
    /// Of what a directory or a profile names: what cannot be deleted stays, without a word.
    void DeleteIfPossible(const std::string& path, KChangePolicy::Named named);
    void Link(const std::string& target, const std::string& path);
    void PlanDirectory(KINS::KRuleOperation operation, const std::string& path);
    void DeleteEmptyDirectory(const std::string& path);
    /// Whether above the path something stands that was there before and is no directory.
    bool IsBlockedByDisk(const std::string& path) const;
    void PlanProfile(KINS::KRuleOperation operation, const std::vector<std::string>& fields);
    void Create(const std::string& profile);
    void Put(const std::string& profile, const KPlannedTree::Option& option);
    void
    RemoveListed(const std::string& profile, const std::string& section, const std::string& text);
    void PlanProcess(KINS::KRuleOperation operation, const std::string& command);
    void PlanService(KINS::KRuleOperation operation, const std::vector<std::string>& fields);
    /// Of ins-setup's own types.
    void PlanOwn(const KSetupRuleLine& line);
    void CopyOwn(const KSetupRuleLine& line);
    void DeleteOwn(const std::string& path);
    void CreateUser(const KSetupRuleLine& line);
    bool StaysMasked(const std::string& service) const;
    /// Why nothing can be made at the path, nor deleted: the way to it. Empty when it can.
    KText WhyNoPlace(const std::string& path, KPlannedTree::Last last) const;

    KPlannedTree& tree;
    const KChangePolicy& policy;
    KPlannedServices services;
    KOwnRules ownRules;
    std::vector<KPlannedAction> actions;
    std::vector<KPlan::Protected> protectedPaths;
    std::vector<std::string> changedUnits;
};

/// An action of a kind, at a path. The tree keeps the texts.
KPlannedAction ActionOf(
    const KPlannedTree& tree,
    KPlannedAction::Kind kind,
    const std::string& path,
    const std::string& source = {}
);
/// A file that stays, and why.
KPlannedAction KeepOf(const KPlannedTree& tree, const std::string& path, const KText& why);

/// What is wrong with the place that a path leads to, in words; empty for nothing.
KText WhyNoPlace(const KPlannedPlace& place, const std::string& path);

} // namespace KSETUP
