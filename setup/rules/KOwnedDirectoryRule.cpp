// SPDX-License-Identifier: MIT
#include <ins/KInstallRuleManagerBase.h>
#include <setup/rules/KOwnedDirectoryRule.h>
#include <setup/rules/KOwnedFileRule.h>
#include <sup++/KError.h>
#include <sup++/KFileEnum.h>
#include <sup++/SvcFile.h>

#include <filesystem>
#include <system_error>

namespace KSETUP {

using KINS::KRuleOperation;
using KSUP::KString;

KOwnedDirectoryRule::KOwnedDirectoryRule(
    KINS::KInstallRuleManagerBase& owner,
    const KString& line,
    const KChangePolicy& changePolicy,
    KRunChanges& runChanges
)
    : KDirectoryRule(&owner, line),
      policy(changePolicy),
      changes(runChanges) {}

KOwnedDirectoryRule::~KOwnedDirectoryRule() = default;

void KOwnedDirectoryRule::Execute() {
    const auto does = KINS::KRuleLine::FindOperation(KINS::KRuleType::Directory, operation);
    if (does == KRuleOperation::Delete) {
        DeleteOwned();
        return;
    }
    if (does == KRuleOperation::Create) {
        const auto former = LookAtEntry(path.c_str());
        const bool isDirectory = former && former->kind == KManifestEntry::Kind::Directory;
        std::error_code unknown; // it is none, then
        if (former && !isDirectory && !std::filesystem::is_directory(path.c_str(), unknown)) {
            MakeWay(policy, path.c_str());
        }
    }
    KDirectoryRule::Execute();
}

/// As the engine's does, save for what is not the product's. What resists stays, and the directory
/// with what stays in it.
void KOwnedDirectoryRule::DeleteOwned() {
    KSUP::KFileEnum entries;
    try {
        entries.Start(path, "*", false, false);
    } catch (const KSUP::KError&) {
        // what cannot be listed is left as it is
    }
    while (entries.Enum()) {
        const KString entry = entries.GetPath();
        if (!MayDelete(policy, entry.c_str(), KChangePolicy::Named::BySweep, changes)) {
            continue;
        }
        manager->SetCurrentTarget(KSUP::KOperation::Delete, entry);
        manager->SetCurrentRuleStatus("Deleting file " + entry);
        changes.NoteDeletion(entry.c_str(), SvcDeleteFile(0, entry.c_str()));
    }
    manager->SetCurrentTarget(KSUP::KOperation::Delete, path);
    manager->SetCurrentRuleStatus("Deleting directory " + path);
    changes.NoteDeletion(path.c_str(), SvcDeleteDirectory(0, path.c_str(), 0));
}

} // namespace KSETUP
