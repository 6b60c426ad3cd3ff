// SPDX-License-Identifier: MIT
#pragma once

#include <setup/rules/KOwnRule.h>
#include <setup/rules/KRunChanges.h>

namespace KSETUP {

/// `mode=set,PATH,MODE[,OWNER[,GROUP]]`: gives a file or a directory its permission bits and, where
/// they are named, its owner and group. A link is refused, and so is one on the way that others than
/// root could have laid. Without GROUP the group stays.
///
/// Borrows the changes for as long as it lives.
class KModeRule : public KOwnRule {
  public:
    KModeRule(
        KINS::KInstallRuleManagerBase& owner,
        const KSUP::KString& type,
        const KSUP::KString& value,
        KRunChanges& runChanges
    )
        : KOwnRule(owner, type, value),
          changes(runChanges) {}
    /// Throws   KSUP::KError with errno and the path; for a user or group that there is not
    void Execute() override;

  private:
    KRunChanges& changes;
};

} // namespace KSETUP
