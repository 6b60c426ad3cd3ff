// SPDX-License-Identifier: MIT
#include <ins/Names.h>
#include <setup/KSetupFailure.h>
#include <setup/plan/UnitFiles.h>
#include <setup/run/KRestore.h>
#include <setup/run/KRunBackup.h>
#include <setup/run/PlannedPaths.h>
#include <setup/run/ServicesBefore.h>
#include <setup/state/KKeptKit.h>
#include <setup/state/KPinnedKey.h>
#include <setup/state/RunId.h>

#include <algorithm>
#include <exception>
#include <utility>

namespace KSETUP {

namespace {

/// Commands and services may write into what is there, besides what the plan knows of.
bool HasCommands(const KPlan& plan) {
    const auto& rules = plan.GetRules();
    return std::any_of(rules.begin(), rules.end(), [](const KPlannedRule& rule) {
        return std::any_of(
            rule.actions.begin(),
            rule.actions.end(),
            [](const KPlannedAction& action) {
                return action.kind == KPlannedAction::Kind::StartCommand ||
                       action.kind == KPlannedAction::Kind::RunCommand;
            }
        );
    });
}

/// What an earlier run installed: a command may change it, too.
void AddInstalled(const KLockedProduct& product, std::vector<std::string>& paths) {
    try {
        if (const auto manifest = product.LoadManifest()) {
            for (const auto& [path, entry] : manifest->GetEntries()) {
                paths.push_back(path);
            }
        }
    } catch (const KSetupFailure& failure) {
        if (!failure.IsDamage()) { // what the rules change is kept all the same
            throw;
        }
    }
}

/// What a run that was interrupted kept under its name; empty where it kept nothing that can be
/// understood.
std::string FormerRun(const KLockedProduct& product, const KBackup& store) {
    const auto& begun = product.GetInterrupted();
    if (!begun) {
        return "";
    }
    try {
        const std::string kept = store.GetBegunRun();
        return !begun->damage.empty() || kept == begun->run ? kept : "";
    } catch (const KSetupFailure& failure) {
        if (!failure.IsDamage()) {
            throw;
        }
        product.GetContext().report.notes.emplace_back(failure.GetText());
        return "";
    }
}

} // namespace

KRunBackup::KRunBackup(const KPlannedRun& plannedRun)
    : planned(plannedRun),
      store(plannedRun.GetProduct().GetService()),
      run(FormerRun(plannedRun.GetProduct(), store)),
      goesOn(!run.empty()) {
    if (!goesOn) {
        run = MakeRunId();
    }
}

/// Everything that the run may change, so that "restore" can put it back.
void KRunBackup::Save() {
    const KRunContext& context = planned.GetContext();
    if (!goesOn) {
        store.Tidy(planned.GetProduct().GetInterrupted().has_value());
    }
    if (!context.arguments.backup && !context.arguments.rollback && !goesOn) {
        return;
    }
    KBackupWish wish;
    wish.run = run;
    wish.hasCommands = HasCommands(planned.GetPlan());
    wish.services = LookAtServices(planned.GetPlan());
    wish.paths = FindPaths(wish.services);
    store.Save(wish, context.ShallStop());
    isKept = true;
    context.reporter.Say(Text("What is there now is kept; \"ins-setup restore\" puts it back."));
}

std::vector<std::string> KRunBackup::FindPaths(const std::vector<KServiceBefore>& services) const {
    std::vector<std::string> paths = ChangedPaths(planned.GetPlan());
    for (const KServiceBefore& service : services) {
        const std::vector<std::string> entries = FindUnitEntries(service.name);
        paths.insert(paths.end(), entries.begin(), entries.end());
    }
    AddInstalled(planned.GetProduct(), paths);
    paths.push_back(planned.GetProduct().GetMacros().Expand(KINS::Names::recordFile));
    const std::string own = store.GetBase() + "/" + store.GetName();
    paths.push_back(own + "/manifest");
    paths.push_back(own + "/fingerprint");
    paths.push_back(own + "/" + KPinnedKey::fileName);
    const std::vector<std::string> kit = KKeptKit::ListPaths(store.GetName(), store.GetBase());
    paths.insert(paths.end(), kit.begin(), kit.end());
    if (planned.GetProduct().GetInterrupted() && !goesOn) { // undone, that one is interrupted again
        paths.push_back(own + "/state");
        paths.push_back(own + "/written");
    }
    return paths;
}

void KRunBackup::Conclude(
    const std::vector<std::string>& made,
    const KManifest* manifest,
    const std::function<void()>& end
) {
    if (isKept) {
        if (manifest != nullptr) {
            store.NoteLeft(made, *manifest);
        } else {
            store.NoteLeft(made);
        }
    }
    end();
    if (isKept) {
        store.Commit();
    } else {
        store.Discard();
    }
}

void KRunBackup::Fail(const std::vector<std::string>& made) {
    if (!isKept) {
        return;
    }
    try {
        store.NoteLeft(made);
    } catch (const KSetupFailure& failure) {
        planned.GetContext().report.notes.push_back(Text(
            "What the run left could not be noted, so \"restore\" will not see what is edited from "
            "now on: %s",
            failure.GetText()
        ));
    }
}

bool KRunBackup::RollBack() {
    KRunReport& report = planned.GetContext().report;
    report.rolledBack = false;
    try {
        const std::optional<KOpenBackup> backup = store.Open(run);
        if (!backup) {
            return false;
        }
        KRestoration restoration(*backup, store);
        KRunDescription description; // one that is killed from here on is done by "restore"
        description.action = KRunDescription::Action::Restore;
        description.product = report.product;
        description.version = report.version;
        description.path = report.productPath;
        description.run = run;
        KRunState(store.GetName()).Begin(description);
        const KUndone undone = Undo(*backup, restoration);
        report.rolledBack = undone.IsWhole();
        report.notes.emplace_back(
            !undone.IsWhole()
                ? Text("Not everything was put back. \"ins-setup restore\" tries it again.")
            : undone.report.isComplete
                ? Text("Everything was put back: %s is as it was before.", report.product)
                : Text("What the run replaced was put back.")
        );
        report.notes.insert(report.notes.end(), undone.failures.begin(), undone.failures.end());
        FillUndone(undone, backup->index.hasCommands, report);
        if (undone.IsWhole()) {
            ForgetUndone(*backup, store, report);
        }
    } catch (const std::exception& error) {
        report.rolledBack = false;
        report.notes.push_back(Text(
            "Not everything was put back: %s \"ins-setup restore\" tries it again.", error.what()
        ));
    }
    return *report.rolledBack;
}

} // namespace KSETUP
