// SPDX-License-Identifier: MIT
#include <ins/KInstaller.h>
#include <ins/Names.h>
#include <ins/unx/lin/KInstallPathManager.h>
#include <sup++/KError.h>
#include <sup++/KErrorSource.h>
#include <sup++/KProfile.h>
#include <sup++/KUtil.h>
#include <sup++/SvcData.h>
#include <sup++/SvcFile.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

#include <unistd.h>

using KSUP::KProfile;
using KSUP::KString;
using KSUP::KUtil;

namespace KINS {

namespace {

constexpr KSUP::KErrorSource errorSource{"ins/unx/lin/KInstallPathManager"};

/// Where the failures of the two operations are said to come from. The numbers are fixed, so that
/// reports of different versions of the engine can be compared.
struct RaisingSite {
    const char* function;
    unsigned unreadableLine;
    unsigned relativeLine;
};
constexpr RaisingSite getSite{"GetInstalledProductInformation", 94, 101};
constexpr RaisingSite putSite{"PutInstalledProductInformation", 57, 64};

/// The link of the record as it is found.
struct ServiceLink {
    KString path;
    int error = 0;  // why it cannot be read
    KString target; // without doubled separators

    bool IsAbsolute() const { return target.c_str()[0] == '/'; }
};

/// Runs of separators name what one separator names.
KString WithoutDoubledSeparators(const char* path) {
    std::string single;
    for (; *path != '\0'; ++path) {
        if (*path != '/' || single.empty() || single.back() != '/') {
            single += *path;
        }
    }
    return KString(std::move(single));
}

ServiceLink FindServiceLink(const KInstallPathManagerBase& paths) {
    constexpr std::size_t targetBytes = 4096; // PATH_MAX; readlink cuts what is longer
    char target[targetBytes + 1];
    ServiceLink link;
    link.path = paths.ExpandMacros(Names::recordLink);
    const ssize_t length = ::readlink(link.path.c_str(), target, targetBytes);
    if (length < 0) {
        link.error = errno;
        return link;
    }
    target[length] = '\0';
    link.target = WithoutDoubledSeparators(target);
    return link;
}

KString ReadServiceLink(const KInstallPathManagerBase& paths, const RaisingSite& site) {
    const ServiceLink link = FindServiceLink(paths);
    if (link.error != 0) {
        errorSource.RaiseAs(
            {KSUP::KErrorKind::RecordLink,
             KSUP::KOperation::Read,
             link.path,
             std::generic_category().message(link.error)},
            KSUP::TraceLevel::rule,
            KSUP::ErrorCode::notFound,
            KSUP::KVariant(),
            site.unreadableLine,
            site.function
        );
    }
    if (!link.IsAbsolute()) {
        errorSource.RaiseAs(
            {KSUP::KErrorKind::RecordLink, KSUP::KOperation::Read, link.path, "it is relative"},
            KSUP::TraceLevel::rule,
            KSUP::ErrorCode::relativeLink,
            KSUP::KVariant(),
            site.relativeLine,
            site.function
        );
    }
    return link.target;
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
KProfile OpenRecord(const KString& path) {
    KProfile record;
    if (::access(path.c_str(), F_OK) != 0 && (errno == ENOENT || errno == ENOTDIR)) {
        return record; // which is expected, and no error to be said
    }
    try {
        record.Open(path);
    } catch (const KSUP::KError&) { // said by the one who raised it
    }
    return record;
}

KString RecordPath(const KString& productPath) {
    return KUtil::AppendPathSep(productPath, "/") + KUtil::AppendPathSep("config", "/") +
           SvcGetProductText(SvcGetOEMDataEx()->iniFile);
}

} // namespace

KInstallPathManager::KInstallPathManager(KInstaller* installer)
    : KInstallPathManagerBase(installer) {}

KInstallPathManager::~KInstallPathManager() = default;

void KInstallPathManager::Initialize(const KString& installPath) {
    AddCustomMacro(Names::programEndingMacro, "");
    KInstallPathManagerBase::Initialize(installPath);
}

bool KInstallPathManager::IsProductInstalled() const {
    const ServiceLink link = FindServiceLink(*this);
    return link.error == 0 && link.IsAbsolute();
}

void KInstallPathManager::GetInstalledProductInformation(
    KString& path, KString& version, unsigned int& buildNumber
) const {
    const KString productPath = FindProductPath(*this, getSite);
    const KProfile record = OpenRecord(RecordPath(productPath));
    path = productPath;
    version =
        record.GetString(Names::recordSection, Names::recordVersionKey, Names::noRecordedVersion);
    buildNumber =
        record.GetNumber<unsigned int>(Names::recordSection, Names::recordBuildNumberKey, 0);
}

void KInstallPathManager::PutInstalledProductInformation(
    const KString& version, unsigned int buildNumber
) const {
    const KString productPath = FindProductPath(*this, putSite);
    // A machine that loses power must not wake up with a record of files that it does not hold.
    const unsigned status = SvcFlushWrites();
    if (status != 0) {
        const std::string text = std::generic_category().message(static_cast<int>(status));
        errorSource.RaiseAs(
            {KSUP::KErrorKind::System, KSUP::KOperation::Write, {}, text},
            KSUP::TraceLevel::rule,
            status,
            KString("cannot bring the installed files to the disk: " + text)
        );
    }
    const KString path = RecordPath(productPath);
    KProfile record = OpenRecord(path);
    if (record.HasContent()) { // both at once: the version of one build has no other's number
        record.PutStrings(
            Names::recordSection,
            Names::recordVersionKey,
            version,
            Names::recordBuildNumberKey,
            KUtil::NumberToString(buildNumber, false)
        );
        return;
    }
    try {
        record.PutNumber<unsigned int>(
            Names::recordSection, Names::recordBuildNumberKey, buildNumber, false
        );
    } catch (KSUP::KError& error) {
        if (error.GetKind() == KSUP::KErrorKind::Own) { // the profile's word for having no file
            error.SetDetail({KSUP::KErrorKind::RecordFile, KSUP::KOperation::Write, path, {}});
        }
        throw;
    }
}

KString KInstallPathManager::GetDefaultProductPath() const {
    // The key is looked up as it stands, dollars and all: the script spells it so.
    return owner->GetInstallProfile().GetString(
        Names::installSection, Names::defaultPathKey, Names::defaultProductPath
    );
}

} // namespace KINS
