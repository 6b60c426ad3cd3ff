// SPDX-License-Identifier: MIT
#include <ins/KInstallRuleManagerBase.h>
#include <setup/plan/AddedLines.h>
#include <setup/plan/ValueMacros.h>
#include <setup/rules/KOwnedFileRule.h>
#include <setup/rules/KOwnedProfileRule.h>
#include <setup/script/SecretNames.h>
#include <sup++/KFileUtil.h>
#include <sup++/KProfile.h>
#include <sup++/Txt.h>

#include <string>

namespace KSETUP {

using KSUP::KString;

KOwnedProfileRule::KOwnedProfileRule(
    KINS::KInstallRuleManagerBase& owner,
    const KString& line,
    const KChangePolicy& changePolicy,
    KRunChanges& runChanges
)
    : KProfileRule(&owner, line),
      policy(changePolicy),
      changes(runChanges) {}

KOwnedProfileRule::~KOwnedProfileRule() = default;

KString KOwnedProfileRule::Description() const {
    return maskedKey.IsEmpty() ? KProfileRule::Description()
                               : "Put profile option " + maskedKey + "=" + maskedValue;
}

void KOwnedProfileRule::ParseRule(const std::vector<KString>& fields) {
    KProfileRule::ParseRule(fields);
    KINS::KRuleLine line = ReadFields(KINS::KRuleType::Profile, fields);
    deletes = line.GetOperation() == KINS::KRuleOperation::RemoveFile;
    profilePath = line.Take(KINS::KRuleField::ProfilePath);
    section = line.Take(KINS::KRuleField::Section);
    match = line.Take(KINS::KRuleField::Match);
    constexpr std::size_t sectionAt = 2;
    constexpr std::size_t keyAt = 3;
    constexpr std::size_t valueAt = 4;
    if (fields.size() > valueAt) {
        const KString name = ExpandMacros(fields[keyAt]);
        if (IsAddedValue(fields[valueAt].c_str()) || HidesValue(fields[valueAt].c_str()) ||
            MayBeSecret(ExpandMacros(fields[sectionAt]).c_str(), name.c_str())) {
            maskedKey = name;
        }
    }
}

void KOwnedProfileRule::Execute() {
    if (deletes) {
        manager->SetCurrentTarget(KSUP::KOperation::Write, profilePath);
        DeleteListed();
    } else {
        KProfileRule::Execute();
    }
}

void KOwnedProfileRule::DeleteListed() const {
    KSUP::KProfile profile(profilePath);
    profile.BeginKeyEnum(section, nullptr);
    while (profile.EnumKey(nullptr, false)) {
        if (Txtstr(profile.GetKeyValue().c_str(), match.c_str()) == nullptr) {
            continue;
        }
        // Copies: the enumeration's own texts are not to be relied on once the key is gone.
        const KString name = profile.GetKeyName();
        const std::string file = profile.GetKeyValue().c_str();
        if (const KText why = policy.WhyNotDeleteListed(file); !why.empty()) {
            changes.listed.push_back({profilePath.c_str(), file, why});
            continue;
        }
        if (MayDelete(policy, file, KChangePolicy::Named::ByScript, changes)) {
            // Told when the run is over; a file that is gone already is no reason to keep its key.
            changes.NoteDeletion(file, KSUP::KFileUtil::DeleteFile(file.c_str()));
        }
        profile.DeleteKey(section, name);
    }
}

} // namespace KSETUP
