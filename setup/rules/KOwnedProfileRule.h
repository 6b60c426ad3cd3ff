// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KProfileRule.h>
#include <setup/plan/KChangePolicy.h>
#include <setup/rules/KRunChanges.h>

#include <vector>

namespace KSETUP {

/// A profile rule that minds who listed the files that it is to delete: the profile may be one that
/// others than root write to, so what is not the product's stays, with its key. Nor does it tell
/// secrets: its description, which is in the log and in what a run's listener hears, has no value that
/// may be one, and none that came by --values.
///
/// Borrows policy and changes for as long as it lives.
/// Thread   as KINS::KProfileRule
class KOwnedProfileRule : public KINS::KProfileRule {
  public:
    KOwnedProfileRule(
        KINS::KInstallRuleManagerBase& owner,
        const KSUP::KString& line,
        const KChangePolicy& changePolicy,
        KRunChanges& runChanges
    );
    ~KOwnedProfileRule() override;

    KSUP::KString Description() const override;
    void Execute() override;
    /// Also takes what a deletion needs, which the base keeps to itself.
    void ParseRule(const std::vector<KSUP::KString>& fields) override;

  private:
    void DeleteListed() const;

    const KChangePolicy& policy;
    KRunChanges& changes;
    bool deletes = false;
    KSUP::KString profilePath;
    KSUP::KString section;
    KSUP::KString match;
    KSUP::KString maskedKey; // empty where nothing is to be masked
};

} // namespace KSETUP
