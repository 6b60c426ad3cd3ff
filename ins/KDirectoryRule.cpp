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
    switch (KRuleLine::FindOperation(KRuleType::Directory, operation)) {
    case KRuleOperation::Delete:
        Delete();
        break;
    case KRuleOperation::Create:
        Create();
        break;
    default:
        break; // any other operation does nothing, and is meant to
    }
}

KString KDirectoryRule::Description() const {
    const bool deletes =
        KRuleLine::FindOperation(KRuleType::Directory, operation) == KRuleOperation::Delete;
    return (deletes ? "Delete path " : "Create path ") + path;
}

void KDirectoryRule::ParseRule(const std::vector<KString>& fields) {
    KRuleLine line = ReadFields(KRuleType::Directory, fields);
    if (line.GetProblem() != KRuleLine::Problem::None) {
        errorSource.RaiseAs(
            line.GetErrorDetail(),
            KSUP::TraceLevel::rule,
            KSUP::ErrorCode::malformedRule,
            ruleLine,
            fieldCountLine
        );
    }
    operation = line.GetOperationText();
    path = line.Take(KRuleField::Directory);
}

void KDirectoryRule::Create() {
    manager->SetCurrentTarget(KSUP::KOperation::Write, path);
    manager->SetCurrentRuleStatus("Creating directory " + path);
    // Ignored: the rule that needs the directory fails, and can tell why.
    static_cast<void>(SvcCreateDirectory(0, path.c_str(), 1));
}

void KDirectoryRule::Delete() {
    KSUP::KFileEnum entries;
    try {
        entries.Start(path, "*", false, false);
    } catch (const KSUP::KError&) {
        // What cannot be listed, a loop of links for one, is left as it is.
    }
    while (entries.Enum()) {
        const KString entry = entries.GetPath();
        manager->SetCurrentTarget(KSUP::KOperation::Delete, entry);
        manager->SetCurrentRuleStatus("Deleting file " + entry);
        try {
            KSUP::KFileBase::DeleteFile(entry);
        } catch (const KSUP::KError&) {
            // One entry that resists does not keep the others.
        }
    }
    manager->SetCurrentTarget(KSUP::KOperation::Delete, path);
    manager->SetCurrentRuleStatus("Deleting directory " + path);
    // Ignored: a directory that still holds something, the user's own files for one, is to stay.
    static_cast<void>(SvcDeleteDirectory(0, path.c_str(), 0));
}

} // namespace KINS
