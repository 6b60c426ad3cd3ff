// SPDX-License-Identifier: MIT
//
// A run from its first rule on: how it ends, what is remembered of it, and what is told.
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/PathText.h>
#include <setup/preflight/VersionOrder.h>
#include <setup/run/FlushDeletions.h>
#include <setup/run/KAuditLog.h>
#include <setup/run/KRun.h>
#include <setup/run/KeepKit.h>
#include <setup/run/OutdatedPrograms.h>
#include <setup/run/RunFailure.h>
#include <setup/state/KPinnedKey.h>
#include <setup/state/StateDirectory.h>
#include <sup++/KErrorCode.h>
#include <sup++/KErrorKind.h>
#include <sup++/KFileBase.h>
#include <sup++/SvcFile.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <exception>
#include <set>
#include <system_error>
#include <utility>
#include <vector>

#include <sys/processes/BlockedSignals.h>
#include <sys/services/ServiceJournal.h>

namespace KSETUP {

namespace {

constexpr std::size_t pathsShown = 5;

/// Units and the links that enable them are made anew by the rules of services.
bool IsOfUnit(const std::string& path) {
    return IsAtOrBelow(path, "/etc/systemd/system");
}

/// What a rule, by its number among those that count, was to copy and is not there. A stop takes
/// away what is being copied, and so each further file of a wildcard, also one that had been there.
std::vector<std::string> FindMissingCopies(const KPlan& plan, unsigned number) {
    std::vector<std::string> missing;
    for (const KPlannedRule& rule : plan.GetRules()) {
        if (rule.rule.type == KINS::KRuleType::Section || number-- != 0) {
            continue;
        }
        for (const KPlannedAction& action : rule.actions) {
            if (action.kind == KPlannedAction::Kind::CopyFile &&
                !KSUP::KFileBase::DoesFileExist(*action.path)) {
                missing.push_back(*action.path);
            }
        }
        break;
    }
    return missing;
}

KText TakenAway(const std::vector<std::string>& paths) {
    if (paths.size() == 1) {
        return Text("The file that was being copied was taken away: %s", paths.front());
    }
    KText text = Text("The files that were being copied were taken away: %s", paths.front());
    for (std::size_t at = 1; at < std::min(paths.size(), pathsShown); ++at) {
        text += ", " + paths[at];
    }
    return paths.size() <= pathsShown ? text
                                      : Text("%s and %s more", text, paths.size() - pathsShown);
}

} // namespace

void KRun::Finish() {
    const auto ended = watch->Wait();
    // A rule that is called off counts as done for the engine.
    report.rulesDone = installer.IsCancelled() ? watch->GetDone() : installer.GetCompletedCount();
    report.rulesAll = watch->GetRuleCount();
    report.changed = WasBegun();
    FillWork();
    if (ended) {
        FillError(*ended);
    } else {
        Settle();
    }
    FillNotes();
    KAuditLog::End(report, installer.GetLog());
}

/// What the rules did. The bytes are those of the plan.
void KRun::FillWork() {
    report.filesCopied = copiedCount.load(std::memory_order_relaxed);
    report.bytesCopied = watch->GetBytesDone();
    report.wasNewer =
        !report.formerVersion.empty() && CompareVersions(report.formerVersion, report.version) > 0;
    report.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - begunAt).count();
}

/// Settles what is remembered of the product. From the record on the run is not to be stopped: a
/// signal that comes now finds it done.
void KRun::Settle() {
    try {
        if (GetPlanned().Installs()) {
            SettleInstall();
        } else {
            SettleRemoval();
        }
    } catch (const KSetupFailure& failure) { // too late for a refusal
        report.result = KRunResult::Failed;
        report.exitCode = failure.GetExitCode();
        report.error = failure.GetText();
        static_cast<void>(IsRolledBack()); // else it stands as interrupted
    } catch (const std::exception& error) {
        report.result = KRunResult::Failed;
        report.exitCode = ExitCode::internal;
        report.error = Text("all rules were done, and then: %s", error.what());
    }
}

