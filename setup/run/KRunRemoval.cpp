// SPDX-License-Identifier: MIT
//
// The end of a removal: what is left, and what may be forgotten.
#include <ins/Names.h>
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/PathText.h>
#include <setup/plan/UnitFiles.h>
#include <setup/run/FlushDeletions.h>
#include <setup/run/KRun.h>
#include <setup/run/PlannedPaths.h>
#include <setup/state/KKeptKit.h>
#include <setup/state/KKitFingerprint.h>
#include <setup/state/KPinnedKey.h>
#include <setup/state/StateDirectory.h>
#include <sup++/KFileBase.h>

#include <set>
#include <string>
#include <vector>

#include <sys/services/KServiceError.h>
#include <sys/services/KUnitFiles.h>

namespace KSETUP {

namespace {

/// Whether what is left of a service's unit is ours: its file, or links to none at all.
bool IsNobodyElses(const std::string& service) {
    const std::string unit = service + ".service";
    const KSYS::KUnitFiles files("");
    try {
        return files.Find(unit).empty() || files.IsOurs(unit);
    } catch (const KSYS::KServiceError&) {
        return true; // it is there, and cannot be read: better told than not
    }
}

} // namespace

void KRun::SettleRemoval() {
    if (installer.IsProductInstalled()) {
        RefuseLinkThatStays();
    }
    CleanUp();
    report.leftBehind = FindLeft();
    if (KSUP::KFileBase::DoesFileExist(report.productPath)) {
        report.notes.emplace_back(
            Text("The directory is still there: it holds what the script does not delete.")
        );
    }
    FlushDeletions(toFlush);
    Forget();
}

/// A link that no rule deletes is the script's fault, and running it again would change nothing. One
/// that could not be deleted can be, once the cause is gone: that removal goes on then.
void KRun::RefuseLinkThatStays() {
    const std::string link = GetPlanned().GetProduct().GetMacros().Expand(KINS::Names::recordLink);
    if (const auto found = changes.resisted.find(link); found != changes.resisted.end()) {
        const unsigned failed = found->second;
        changes.resisted.erase(found); // told here
        throw SystemFailure(
            ExitCode::cannotWrite,
            Text("%s still counts as installed: cannot delete %s", report.product, link),
            failed,
            Text("Fix the cause (lsattr -d shows an attribute that forbids it) and run it again to "
                 "go on.")
        );
    }
    NameRun();
    backup.Conclude(journal->GetMade(), nullptr, [this] {
        journal->End(); // nothing is left of it to go on with
        state->End();
    });
    throw KSetupFailure(
        ExitCode::ruleFailed,
        Text(
            "%s still counts as installed: the script's section [remove] does not delete the "
            "product's link in /etc. Everything else that it names is removed.",
            report.product
        )
    );
}

/// Nothing is forgotten of what a power cut could bring back. A run that was killed before this one,
/// commands and systemd delete too, so all that was the product's counts, by where links lead before
/// they go themselves.
void KRun::NoteWhatMayGo() {
    if (GetPlanned().Installs() && !GoesOn()) {
        return; // what is obsolete is noted as it goes, the rest the engine flushes
    }
    KLockedProduct& product = GetPlanned().GetProduct();
    const KOwnership& ownership = product.GetOwnership();
    for (const std::string& path : ChangedPaths(GetPlanned().GetPlan())) {
        toFlush.push_back(ownership.RealPath(path));
    }
    for (const auto& [path, entry] : ownership.GetManifest().GetEntries()) {
        toFlush.push_back(ownership.RealPath(path));
    }
    toFlush.push_back(ownership.RealPath(JoinPath(report.productPath, "x"))); // what was in it
    toFlush.push_back(ownership.RealPath(product.GetMacros().Expand(KINS::Names::recordLink)));
}

/// What is installed is what an earlier run left, but for what this one removed.
void KRun::NameRun() {
    const std::string& service = GetPlanned().GetProduct().GetService();
    try {
        if (std::optional<KManifest> manifest = GetPlanned().GetProduct().LoadManifest()) {
            manifest->SetRun(backup.GetRun());
            manifest->Write(service);
        }
    } catch (const KSetupFailure& failure) {
        if (!failure.IsDamage()) { // which is told by who needs it
            throw;
        }
    }
}

/// What the plan would have had go and is there still. Unit files that are not ours were not to
/// go.
void KRun::AddPlannedToGo(std::set<std::string>& left) const {
    using Kind = KPlannedAction::Kind;
    const KManifest& manifest = GetPlanned().GetProduct().GetOwnership().GetManifest();
    GetPlanned().GetPlan().ForEachAction([&](const KPlannedAction& action) {
        const bool goes = action.kind == Kind::DeleteFile || action.kind == Kind::DeleteDirectory;
        if (action.kind == Kind::RemoveService && IsNobodyElses(*action.path)) {
            const std::vector<std::string> units = FindUnitEntries(*action.path);
            left.insert(units.begin(), units.end());
        } else if (goes && !action.lacks && manifest.Find(NormalPath(*action.path)) == nullptr &&
                   LookAtEntry(*action.path)) {
            left.insert(NormalPath(*action.path));
        }
    });
}

/// What an earlier run installed, or began to, and this one left; where that is not known what it was
/// to delete, and the product path, if it is there.
std::vector<std::string> KRun::FindLeft() const {
    std::set<std::string> left(changes.foreign.begin(), changes.foreign.end());
    for (const std::string& path : journal->GetMade()) { // by an install that did not end
        if (LookAtEntry(path)) {
            left.insert(path);
        }
    }
    AddPlannedToGo(left);
    const KOwnership& ownership = GetPlanned().GetProduct().GetOwnership();
    const bool isKnown = ownership.GetKnown() == KOwnership::Known::Manifest;
    if (isKnown) {
        const std::vector<std::string> remaining = ownership.GetManifest().FindRemaining();
        left.insert(remaining.begin(), remaining.end());
        for (const auto& [path, entry] : ownership.GetManifest().GetEntries()) {
            report.filesDeleted +=
                entry.kind != KManifestEntry::Kind::Directory && !left.contains(path) ? 1U : 0U;
        }
    }
    for (const KRunChanges::Kept& kept : changes.configuration) {
        left.erase(NormalPath(kept.path)); // told with its own advice
    }
    if (!isKnown &&
        !ownership.GetDamage().empty()) { // its advice is for those who keep the product
        report.notes.push_back(Text(
            "%s/%s/manifest could not be understood, so what was left is not known file by file.",
            stateBaseDirectory,
            GetPlanned().GetProduct().GetService()
        ));
    }
    if (!isKnown && left.empty() && KSUP::KFileBase::DoesFileExist(report.productPath)) {
        left.insert(report.productPath);
    }
    return {left.begin(), left.end()};
}

/// The product is gone, and what was remembered of it goes too, save a backup; and save what it
/// consisted of and is still there, so that a purge and the next install know whose it is.
void KRun::Forget() {
    const std::string& service = GetPlanned().GetProduct().GetService();
    KManifest left = GetPlanned().GetProduct().GetOwnership().GetManifest().WithoutMissing();
    if (left.HasFiles()) {
        left.SetRun(backup.GetRun());
        left.Write(service);
    } else {
        KManifest::Remove(service);
    }
    KInstalledKit::Remove(service);
    if (context.arguments.purge) { // else the next install has to be by the same people
        KPinnedKey::Remove(service);
    }
    backup.Conclude(journal->GetMade(), nullptr, [this] {
        journal->End();
        state->End();
    });
    // Last: until here a removal that was killed needs it to go on.
    KKeptKit::RemoveUnlessNeeded(service);
    RemoveEmptyStateDirectory(service);
}

} // namespace KSETUP
