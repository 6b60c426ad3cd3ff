// SPDX-License-Identifier: MIT
#pragma once

#include <setup/plan/KChangePolicy.h>
#include <setup/rules/KOwnRule.h>
#include <setup/rules/KRunChanges.h>

namespace KSETUP {

/// `entry=create,DIRECTORY` makes a directory, mode 0755, and its missing parents;
/// `entry=delete,PATH` deletes a file, a link or an empty directory. What is gone already, and a
/// directory that holds something, is fine.
///
/// Borrows policy and changes for as long as it lives.
class KEntryRule : public KOwnRule {
  public:
    KEntryRule(
        KINS::KInstallRuleManagerBase& owner,
        const KSUP::KString& type,
        const KSUP::KString& value,
        const KChangePolicy& changePolicy,
        KRunChanges& runChanges
    )
        : KOwnRule(owner, type, value),
          policy(changePolicy),
          changes(runChanges) {}
    /// Throws   KSUP::KError with errno and the path
    void Execute() override;

  private:
    void Create(const KSUP::KString& path);
    void Delete(const KSUP::KString& path);

    const KChangePolicy& policy;
    KRunChanges& changes;
};

} // namespace KSETUP
