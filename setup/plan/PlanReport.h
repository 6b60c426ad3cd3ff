// SPDX-License-Identifier: MIT
#pragma once

#include <setup/plan/KPlan.h>
#include <setup/text/KText.h>

#include <string>
#include <vector>

namespace KSETUP {

/// A plan with what its reader has to know beside it. Borrows the plan.
struct KPlanReport {
    bool installs = true;
    std::string product;
    std::string version; ///< what would be installed, or what is and would be removed
    unsigned buildNumber = 0;
    std::string path;
    std::string script;
    const KPlan* plan = nullptr;
    std::vector<KPlan::Space> space;
    std::vector<KText> notes; ///< further sentences for the reader
    /// Why the run would be refused before its first rule; empty when it would not be.
    KText refusal;
    /// Why the run would end when it writes the record, after its last rule; empty when not.
    KText recordObstacle;
    /// Whether an install would find this kit installed, with everything as it was left, and do
    /// nothing. Also false where that cannot be known.
    bool isUpToDate = false;
};

/// How often a plan does something, and what it takes.
struct KPlanTotals {
    std::size_t created = 0; ///< files, links, profiles
    std::size_t overwritten = 0;
    std::size_t deleted = 0;
    std::size_t kept = 0; ///< that a rule names, and that stay as they are
    std::size_t directoriesCreated = 0;
    std::size_t directoriesDeleted = 0;
    std::size_t services = 0;
    std::size_t commands = 0;
    std::size_t obstacles = 0; ///< at which the run would end
};

KPlanTotals CountTotals(const KPlan& plan);

/// For people: each rule with its line in the script, under it what it would do, then the sums.
KText ToText(const KPlanReport& report);
/// One object in one line, with "schema": 1. Bytes that are no UTF-8 become U+FFFD.
std::string ToJson(const KPlanReport& report, int exitCode);

} // namespace KSETUP
