// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KInstaller.h>
#include <setup/plan/KChangePolicy.h>
#include <setup/rules/KRunChanges.h>
#include <setup/rules/KServiceOverrides.h>
#include <setup/rules/KUsersFile.h>

#include <memory>

namespace KSETUP {

/// Makes the rules that ins-setup has in place of the engine's, or besides them.
///
/// Borrows all; it goes after the rules that it made.
class KRuleMaker {
  public:
    KRuleMaker(
        const KChangePolicy& changePolicy,
        const KServiceOverrides& servicesBefore,
        KRunChanges& runChanges
    )
        : policy(changePolicy),
          services(servicesBefore),
          changes(runChanges) {}

    /// Null for a line that is the engine's.
    std::unique_ptr<KINS::KInstallRule> Make(
        KINS::KInstallRuleManagerBase& manager, const KSUP::KString& type, const KSUP::KString& line
    );

  private:
    std::unique_ptr<KINS::KInstallRule> MakeOwn(
        KINS::KInstallRuleManagerBase& manager, const KSUP::KString& type, const KSUP::KString& line
    );
    std::unique_ptr<KINS::KInstallRule> MakeUser(
        KINS::KInstallRuleManagerBase& manager, const KSUP::KString& type, const KSUP::KString& line
    );

    const KChangePolicy& policy;
    const KServiceOverrides& services;
    KRunChanges& changes;
    std::shared_ptr<KUsersFile> users; // of a run; there once it has a rule for a user
};

} // namespace KSETUP
