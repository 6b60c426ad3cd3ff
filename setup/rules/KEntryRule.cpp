// SPDX-License-Identifier: MIT
#include <setup/rules/KEntryRule.h>
#include <setup/rules/KOwnedFileRule.h>
#include <sup++/KErrorSource.h>
#include <sup++/SvcFile.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include <sys/files/DirectoryEntry.h>

namespace KSETUP {

namespace {

constexpr KSUP::KErrorSource entryRule{"setup/KEntryRule"};

bool IsDirectory(const KSUP::KString& path) {
    struct stat status {};
    return KSYS::ReadStatus(path.c_str(), KSYS::LastLink::Keep, status) == 0 &&
           S_ISDIR(status.st_mode);
}

} // namespace

void KEntryRule::Execute() {
    if (GetLine().GetOperation() == KSetupOperation::CreateEntry) {
        Create(Get(KSetupField::Path));
    } else {
        Delete(Get(KSetupField::Path));
    }
}

void KEntryRule::Create(const KSUP::KString& path) {
    Tell(path, "Creating directory " + path);
    std::error_code unknown; // it is none, then
    if (LookAtEntry(path.c_str()) && !std::filesystem::is_directory(path.c_str(), unknown)) {
        MakeWay(policy, path.c_str());
    }
    if (const unsigned status = SvcCreateDirectory(0, path.c_str(), 1); status != 0) {
        entryRule.RaiseSystem(status, KSUP::KOperation::Write, path);
    }
}

void KEntryRule::Delete(const KSUP::KString& path) {
    manager->SetCurrentTarget(KSUP::KOperation::Delete, path);
    manager->SetCurrentRuleStatus("Deleting " + path);
    if (IsDirectory(path)) {
        // As directory=delete: what holds something is to stay.
        changes.NoteDeletion(path.c_str(), SvcDeleteDirectory(0, path.c_str(), 0));
        return;
    }
    if (!MayDelete(policy, path.c_str(), KChangePolicy::Named::ByScript, changes)) {
        return;
    }
    const unsigned status = SvcDeleteFile(0, path.c_str());
    if (status != 0 && status != ENOENT && status != ENOTDIR) {
        entryRule.RaiseSystem(status, KSUP::KOperation::Delete, path);
    }
}

} // namespace KSETUP
