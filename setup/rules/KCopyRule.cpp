// SPDX-License-Identifier: MIT
#include <setup/plan/PlanOwnRules.h>
#include <setup/rules/KCopyRule.h>
#include <setup/rules/KOwnRule.h>

namespace KSETUP {

KCopyRule::KCopyRule(
    KINS::KInstallRuleManagerBase& owner,
    const KSUP::KString& type,
    const KSUP::KString& value,
    const KChangePolicy& changePolicy,
    KRunChanges& runChanges
)
    : KOwnedFileRule(owner, value, changePolicy, runChanges),
      keyword(type) {}

void KCopyRule::ParseRule(const std::vector<KSUP::KString>& /*fields*/) {
    line = ReadOwnLine(*manager, keyword.c_str(), ruleLine.c_str());
    fileName = line.Get(KSetupField::FileName);
    sourceDirectory = line.Get(KSetupField::FromDirectory);
    targetDirectory = line.Get(KSetupField::ToDirectory);
}

void KCopyRule::Execute() {
    if (line.IsPattern()) {
        CopyMatches();
    } else {
        Copy(line.GetSource(), line.GetTarget());
    }
}

KSUP::KString KCopyRule::Description() const {
    return keyword + "=" + ruleLine;
}

KChangePolicy::Treatment KCopyRule::GetTreatment() const {
    return TreatmentOf(line);
}

} // namespace KSETUP
