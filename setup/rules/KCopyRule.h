// SPDX-License-Identifier: MIT
#pragma once

#include <setup/rules/KOwnedFileRule.h>
#include <setup/script/KSetupRuleLine.h>

namespace KSETUP {

/// `config=copy,NAME,FROM,TO[,NEWNAME]`, `config=replace,…` and `entry=copy,FROM,TO`: copies as
/// `file=copy` does; the line says whether the file is configuration.
///
/// Borrows policy and changes for as long as it lives.
/// Thread   as KINS::KFileRule
class KCopyRule : public KOwnedFileRule {
  public:
    KCopyRule(
        KINS::KInstallRuleManagerBase& owner,
        const KSUP::KString& type,
        const KSUP::KString& value,
        const KChangePolicy& changePolicy,
        KRunChanges& runChanges
    );

    /// Throws   KSUP::KError 7000 for an invalid line
    void ParseRule(const std::vector<KSUP::KString>& fields) override;
    /// Throws   KSUP::KError of the file that failed
    void Execute() override;
    /// The line as it stands.
    KSUP::KString Description() const override;

  protected:
    KChangePolicy::Treatment GetTreatment() const override;

  private:
    KSUP::KString keyword;
    KSetupRuleLine line;
};

} // namespace KSETUP
