// SPDX-License-Identifier: MIT
#include <ins/KDirectoryRule.h>
#include <ins/KInstallRuleManagerBase.h>
#include <sup++/KError.h>
#include <sup++/KErrorSource.h>
#include <sup++/KFileBase.h>
#include <sup++/KFileEnum.h>
#include <sup++/KUtil.h>
#include <sup++/SvcFile.h>

using KSUP::KString;

namespace KINS {

namespace {

constexpr KSUP::KErrorSource errorSource{"ins/KDirectoryRule"};

// Fixed, so that reports of different versions of the engine can be compared.
constexpr unsigned fieldCountLine = 53;

} // namespace

KDirectoryRule::KDirectoryRule(KInstallRuleManagerBase* owner, const KString& line)
    : KInstallRule(owner, owner->ExpandMacros(line)) {}

KDirectoryRule::~KDirectoryRule() = default;

void KDirectoryRule::Execute() {
    if (operation == "delete") {
        Delete();
    } else if (operation == "create") {
        Create();
    }
    // Any other operation does nothing, and is meant to.
}

KString KDirectoryRule::Description() const {
    return (operation == "delete" ? "Delete path " : "Create path ") + path;
}

void KDirectoryRule::ParseRule(const std::vector<KString>& fields) {
    if (fields.size() != 2) {
        errorSource.Raise(
            KSUP::TraceLevel::rule, KSUP::ErrorCode::malformedRule, ruleLine, fieldCountLine
        );
    }
    operation = KSUP::KUtil::Lowerify(fields[0]);
    path = fields[1];
}

void KDirectoryRule::Create() {
    manager->SetCurrentRuleStatus("Creating directory " + path);
    // Ignored: the rule that needs the directory fails, and can tell why.
    static_cast<void>(SvcCreateDirectory(0, path.c_str(), 1));
}

void KDirectoryRule::Delete() {
    KSUP::KFileEnum entries;
    entries.Start(path, "*", false, false);
    while (entries.Enum()) {
        const KString entry = entries.GetPath();
        manager->SetCurrentRuleStatus("Deleting file " + entry);
        try {
            KSUP::KFileBase::DeleteFile(entry);
        } catch (const KSUP::KError&) {
            // One entry that resists does not keep the others.
        }
    }
    manager->SetCurrentRuleStatus("Deleting directory " + path);
    // Ignored: a directory that still holds something, the user's own files for one, is to stay.
    static_cast<void>(SvcDeleteDirectory(0, path.c_str(), 0));
}

} // namespace KINS
