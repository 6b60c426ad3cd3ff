// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KDirectoryRule.h>
#include <setup/plan/KChangePolicy.h>
#include <setup/rules/KRunChanges.h>

namespace KSETUP {

/// A directory rule that minds who owns what: it empties a directory of what is the product's, and
/// makes one where a file of the product's stood.
///
/// Borrows policy and changes for as long as it lives.
/// Thread   as KINS::KDirectoryRule
class KOwnedDirectoryRule : public KINS::KDirectoryRule {
  public:
    KOwnedDirectoryRule(
        KINS::KInstallRuleManagerBase& owner,
        const KSUP::KString& line,
        const KChangePolicy& changePolicy,
        KRunChanges& runChanges
    );
    ~KOwnedDirectoryRule() override;

    void Execute() override;

  private:
    void DeleteOwned();

    const KChangePolicy& policy;
    KRunChanges& changes;
};

} // namespace KSETUP
