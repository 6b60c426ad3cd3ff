// SPDX-License-Identifier: MIT
#pragma once

#include <setup/plan/KChangePolicy.h>
#include <setup/rules/KOwnRule.h>

namespace KSETUP {

/// `link=create,TARGET,PATH`: makes a symbolic link whose text is TARGET, letter by letter. It
/// replaces a link, and what is the product's own.
///
/// Borrows the policy for as long as it lives.
class KLinkRule : public KOwnRule {
  public:
    KLinkRule(
        KINS::KInstallRuleManagerBase& owner,
        const KSUP::KString& type,
        const KSUP::KString& value,
        const KChangePolicy& changePolicy
    )
        : KOwnRule(owner, type, value),
          policy(changePolicy) {}
    /// Throws   KSUP::KError with errno and the path
    void Execute() override;

  private:
    const KChangePolicy& policy;
};

} // namespace KSETUP
