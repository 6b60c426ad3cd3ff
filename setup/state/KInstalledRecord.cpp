// SPDX-License-Identifier: MIT
#include <ins/Names.h>
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/AccountNames.h>
#include <setup/files/PathText.h>
#include <setup/files/TrustedPath.h>
#include <setup/state/KInstalledRecord.h>
#include <setup/state/KManifest.h>
#include <setup/state/KPrivateDirectory.h>
#include <setup/state/KRunLock.h>
#include <setup/state/KRunState.h>
#include <sup++/SvcData.h>

#include <algorithm>
#include <cerrno>

#include <sys/files/DirectoryEntry.h>
#include <sys/files/FileCalls.h>
#include <sys/files/FileContent.h>
#include <sys/processes/ProcessIsolation.h>

namespace KSETUP {

namespace {

using Installed = std::optional<KManifestProduct>;

std::string ProductName() {
    return SvcGetProductText(SvcGetOEMDataEx()->product);
}

KText VersionInWords(const std::string& version, unsigned buildNumber) {
    return Text("%s (build %s)", version, buildNumber);
}

/// Nothing for who may not look, and for a manifest that cannot be understood, which others tell.
Installed ReadInstalled(const std::string& service, bool& isDenied) {
    try {
        return KManifest::ReadProduct(service);
    } catch (const KSetupFailure& failure) {
        isDenied = failure.IsDenied();
        if (!isDenied && !failure.IsDamage()) {
            throw;
        }
        return std::nullopt;
    }
}

/// A run that is between the record and the manifest, or before them.
std::optional<KInterruptedRun> ReadBegun(const std::string& service) {
    try {
        std::optional<KInterruptedRun> begun = KRunState::Read(service);
        return begun && begun->damage.empty() ? begun : std::nullopt;
    } catch (const KSetupFailure& failure) {
        if (!failure.IsDenied()) {
            throw;
        }
        return std::nullopt;
    }
}

bool IsRunning(const std::string& service) {
    try {
        return KRunLock::FindHolder(service).has_value();
    } catch (const KSetupFailure& failure) {
        if (!failure.IsDenied()) {
            throw;
        }
        return false;
    }
}

/// Whether the version is one that a run has just written, or a restoration put back.
bool IsOfBegunRun(
    const KInstalledRecord& record,
    const std::optional<KInterruptedRun>& begun,
    const std::string& service
) {
    if (!begun) {
        return LooksLikeVersion(record.version) && IsRunning(service);
    }
    return begun->action == KRunDescription::Action::Restore
               ? LooksLikeVersion(record.version)
               : record.version == begun->version && record.buildNumber == begun->buildNumber;
}

KText DescribeDamage(
    const KInstalledRecord& record, const std::string& file, const Installed& installed
) {
    const KText says =
        record.version == KINS::Names::noRecordedVersion
            ? Text("%s has no version", file)
            : Text("%s says version \"%s\" (build %s)", file, record.version, record.buildNumber);
    return installed
               ? Text(
                     "The record of %s is damaged: %s, and %s was installed, which counts. An "
                     "install writes the record anew.",
                     ProductName(),
                     says,
                     VersionInWords(installed->version, installed->buildNumber)
                 )
               : Text(
                     "The record of %s is damaged: %s, which is no version, so it is not known "
                     "which one is installed. An install writes the record anew.",
                     ProductName(),
                     says
                 );
}

void SettleVersion(
    KInstalledRecord& record,
    const std::string& file,
    const Installed& installed,
    const std::string& service
) {
    const bool isAsInstalled = installed ? record.version == installed->version &&
                                               record.buildNumber == installed->buildNumber
                                         : LooksLikeVersion(record.version);
    if (isAsInstalled) {
        return;
    }
    const std::optional<KInterruptedRun> begun = ReadBegun(service);
    if (IsOfBegunRun(record, begun, service)) {
        return;
    }
    // A run that was interrupted before it wrote the record may have emptied the file.
    if (!begun || record.version != KINS::Names::noRecordedVersion) {
        record.damage = DescribeDamage(record, file, installed);
    }
    record.version = installed ? installed->version : KINS::Names::noRecordedVersion;
    record.buildNumber = installed ? installed->buildNumber : 0;
}

std::string TargetOf(const std::string& link, const std::string& service) {
    try {
        const std::optional<KManifest> manifest = KManifest::Read(service);
        const KManifestEntry* entry = manifest ? manifest->Find(link) : nullptr;
        return entry != nullptr ? entry->target : "";
    } catch (const KSetupFailure& failure) {
        if (!failure.IsDenied() && !failure.IsDamage()) {
            throw;
        }
        return {};
    }
}

/// Why others than root may have laid the link, or what it leads to where nothing else tells it.
KText WhyNotRoots(const std::string& link, const std::string& path, bool isPathKnown) {
    if (KText why = WhyOthersCanExchange(ParentPath(link)); !why.empty()) {
        return why;
    }
    struct stat status {};
    if (KSYS::ReadStatus(link, KSYS::LastLink::Keep, status) == 0 && status.st_uid != 0) {
        return Text("the link %s belongs to the user %s", link, UserName(status.st_uid));
    }
    if (!isPathKnown && KSYS::ReadStatus(path, KSYS::LastLink::Follow, status) == 0 &&
        status.st_uid != 0) {
        return Text(
            "the link %s leads to %s, which belongs to the user %s",
            link,
            path,
            UserName(status.st_uid)
        );
    }
    return {};
}

void DistrustTarget(
    KInstalledRecord& record,
    const std::string& link,
    const KManifestProduct& installed,
    const std::string& service
) {
    const std::string target = TargetOf(link, service);
    record.distrust = Text(
        "the link %s leads to a product in %s, and %s was installed in %s",
        link,
        NormalPath(record.path),
        ProductName(),
        installed.path
    );
    record.advice = Text(
        "Look who laid it, and lay it as it was (%s).",
        (target.empty() ? Text("to the program that it led to")
                        : KText("ln -sfn " + target + " " + link))
    );
    record.path = installed.path;
}

/// A run that was interrupted may have laid the link to where it worked.
void SettlePlace(
    KInstalledRecord& record,
    const std::string& link,
    const Installed& installed,
    bool isDenied,
    const std::string& service
) {
    const std::string path = NormalPath(record.path);
    bool isPathKnown = installed ? NormalPath(installed->path) == path : isDenied;
    if (!isPathKnown) {
        const std::optional<KInterruptedRun> begun = ReadBegun(service);
        isPathKnown = begun && NormalPath(begun->path) == path;
    }
    if (installed && !isPathKnown) {
        DistrustTarget(record, link, *installed, service);
        return;
    }
    record.distrust = WhyNotRoots(link, path, isPathKnown);
    if (!record.distrust.empty()) {
        const std::string directory = ParentPath(link);
        record.advice = Text(
            "Look whether %s leads to the product; if it does, make all root's (chown -h root %s "
            "%s %s; chmod go-w %s %s).",
            link,
            directory,
            link,
            path,
            directory,
            path
        );
    }
}

/// The machine's own trouble, in which nothing is known, and not what somebody laid there.
void RequireKnown(unsigned failed, const std::string& path) {
    const bool isTrouble = failed == EIO || failed == ENOMEM || failed == EMFILE ||
                           failed == ENFILE || (failed == EACCES && KSYS::IsRoot());
    if (isTrouble) {
        throw SystemFailure(
            ExitCode::cannotWrite,
            Text("cannot read %s", path),
            failed,
            Text("Fix the cause and try again.")
        );
    }
}

/// Whoever may write to the file could have root read it until memory ends, and what the engine
/// cannot read counts as none for it. So it is found without the engine: the link leads to a program
/// in a directory of the platform.
///
/// Returns  whether there is such a link
/// Throws   KSetupFailure for a record that nobody should read, or cannot now
bool RequireReadable(const KINS::KInstaller& installer) {
    constexpr off_t mostBytes = 64 * 1024 * 1024;
    std::string program;
    const std::string link = installer.ExpandMacros(KINS::Names::recordLink).c_str();
    if (const unsigned failed = KSYS::ReadLink(link, program); failed != 0) {
        RequireKnown(failed, link);
        return false;
    }
    KInstalledRecord record;
    record.path = ParentPath(ParentPath(ParentPath(NormalPath(program))));
    const std::string file = RecordFile(installer, record);
    KSYS::KDescriptor opened;
    struct stat status {};
    unsigned failed = KSYS::OpenRegular(file.c_str(), opened, status);
    if (char byte = 0; failed == 0) {
        std::size_t count = 0;
        failed = KSYS::ReadSome(opened.Get(), &byte, 1, count);
    }
    RequireKnown(failed, file);
    if (failed == 0 && status.st_size > mostBytes) {
        throw KSetupFailure(
            ExitCode::malformedScript,
            Text(
                "The record of %s cannot be read: %s has %s bytes, which no configuration has. "
                "Nothing was changed. Look who wrote that, and put the file right.",
                ProductName(),
                file,
                status.st_size
            )
        );
    }
    return program.starts_with('/');
}

/// The engine takes a link that it cannot read for none. Where there is one after all, it raises
/// what was wrong when it is asked for more.
bool IsInstalled(const KINS::KInstaller& installer) {
    const bool isLinkThere = RequireReadable(installer);
    return installer.IsProductInstalled() || isLinkThere;
}

KInstalledRecord ReadRecord(const KINS::KInstaller& installer) {
    KInstalledRecord record;
    for (int tries = 0; tries < 2; ++tries) {
        KSUP::KString path;
        KSUP::KString version;
        installer.GetInstalledProductInformation(path, version, record.buildNumber);
        record.path = path.c_str();
        record.version = version.c_str();
        if (record.version != KINS::Names::noRecordedVersion) {
            break;
        }
        static_cast<void>(RequireReadable(installer));
    }
    return record;
}

} // namespace

KText KInstalledRecord::ToWords() const {
    KText words = damage;
    if (!distrust.empty()) {
        words +=
            (words.empty() ? "" : " ") +
            Text("The record of %s cannot be trusted: %s. %s", ProductName(), distrust, advice);
    }
    return words;
}

std::optional<KInstalledRecord> LoadRecord(const KINS::KInstaller& installer) {
    if (!IsInstalled(installer)) {
        return std::nullopt;
    }
    KInstalledRecord record = ReadRecord(installer);
    const std::string service = installer.ExpandMacros("$serviceName$").c_str();
    bool isDenied = false;
    const Installed installed = ReadInstalled(service, isDenied);
    SettlePlace(
        record,
        installer.ExpandMacros(KINS::Names::recordLink).c_str(),
        installed,
        isDenied,
        service
    );
    if (installed && !record.distrust.empty()) { // nothing of the file counts, nor is told
        record.version = installed->version;
        record.buildNumber = installed->buildNumber;
    } else if (!isDenied) { // who cannot know better is shown what there is, and runs nothing
        SettleVersion(record, RecordFile(installer, record), installed, service);
    }
    return record;
}

std::string RecordFile(const KINS::KInstaller& installer, const KInstalledRecord& record) {
    return JoinPath(record.path, "config/") + installer.ExpandMacros("$iniFile$").c_str();
}

std::string InstalledVersionText(const std::optional<KInstalledRecord>& record) {
    return record ? record->version + "-" + std::to_string(record->buildNumber) : std::string();
}

bool LooksLikeVersion(std::string_view text) noexcept {
    constexpr std::size_t mostBytes = 100;
    const auto isPlain = [](char byte) {
        return (byte >= '0' && byte <= '9') || (byte >= 'a' && byte <= 'z') ||
               (byte >= 'A' && byte <= 'Z');
    };
    return !text.empty() && text.size() <= mostBytes && isPlain(text.front()) &&
           std::all_of(text.begin(), text.end(), [&](char byte) {
               return isPlain(byte) ||
                      std::string_view(".+~:_-").find(byte) != std::string_view::npos;
           });
}

void RequireTrusted(const std::optional<KInstalledRecord>& record) {
    if (record && !record->distrust.empty()) {
        throw KSetupFailure(
            ExitCode::malformedScript,
            Text(
                "The record of %s cannot be trusted: %s. Nothing was changed. %s",
                ProductName(),
                record->distrust,
                record->advice
            )
        );
    }
}

} // namespace KSETUP