/// Without its manifest a product is installed, and nobody knows what it consists of: the run did
/// not come to its end, and stands as interrupted.
void KRun::SettleInstall() {
    CleanUp();
    FlushDeletions(toFlush);
    try {
        // First: without the manifest the run goes on.
        KeepKit(
            GetPlanned(),
            report.version + "-" + std::to_string(report.buildNumber),
            checked.GetCopies().GetSealed()
        );
        installed = MakeManifest();
        installed.SetRun(backup.GetRun());
        // The link that the script laid may lead to another name of the product path.
        installed.SetProduct(
            {report.version,
             report.buildNumber,
             NormalPath(installer.GetInstalledProductPath().c_str())}
        );
        GetPlanned().GetKit().PinKey();
        installed.Write(GetPlanned().GetProduct().GetService());
    } catch (const KSetupFailure& failure) {
        throw KSetupFailure(
            failure.GetExitCode(),
            Text(
                "%s is installed, but not what it consists of written down: %s",
                report.product,
                failure.GetText()
            )
        );
    }
    backup.Conclude(journal->GetMade(), &installed, [this] {
        journal->End();
        state->End();
    });
    report.outdated = DescribeOutdatedPrograms([this](const std::string& path) {
        return installed.Find(path) != nullptr;
    });
}

/// While the disk is flushed: what the rules made is as it stays, and the record is looked at later.
void KRun::BeginManifest() {
    if (!GetPlanned().Installs()) {
        return;
    }
    const KSYS::BlockedSignals
        blocked; // for the thread that inherits them: they are the main one's
    try {
        journal->BeginLater();
        madeByRules = std::async(std::launch::async, [this] { return LookAtMade(); });
    } catch (const std::exception&) {
        // MakeManifest looks itself
    }
}

KManifest KRun::LookAtMade() {
    KManifest manifest;
    KEntryLook look;
    KKeptDigests copied = checked.GetCopies().Take();
    journal->ForEachMade([&](const std::string& path) { manifest.Add(path, copied, look); });
    return manifest;
}

KManifest KRun::MakeManifest() {
    if (const int failed = journal->GetErrorNumber(); failed == ENOMEM) {
        throw KSetupFailure(
            ExitCode::internal, Text("there was no memory left to keep track of it.")
        );
    }
    const KOwnership& ownership = GetPlanned().GetProduct().GetOwnership();
    KManifest manifest = madeByRules.valid() ? madeByRules.get() : LookAtMade();
    KEntryLook look;
    KKeptDigests unknown;
    for (const std::string& path : journal->GetLater()) { // the record, and what became rubbish
        manifest.Forget(path);
        if (journal->IsMade(path)) {
            manifest.Add(path, unknown, look);
        }
    }
    manifest.Merge(ownership.GetManifest());
    if (!ownership.GetDamage().empty()) { // so lost; the new one is as true without it
        report.notes.emplace_back(
            Text("The former manifest could not be understood; it is written anew.")
        );
    }
    for (const auto& [path, entry] : manifest.GetEntries()) {
        if (GetPlanned().GetPolicy().IsConfiguration(path) && !IsOfUnit(path) &&
            !changes.programs.contains(path) && journal->IsMade(path)) {
            manifest.MarkConfiguration(path, "");
        }
    }
    for (const std::string& path : changes.rights) {
        manifest.RefreshRights(path);
    }
    TellLostOwners(manifest);
    for (const auto& [path, digest] : changes.kitDigests) {
        manifest.MarkConfiguration(path, digest);
    }
    // Options that were put into an edited file are no reason to take it for the kit's next time.
    for (const KRunChanges::Kept& kept : changes.configuration) {
        edited.try_emplace(NormalPath(kept.path), changes.kitDigests[NormalPath(kept.path)]);
    }
    for (const auto& [path, digest] : edited) {
        manifest.MarkEdited(path, digest);
    }
    return manifest;
}

