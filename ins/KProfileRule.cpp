// SPDX-License-Identifier: MIT
#include <ins/KInstallRuleManagerBase.h>
#include <ins/KProfileRule.h>
#include <sup++/KErrorSource.h>
#include <sup++/KFileUtil.h>
#include <sup++/KProfile.h>
#include <sup++/KUtil.h>
#include <sup++/Txt.h>

using KSUP::KProfile;
using KSUP::KString;

namespace KINS {

namespace {

constexpr KSUP::KErrorSource errorSource{"ins/KProfileRule"};

// Fixed, so that reports of different versions of the engine can be compared.
constexpr unsigned fieldCountLine = 57;
constexpr unsigned unknownOperationLine = 75;

KRuleOperation OperationOf(const KString& word) {
    return KRuleLine::FindOperation(KRuleType::Profile, word);
}

void RemoveListedFiles(const KString& path, const KString& section, const KString& match) {
    KProfile profile(path);
    profile.BeginKeyEnum(section, nullptr);
    while (profile.EnumKey(nullptr, false)) {
        if (Txtstr(profile.GetKeyValue().c_str(), match.c_str()) != nullptr) {
            // Copies: the enumeration's own texts are not to be relied on once the key is gone.
            const KString name = profile.GetKeyName();
            const KString file = profile.GetKeyValue();
            // Ignored: a file that is gone already is no reason to keep its key.
            static_cast<void>(KSUP::KFileUtil::DeleteFile(file));
            profile.DeleteKey(section, name);
        }
    }
}

} // namespace

KProfileRule::KProfileRule(KInstallRuleManagerBase* owner, const KString& line)
    : KInstallRule(owner, owner->ExpandMacros(line)) {}

KProfileRule::~KProfileRule() = default;

void KProfileRule::Execute() {
    manager->SetCurrentTarget(KSUP::KOperation::Write, profilePath);
    switch (OperationOf(operation)) {
    case KRuleOperation::Create:
        KProfile().Create(profilePath);
        break;
    case KRuleOperation::Put:
        KProfile(profilePath).PutString(section, key, value);
        break;
    case KRuleOperation::RemoveFile:
        RemoveListedFiles(profilePath, section, value);
        break;
    default:
        break; // not loaded
    }
}

KString KProfileRule::Description() const {
    if (OperationOf(operation) == KRuleOperation::Create) {
        return "Create profile " + profilePath;
    }
    return "Put profile option " + key + "=" + value;
}

void KProfileRule::ParseRule(const std::vector<KString>& fields) {
    KRuleLine line = ReadFields(KRuleType::Profile, fields);
    operation = line.GetOperationText();
    profilePath = line.Take(KRuleField::ProfilePath);
    section = line.Take(KRuleField::Section);
    key = line.Take(KRuleField::Key);
    const bool removes = line.GetOperation() == KRuleOperation::RemoveFile;
    value = line.Take(removes ? KRuleField::Match : KRuleField::Value);
    if (line.GetProblem() != KRuleLine::Problem::None) {
        const bool isOfCount = line.GetProblem() == KRuleLine::Problem::FieldCount;
        errorSource.RaiseAs(
            line.GetErrorDetail(),
            KSUP::TraceLevel::rule,
            KSUP::ErrorCode::malformedRule,
            isOfCount ? ruleLine : operation,
            isOfCount ? fieldCountLine : unknownOperationLine
        );
    }
}

} // namespace KINS
