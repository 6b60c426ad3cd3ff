// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KServiceRule.h>
#include <setup/rules/KRunChanges.h>
#include <setup/rules/KServiceOverrides.h>

namespace KSETUP {

/// A service rule that keeps the administrator's word: in an upgrade, what was stopped, disabled or
/// masked stays so.
///
/// Borrows both for as long as it lives.
/// Thread   as KINS::KServiceRule
class KOwnedServiceRule : public KINS::KServiceRule {
  public:
    KOwnedServiceRule(
        KINS::KInstallRuleManagerBase& owner,
        const KSUP::KString& line,
        const KServiceOverrides& servicesBefore,
        KRunChanges& runChanges
    );
    ~KOwnedServiceRule() override;

    void Execute() override;

  private:
    const KServiceOverrides& before;
    KRunChanges& changes;
};

} // namespace KSETUP
