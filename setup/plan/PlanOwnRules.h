// SPDX-License-Identifier: MIT
#pragma once

#include <setup/plan/KChangePolicy.h>
#include <setup/plan/KPlan.h>
#include <setup/plan/KPlannedTree.h>
#include <setup/script/KSetupRuleLine.h>
#include <setup/text/KText.h>

#include <set>
#include <string>

namespace KSETUP {

/// What rules of ins-setup's own types would do that no rule of the engine does: modes and owners,
/// users, commands. It remembers the users that rules make.
///
/// Borrows the tree and the macros. One at a time.
class KOwnRules {
  public:
    KOwnRules(KPlannedTree& plannedTree, const MacroExpander& macros);

    const std::string& GetUsersFile() const noexcept { return usersFile; }
    /// Of a line of SetMode, CreateUser or RunCommand.
    KPlannedAction Plan(const KSetupRuleLine& line);

  private:
    KPlannedAction SetMode(const KSetupRuleLine& line);
    KPlannedAction CreateUser(const KSetupRuleLine& line);
    KText WhyNoMode(const KSetupRuleLine& line, const KPlannedPlace& place) const;
    KText WhyNoOwner(const KSetupRuleLine& line) const;

    KPlannedTree& tree;
    std::string usersFile;
    std::set<std::string> users; ///< that rules make; their groups have the same names
};

/// How a rule of ins-setup's own has what it copies taken.
KChangePolicy::Treatment TreatmentOf(const KSetupRuleLine& line) noexcept;

} // namespace KSETUP
