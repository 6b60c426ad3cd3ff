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

constexpr char create[] = "create";
constexpr char put[] = "put";
constexpr char removeFile[] = "remove_file";

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
    if (operation == create) {
        KProfile().Create(profilePath);
    } else if (operation == put) {
        KProfile(profilePath).PutString(section, key, value);
    } else if (operation == removeFile) {
        RemoveListedFiles(profilePath, section, value);
    }
}

KString KProfileRule::Description() const {
    if (operation == create) {
        return "Create profile " + profilePath;
    }
    return "Put profile option " + key + "=" + value;
}

void KProfileRule::ParseRule(const std::vector<KString>& fields) {
    const std::size_t count = fields.size();
    if (count != 2 && count != 4 && count != 5) {
        errorSource.Raise(
            KSUP::TraceLevel::rule, KSUP::ErrorCode::malformedRule, ruleLine, fieldCountLine
        );
    }
    operation = KSUP::KUtil::Lowerify(fields[0]);
    profilePath = fields[1];
    // A count of another operation is let pass and leaves these empty.
    if (operation == put && count == 5) {
        section = ExpandMacros(fields[2]);
        key = ExpandMacros(fields[3]);
        value = ExpandMacros(fields[4]);
    } else if (operation == removeFile && count == 4) {
        section = ExpandMacros(fields[2]);
        value = ExpandMacros(fields[3]);
    }
    if (operation != create && operation != put && operation != removeFile) {
        errorSource.Raise(
            KSUP::TraceLevel::rule, KSUP::ErrorCode::malformedRule, operation, unknownOperationLine
        );
    }
}

} // namespace KINS