/// Where others may lay files a new one has not the owner of the one that it replaces.
void KRun::TellLostOwners(const KManifest& manifest) {
    for (const auto& [path, owner] : changes.formerOwners) {
        const KManifestEntry* now = manifest.Find(path);
        if (now != nullptr && now->kind == KManifestEntry::Kind::File && now->owner == 0 &&
            !changes.rights.contains(path) && journal->IsMade(path)) {
            report.notes.push_back(Text(
                "%s is root's now and no longer user %s's: others than root may write in its "
                "directory, so a new file there takes over no owner. Give it one in the script "
                "(mode=set).",
                path,
                owner
            ));
        }
    }
}

/// What the product owned, and neither has any more nor is to keep. What cannot be deleted stays,
/// and stays the product's.
void KRun::CleanUp() {
    const KOwnership& ownership = GetPlanned().GetProduct().GetOwnership();
    const std::vector<KPlannedAction>& cleanup = GetPlanned().GetPlan().GetCleanup();
    std::set<std::string> made;
    if (!cleanup.empty()) {
        for (const std::string& path : journal->GetMade()) {
            made.insert(ownership.RealPath(path));
        }
    }
    for (const KPlannedAction& action : cleanup) {
        const std::string real = ownership.RealPath(*action.path);
        if (made.contains(real)) {
            continue;
        }
        unsigned failed = ENOENT;
        if (action.kind == KPlannedAction::Kind::DeleteFile) {
            failed = SvcDeleteFile(0, action.path->c_str());
        } else if (action.kind == KPlannedAction::Kind::DeleteDirectory) {
            failed = SvcDeleteDirectory(0, action.path->c_str(), 0);
        } else {
            changes.configuration.push_back({*action.path, ""});
        }
        if (failed == 0) {
            toFlush.push_back(real);
            report.obsolete.push_back(*action.path);
        }
        changes.NoteDeletion(*action.path, failed);
    }
    if (!GetPlanned().Installs()) {
        report.obsolete.clear(); // it is the removal itself
    }
}

/// What the rules did otherwise than their lines say.
void KRun::FillChanges() {
    std::set<std::string> seen;
    for (const KRunChanges::Kept& kept : changes.configuration) {
        if (seen.insert(kept.path).second) {
            report.keptConfiguration.push_back({kept.path, kept.offered});
        }
    }
    report.keptServices.assign(changes.keptServices.begin(), changes.keptServices.end());
    report.replacedLinks = changes.replacedLinks;
    for (const KRunChanges::Listed& one : changes.listed) {
        report.notes.push_back(
            Text("%s lists %s to be deleted, which stays: %s.", one.profile, one.path, one.why)
        );
    }
    if (GetPlanned().Installs()) {
        report.keptForeign = changes.foreign;
    }
    TellWhatResisted();
}

/// Which the rules pass over, as those of the engine do.
void KRun::TellWhatResisted() {
    std::size_t count = 0;
    for (const auto& [path, failed] : changes.resisted) {
        if (LookAtEntry(path) && ++count <= pathsShown) { // another rule may have been able to
            report.notes.push_back(Text(
                "%s could not be deleted: %s.",
                path,
                std::generic_category().message(static_cast<int>(failed))
            ));
        }
    }
    if (count > pathsShown) {
        report.notes.push_back(Text("%s more could not be deleted.", count - pathsShown));
    }
}

