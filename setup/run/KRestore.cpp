// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/plan/UnitFiles.h>
#include <setup/preflight/StaleTemporaries.h>
#include <setup/preflight/TrustedPlaces.h>
#include <setup/run/KAuditLog.h>
#include <setup/run/KLockedProduct.h>
#include <setup/run/KRestore.h>
#include <setup/run/PlannedPaths.h>
#include <setup/run/Runs.h>
#include <setup/run/ServicesBefore.h>
#include <setup/state/KWriteJournal.h>
#include <sup++/KLog.h>

#include <algorithm>
#include <exception>
#include <optional>
#include <set>
#include <utility>

namespace KSETUP {

namespace {

template <class Part>
Part Joined(const std::vector<Part>& parts, const char* between) {
    Part text;
    for (const Part& part : parts) {
        text += (text.empty() ? "" : between) + part;
    }
    return text;
}

/// What enables a service is as it was: links that are not in the backup go.
void DeleteAddedLinks(const KBackupIndex& index, KRestoration& restoration) {
    for (const KServiceBefore& service : index.services) {
        if (!service.isInstalled) {
            continue;
        }
        for (const std::string& path : FindUnitEntries(service.name)) {
            if (!index.entries.contains(path)) {
                restoration.DeleteLink(path);
            }
        }
    }
}

} // namespace

KUndone
Undo(const KOpenBackup& backup, KRestoration& restoration, const std::function<bool()>& shallStop) {
    KUndone undone;
    const bool hasWork = restoration.HasWork(); // else those that run go on with what they have
    const std::vector<KServiceBefore>& services = backup.index.services;
    StopServices(services, hasWork, undone.report, undone.failures);
    restoration.PutBack(shallStop);
    DeleteAddedLinks(backup.index, restoration);
    if (!restoration.GetResult().stopped) {
        StartServices(services, undone.report, undone.failures);
    }
    const std::vector<KText>& failures = restoration.GetResult().failures;
    if (failures.empty() && undone.failures.empty() && !restoration.GetResult().stopped) {
        restoration.PutBackOwn();
    }
    const KRestored& restored = restoration.GetResult();
    undone.failures.insert(
        undone.failures.end(), restored.failures.begin(), restored.failures.end()
    );
    undone.report.putBack = restored.putBack;
    undone.report.deleted = restored.deleted;
    undone.report.edited = restored.edited;
    undone.leftBehind = restored.kept;
    undone.stopped = restored.stopped;
    undone.report.isComplete = undone.IsWhole() && !backup.index.hasCommands &&
                               restored.kept.empty() && restored.edited.empty();
    return undone;
}

namespace {

void DeleteUndone(const std::string& run, KBackup& store, KRunReport& report) {
    try {
        store.Delete(run);
        RemoveEmptyStateDirectory(store.GetName(), store.GetBase());
    } catch (const std::exception& failure) {
        report.notes.push_back(Text(
            "The backup of the run that was undone is not deleted (%s). The next run that succeeds "
            "takes it away.",
            failure.what()
        ));
    }
}

} // namespace

void ForgetUndone(const KOpenBackup& backup, KBackup& store, KRunReport& report) {
    const std::string& service = store.GetName();
    const std::string& run = backup.index.run;
    const std::string state = store.GetBase() + "/" + service + "/" + KRunState::fileName;
    const auto former = backup.index.entries.find(state);
    if (former == backup.index.entries.end() || former->second.kind != KBackupEntry::Kind::File) {
        try {
            KWriteJournal::Discard(service, store.GetBase());
            KRunState(service, store.GetBase()).End(); // it is done
        } catch (const KSetupFailure&) {
            // Without a state a backup would count as that of a run that came to its end.
            if (!KRunState::Read(service, store.GetBase())) {
                DeleteUndone(run, store, report);
            }
            throw;
        }
    }
    DeleteUndone(run, store, report);
}

void FillUndone(const KUndone& undone, bool hasCommands, KRunReport& report) {
    const KPutBackReport& restored = undone.report;
    report.restored = restored;
    report.leftBehind = undone.leftBehind;
    report.changed = restored.putBack + restored.deleted > 0;
    report.notes.push_back(
        Text("%s put back, %s that had not been there deleted.", restored.putBack, restored.deleted)
    );
    for (const auto& [path, keptAs] : restored.edited) {
        report.notes.push_back(Text("Edited since, and kept: %s", keptAs));
    }
    if (!restored.restarted.empty()) {
        report.notes.push_back(
            Text("Started again with what was put back: %s.", Joined(restored.restarted, ", "))
        );
    }
    if (!restored.stopped.empty()) {
        report.notes.push_back(
            Text("Stopped, because it did not run before: %s.", Joined(restored.stopped, ", "))
        );
    }
    if (hasCommands) {
        report.notes.emplace_back(Text("What commands of the script did besides is not undone."));
    }
}

namespace {

/// The run that a restoration would undo: the one that did not come to its end, or the last one.
std::string FindRun(const KLockedProduct& product, const KBackup& store) {
    if (const auto& begun = product.GetInterrupted()) {
        // What is kept is of no other: a run deletes what is of others.
        return begun->damage.empty() ? begun->run : store.GetBegunRun();
    }
    const std::optional<KManifest> manifest = product.LoadManifest();
    return manifest ? manifest->GetRun() : store.GetDoneRun(); // that of a removal
}

[[noreturn]] void RefuseWithout(const KLockedProduct& product, const KBackup& store) {
    const std::string& service = product.GetService();
    KText why = Text(
        "there is no backup of the last run for %s, so it cannot be undone. \"ins-setup install "
        "--backup\" makes one.",
        service
    );
    if (product.GetInterrupted()) {
        why = Text(
            "there is no backup of the run that was interrupted, so it cannot be undone. Nothing "
            "was changed. Install the version that you want."
        );
    } else if (store.Exists()) {
        why = Text(
            "the backup for %s is not of the last run: others came after it. Nothing was changed. "
            "Install the version that you want.",
            service
        );
    }
    throw KSetupFailure(ExitCode::noKit, why);
}

void RefuseEdited(const KRestoration& restoration, KRunReport& report) {
    std::string paths;
    for (const std::string& path : restoration.GetEdited()) {
        report.differences.emplace_back(path, Text("was edited since the run"));
        paths += "\n    " + path;
    }
    throw KSetupFailure(
        ExitCode::differs,
        Text(
            "edited since the run that is to be undone:%s\nNothing was changed. --force keeps them "
            "beside, as NAME.edited, and goes on.",
            paths
        )
    );
}

/// From here on it is remembered, so that one that is interrupted can be told and repeated.
void Begin(const KLockedProduct& product, const std::string& run, KRunReport& report) {
    KRunDescription description;
    if (const auto& begun = product.GetInterrupted(); begun && begun->damage.empty()) {
        description =
            static_cast<const KRunDescription&>(*begun); // what it was, not how far it came
    } else if (const auto& record = product.GetRecord(); record && record->distrust.empty()) {
        description.version = record->version;
        description.buildNumber = record->buildNumber;
        description.path = record->path;
    }
    description.product = report.product;
    description.action = KRunDescription::Action::Restore;
    description.run = run;
    report.version = description.version;
    report.buildNumber = product.GetRecord() ? product.GetRecord()->buildNumber : 0;
    report.productPath = description.path;
    report.log = product.GetInstaller().GetSetupLogPath().c_str();
    RequireSafeLog(report.log);
    KAuditLog::Begin(report, product.GetContext().kit.GetDirectory());
    KRunState(product.GetService()).Begin(description);
}

/// What a killed run had begun to write, while the state still says of which run it is.
void DeleteHalfWritten(const KLockedProduct& product, const KBackupIndex& index) {
    std::vector<std::string> paths;
    for (const auto& [path, entry] : index.entries) {
        paths.push_back(path);
    }
    std::set<std::string> directories = DirectoriesOf(paths);
    directories.merge(KWriteJournal::Read(product.GetService()).directories);
    DeleteStaleTemporaries(directories, product.GetInterrupted()->temporaries);
}

void FillInstalled(const KINS::KInstaller& installer, KRunReport& report) {
    const std::optional<KInstalledRecord> record = LoadRecord(installer);
    report.version = record ? record->version : "";
    report.buildNumber = record ? record->buildNumber : 0;
    report.productPath = record ? record->path : "";
}

void End(KRunReport& report) {
    KSUP::KLog log;
    log.Open(report.log);
    KAuditLog::End(report, log);
}

void RestoreRun(
    const KLockedProduct& product, const KOpenBackup& backup, KBackup& store, KRunReport& report
) {
    const KRunContext& context = product.GetContext();
    KRestoration restoration(backup, store, context.ShallStop());
    if (!restoration.GetEdited().empty() && !context.arguments.force) {
        RefuseEdited(restoration, report);
    }
    if (product.GetInterrupted()) {
        DeleteHalfWritten(product, backup.index);
    }
    Begin(product, backup.index.run, report);
    const KUndone undone = Undo(backup, restoration, context.ShallStop());
    FillUndone(undone, backup.index.hasCommands, report);
    if (!backup.left) {
        report.notes.emplace_back(Text(
            "The run did not come to its end, so it is not known whether anything was edited since."
        ));
    }
    report.error = Joined(undone.failures, "; ");
    if (undone.stopped) {
        report.result = KRunResult::Cancelled;
        report.exitCode = ExitCode::signalBase + context.signals.GetFirst();
        report.error = Text("stopped on request; run it again to go on");
    } else if (!undone.failures.empty()) {
        report.result = KRunResult::Failed;
        report.exitCode = ExitCode::cannotWrite;
    } else {
        ForgetUndone(backup, store, report);
    }
    End(report);
    FillInstalled(product.GetInstaller(), report);
    if (const auto before = KRunState::Read(product.GetService());
        before && before->action != KRunDescription::Action::Restore) {
        report.notes.push_back(before->ToWords()); // the run that had been interrupted before
    }
}

} // namespace

void Restore(const KRunContext& context) {
    const KLockedProduct product(context);
    if (const auto& record = product.GetRecord()) {
        context.report.recordDamage = record->ToWords(); // which a restoration may cure
    }
    KBackup store(product.GetService());
    const std::string run = FindRun(product, store);
    const std::optional<KOpenBackup> backup = run.empty() ? std::nullopt : store.Open(run);
    if (backup) {
        RestoreRun(product, *backup, store, context.report);
        return;
    }
    const auto& begun = product.GetInterrupted();
    if (!begun || begun->action != KRunDescription::Action::Restore) {
        RefuseWithout(product, store);
    }
    // One that was killed while it deleted the backup, which it does when all is put back.
    store.Delete(run);
    KWriteJournal::Discard(product.GetService());
    KRunState(product.GetService()).End();
    RemoveEmptyStateDirectory(product.GetService());
    FillUndone({}, false, context.report);
    FillInstalled(product.GetInstaller(), context.report);
}

} // namespace KSETUP
