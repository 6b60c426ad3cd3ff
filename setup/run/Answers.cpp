// SPDX-License-Identifier: MIT
#include <ins/KInstaller.h>
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/output/KSetupSignals.h>
#include <setup/output/Words.h>
#include <setup/run/Answers.h>
#include <setup/run/RunWords.h>
#include <setup/state/KBackup.h>
#include <setup/state/KManifest.h>
#include <setup/state/KRunLock.h>
#include <setup/state/KRunState.h>
#include <sup++/KUtil.h>

namespace KSETUP {

namespace {

/// A run that goes on, or one that did not come to its end.
void FillRuns(const std::string& service, KRunReport& report) {
    try {
        if (const auto holder = KRunLock::FindHolder(service)) {
            report.notes.push_back("A run is going on" + holder->ToWords());
        } else if (const auto interrupted = KRunState::Read(service)) {
            report.notes.push_back(interrupted->ToWords());
        }
    } catch (const KSetupFailure& failure) {
        if (failure.GetExitCode() != ExitCode::notRoot) { // who may not look is not told
            throw;
        }
    }
}

/// What is installed beside what was. The configuration is there to be edited.
void Verify(const KINS::KInstaller& installer, const std::string& service, KRunReport& report) {
    const auto manifest = KManifest::Read(service);
    if (!manifest) {
        throw KSetupFailure(
            ExitCode::noKit,
            report.product + " was not installed by this program, or a version that kept no "
                             "manifest: there is nothing to compare with. Install it again."
        );
    }
    const KSUP::KString configuration = KSUP::KUtil::AppendPathSep(report.productPath, "/") +
                                        "config/" + installer.ExpandMacros("$iniFile$");
    for (const KManifestDifference& one : manifest->Verify({configuration.c_str()})) {
        report.differences.emplace_back(one.path, one.words);
    }
    if (report.differences.empty()) {
        report.notes.emplace_back("It is as it was installed.");
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
    FillRuns(service, report);
    if (!installer.IsProductInstalled()) {
        report.result = KRunResult::NotInstalled;
        report.exitCode = ExitCode::notInstalled;
        return;
    }
    const KInstalledRecord record = ReadRecord(installer);
    report.version = record.version;
    report.buildNumber = record.buildNumber;
    report.productPath = record.path;
    if (arguments.verify) {
        Verify(installer, service, report);
    }
}

void FillRestore(const KSetupArguments& arguments, KSetupVoice& voice, KRunReport& report) {
    const KINS::KInstaller installer;
    const std::string service = installer.ExpandMacros("$serviceName$").c_str();
    report.product = KSetupKit::GetProductName().c_str();
    KSetupSignals signals;
    const auto shallStop = [&] { return signals.Take() != 0; };
    const auto tell = [&](const std::string& words) { voice.Say(Shown(words)); };
    const KRunLock lock(service, arguments.waitSeconds, shallStop, lockDirectory, tell);
    const KRestored restored = KBackup(service).Restore(shallStop);
    report.notes.push_back(
        std::to_string(restored.putBack) + " put back, " + std::to_string(restored.deleted) +
        " that had not been there deleted. Services are as they were once systemd has read their "
        "files: systemctl daemon-reload."
    );
    for (const std::string& directory : restored.kept) {
        report.leftBehind.push_back(directory);
    }
    for (const std::string& failure : restored.failures) {
        report.error += (report.error.empty() ? "" : "; ") + failure;
    }
    if (restored.stopped) {
        report.result = KRunResult::Cancelled;
        report.exitCode = ExitCode::signalBase + signals.GetFirst();
        report.error = "stopped on request; run it again to go on";
    } else if (!restored.failures.empty()) {
        report.result = KRunResult::Failed;
        report.exitCode = ExitCode::cannotWrite;
    } else {
        KRunState(service).End(); // what was begun is undone
    }
}

} // namespace KSETUP