void KRun::FillError(const KSUP::KError& error) {
    if (error.GetKind() == KSUP::KErrorKind::Cancelled) {
        FillStopped();
        return;
    }
    report.result = KRunResult::Failed;
    report.exitCode = ExitCodeOf(error);
    report.errorCode = error.GetCode();
    report.error = DescribeError(error);
    FillLogEnd();
    if (const KWatchedRule* rule = watch->GetRule(report.rulesDone)) {
        report.place = rule->place;
        report.rule = rule->text;
        report.ruleAtWork = report.rulesDone + 1;
        if (error.GetKind() == KSUP::KErrorKind::Service) {
            FillService(*rule);
        } else if (error.GetCode() == KSUP::ErrorCode::processFailed) {
            report.commandEnd = commandOutput.ReadRuleEnd();
        }
    } else if (!isSealBroken) {
        report.notes.emplace_back(
            Text("All rules were done; writing the record of the product failed.")
        );
    }
    if (IsRolledBack()) {
        return;
    }
    const KText stays = DescribeWhatStays();
    report.notes.push_back(
        Text("%s%sFix the cause and run it again.", stays, (stays.empty() ? "" : ". "))
    );
    if (GetPlanned().Installs() && !GetPlanned().GetValues().empty()) {
        report.notes.emplace_back(Text(
            "A value that the configuration has by now is not asked for again: change it there, "
            "or give another one by --values FILE."
        ));
    }
}

/// What the service said itself.
void KRun::FillService(const KWatchedRule& rule) {
    constexpr std::size_t linesShown = 5;
    if (rule.planned == nullptr) {
        return;
    }
    for (const KPlannedAction& action : rule.planned->actions) {
        if (action.kind == KPlannedAction::Kind::StartService ||
            action.kind == KPlannedAction::Kind::StopService) {
            report.service = *action.path;
            report.journal = KSYS::ReadServiceJournal(*action.path, begun, linesShown);
        }
    }
}

void KRun::FillStopped() {
    const int signal = context.signals.GetFirst();
    report.result = KRunResult::Cancelled;
    report.exitCode = ExitCode::signalBase + (signal != 0 ? signal : SIGINT);
    report.error = Text("stopped on request");
    report.ruleAtWork = watch->GetStarted() > report.rulesDone ? report.rulesDone + 1 : 0;
    if (IsRolledBack()) {
        return;
    }
    if (report.ruleAtWork != 0) { // which was called off
        const unsigned last = report.rulesDone;
        std::vector<std::string> missing = FindMissingCopies(GetPlanned().GetPlan(), last);
        const std::string copied = watch->GetCopied(last);
        // A command may have made what no plan could know of.
        if (missing.empty() && !copied.empty() && !KSUP::KFileBase::DoesFileExist(copied)) {
            missing.push_back(copied);
        }
        if (!missing.empty()) {
            report.notes.push_back(TakenAway(missing));
        }
    }
    const KText stays = DescribeWhatStays();
    report.notes.push_back(
        stays.empty() ? Text("Run it again to go on.") : Text("%s; run it again to go on.", stays)
    );
}

/// Puts everything back where that was asked for; else notes what the run left.
bool KRun::IsRolledBack() {
    if (context.arguments.rollback) {
        const bool isWhole = backup.RollBack();
        KAuditLog::RolledBack(report, installer.GetLog());
        if (isWhole) {
            report.changed = false;
            return true;
        }
    }
    backup.Fail(journal->GetMade());
    return false;
}

/// Whether a rule may have changed something.
bool KRun::WasBegun() const {
    return installer.GetCompletedCount() > 0 || !installer.GetStatus().IsEmpty();
}

/// Empty when nothing was done, or there is no directory in which anything could stay.
KText KRun::DescribeWhatStays() const {
    if (!WasBegun() || !KSUP::KFileBase::DoesFileExist(report.productPath)) {
        return {};
    }
    return (GetPlanned().Installs() ? Text("What was done stays in ")
                                    : Text("What was not yet removed stays in ")) +
           report.productPath;
}

void KRun::FillNotes() {
    FillChanges();
    if (KText left = DescribeLeftServices(); !left.empty()) {
        report.notes.push_back(std::move(left));
    }
    if (const int failed = journal->GetErrorNumber(); failed != 0 && report.exitCode != 0) {
        report.notes.push_back(Text(
            "What the run made could not all be written down (%s), so a removal may leave some of "
            "it. Run it again with room in %s.",
            std::generic_category().message(failed),
            stateBaseDirectory
        ));
    }
    report.commandOutput = commandOutput.FindWritten();
}

} // namespace KSETUP
