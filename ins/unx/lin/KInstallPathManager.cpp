// SPDX-License-Identifier: MIT
#include <ins/KInstaller.h>
#include <ins/unx/lin/KInstallPathManager.h>
#include <sup++/KError.h>
#include <sup++/KErrorSource.h>
#include <sup++/KProfile.h>
#include <sup++/KUtil.h>
#include <sup++/SvcData.h>
#include <sup++/SvcFile.h>

#include <string>
#include <system_error>

#include <unistd.h>

using KSUP::KProfile;
using KSUP::KString;
using KSUP::KUtil;

namespace KINS {

namespace {

constexpr KSUP::KErrorSource errorSource{"ins/unx/lin/KInstallPathManager"};

constexpr char section[] = "installControl";
constexpr char versionKey[] = "installedVersion";
constexpr char buildNumberKey[] = "buildNumber";

/// Where the failures of the two operations are said to come from. The numbers are fixed, so that
/// reports of different versions of the engine can be compared.
struct RaisingSite {
    const char* function;
    unsigned unreadableLine;
    unsigned relativeLine;
};
constexpr RaisingSite getSite{"GetInstalledProductInformation", 94, 101};
constexpr RaisingSite putSite{"PutInstalledProductInformation", 57, 64};

KString ReadServiceLink(const KInstallPathManagerBase& paths, const RaisingSite& site) {
    constexpr std::size_t targetBytes = 4096; // PATH_MAX; readlink cuts what is longer
    char target[targetBytes + 1];
    const KString link = paths.ExpandMacros("/etc/$serviceName$/$serviceName$");
    const ssize_t length = ::readlink(link.c_str(), target, targetBytes);
    if (length < 0) {
        errorSource.Raise(
            KSUP::TraceLevel::rule,
            KSUP::ErrorCode::notFound,
            KSUP::KVariant(),
            site.unreadableLine,
            site.function
        );
    }
    target[length] = '\0';
    if (target[0] != '/') {
        errorSource.Raise(
            KSUP::TraceLevel::rule,
            KSUP::ErrorCode::relativeLink,
            KSUP::KVariant(),
            site.relativeLine,
            site.function
        );
    }
    return target;
}

/// The link leads to a program in a platform directory, as in /opt/p/lin/x86_64/svc.
KString FindProductPath(const KInstallPathManagerBase& paths, const RaisingSite& site) {
    KString path = ReadServiceLink(paths, site);
    constexpr int levelsBelowProduct = 3;
    for (int level = 0; level < levelsBelowProduct; ++level) {
        path = KUtil::RemoveFileFromPath(KUtil::RemovePathSep(path, "/"), "/");
    }
    return path;
}

/// No content when the file cannot be read: a product whose record file is gone is installed still.
KProfile OpenRecord(const KString& productPath) {
    KProfile record;
    try {
        record.Open(
            KUtil::AppendPathSep(productPath, "/") + KUtil::AppendPathSep("config", "/") +
            SvcGetProductText(SvcGetOEMDataEx()->iniFile)
        );
    } catch (const KSUP::KError&) { // said by the one who raised it
    }
    return record;
}

} // namespace

KInstallPathManager::KInstallPathManager(KInstaller* installer)
    : KInstallPathManagerBase(installer) {}

KInstallPathManager::~KInstallPathManager() = default;

void KInstallPathManager::Initialize(const KString& installPath) {
    customMacros.AddCustomMacro("binext", "");
    KInstallPathManagerBase::Initialize(installPath);
}

void KInstallPathManager::GetInstalledProductInformation(
    KString& path, KString& version, unsigned int& buildNumber
) const {
    const KString productPath = FindProductPath(*this, getSite);
    const KProfile record = OpenRecord(productPath);
    path = productPath;
    version = record.GetString(section, versionKey, "unknown");
    buildNumber = record.GetNumber<unsigned int>(section, buildNumberKey, 0);
}

void KInstallPathManager::PutInstalledProductInformation(
    const KString& version, unsigned int buildNumber
) const {
    const KString productPath = FindProductPath(*this, putSite);
    // A machine that loses power must not wake up with a record of files that it does not hold.
    const unsigned status = SvcFlushWrites();
    if (status != 0) {
        const std::string text = std::generic_category().message(static_cast<int>(status));
        errorSource.Raise(
            KSUP::TraceLevel::rule,
            status,
            KString("cannot bring the installed files to the disk: " + text)
        );
    }
    KProfile record = OpenRecord(productPath);
    record.PutString(section, versionKey, version);
    record.PutNumber<unsigned int>(section, buildNumberKey, buildNumber, false);
}

KString KInstallPathManager::GetDefaultProductPath() const {
    // The key is looked up as it stands, dollars and all: the script spells it so.
    return owner->GetInstallProfile().GetString(
        "install", "defaultPath.$os$", "/usr/local/korvane/dps"
    );
}

} // namespace KINS
