// SPDX-License-Identifier: MIT
#include <ins/KInstaller.h>
#include <ins/Names.h>
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/run/KLockedProduct.h>
#include <setup/run/OutdatedPrograms.h>
#include <setup/run/Status.h>
#include <setup/state/KKnownKeys.h>
#include <setup/state/KManifest.h>
#include <setup/state/KRunLock.h>
#include <setup/state/KRunState.h>

#include <utility>

#include <sys/processes/ProcessIsolation.h>

namespace KSETUP {

namespace {

/// A run that goes on, or one that did not come to its end.
std::optional<KInterruptedRun> FillRuns(const std::string& service, KRunReport& report) {
    try {
        if (const auto holder = KRunLock::FindHolder(service)) {
            report.notes.push_back(Text("A run is going on%s", holder->ToWords()));
        } else if (auto interrupted = KRunState::Read(service)) {
            report.notes.push_back(interrupted->ToWords());
            return interrupted;
        }
    } catch (const KSetupFailure& failure) {
        if (!failure.IsDenied()) { // who may not look is not told
            throw;
        }
    }
    return std::nullopt;
}

/// Whose kits may be installed, also of a product that was removed.
void FillKeys(const std::string& service, KRunReport& report) {
    try {
        for (const KKnownKey& known : KKnownKeys::Find(service).keys) {
            report.keys.push_back({known.key.GetId(), known.file});
        }
    } catch (const KSetupFailure& failure) {
        if (KSYS::IsRoot()) { // who may not look is not told
            report.notes.emplace_back(failure.GetText());
        }
    }
}

/// The manifest is long, and mostly nobody is asked about: so it is read for the first one.
std::vector<KText> DescribeOutdated(const std::string& service) {
    std::optional<KManifest> manifest;
    bool isRead = false;
    return DescribeOutdatedPrograms([&](const std::string& path) {
        if (!std::exchange(isRead, true)) {
            manifest = KManifest::Read(service);
        }
        return manifest && manifest->Find(path) != nullptr;
    });
}

/// What is installed beside what was. The configuration is there to be edited.
void VerifyInstalled(
    const std::string& service,
    const std::string& configuration,
    const std::optional<KInterruptedRun>& begun,
    KRunReport& report
) {
    const auto manifest = KManifest::Read(service);
    if (!manifest && begun) {
        throw KSetupFailure(
            ExitCode::noKit,
            Text(
                "%s is not installed completely, so there is nothing to compare with.",
                report.product
            )
        );
    }
    if (!manifest) {
        throw KSetupFailure(
            ExitCode::noKit,
            Text(
                "%s was not installed by this program, or a version that kept no manifest: there "
                "is nothing to compare with. Install it again.",
                report.product
            )
        );
    }
    for (const KManifestDifference& one : manifest->Verify({configuration})) {
        report.differences.emplace_back(one.path, one.words);
    }
    if (report.differences.empty()) {
        report.notes.emplace_back(Text("It is as it was installed."));
        return;
    }
    report.result = KRunResult::Differs;
    report.exitCode = ExitCode::differs;
}

} // namespace

void FillStatus(const KSetupArguments& arguments, KRunReport& report) {
    const KINS::KInstaller installer;
    const std::string service = installer.ExpandMacros("$serviceName$").c_str();
    report.product = KSetupKit::GetProductName().c_str();
    const std::optional<KInterruptedRun> begun = FillRuns(service, report);
    FillKeys(service, report);
    const std::optional<KInstalledRecord> record = LoadRecord(installer);
    if (!record) {
        report.result = KRunResult::NotInstalled;
        report.exitCode = ExitCode::notInstalled;
        return;
    }
    report.version = record->version;
    report.buildNumber = record->buildNumber;
    if (report.version == KINS::Names::noRecordedVersion && begun && !begun->version.empty()) {
        report.version = begun->version;
        report.buildNumber = begun->buildNumber;
    }
    report.productPath = record->path;
    report.recordDamage = record->ToWords();
    try {
        report.outdated = DescribeOutdated(service);
    } catch (const KSetupFailure& failure) {
        if (!failure.IsDenied() && !failure.IsDamage()) {
            throw;
        }
        // who may not look, or a damaged manifest: --verify tells
    }
    if (arguments.verify) {
        VerifyInstalled(service, RecordFile(installer, *record), begun, report);
    }
}

} // namespace KSETUP
