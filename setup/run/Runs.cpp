// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/run/KRun.h>
#include <setup/run/KSameInstall.h>
#include <setup/run/Leftovers.h>
#include <setup/run/Runs.h>
#include <setup/state/KBackup.h>
#include <setup/state/KKeptKit.h>
#include <setup/state/StateDirectory.h>

#include <optional>
#include <string>
#include <utility>

namespace KSETUP {

void Install(const KRunContext& context) {
    KLockedProduct product(context);
    const KSameInstall same(product);
    if (same.IsDone()) {
        return;
    }
    KRun run(KCheckedRun(KPlannedRun::OfInstall(product)));
    run.Finish();
    if (context.report.result == KRunResult::Done) {
        same.Remember(run.GetPlanned());
    }
}

void Remove(const KRunContext& context) {
    KLockedProduct product(context);
    if (std::optional<KPlannedRun> planned = KPlannedRun::OfRemoval(product)) {
        KRun run(KCheckedRun(std::move(*planned)));
        run.Finish();
    } else if (product.GetInterrupted()) { // one that nobody can go on with: its file is damaged
        KWriteJournal::Discard(product.GetService());
        KRunState(product.GetService()).End();
        KKeptKit::RemoveUnlessNeeded(product.GetService());
        RemoveEmptyStateDirectory(product.GetService());
        context.report.changed = true;
        context.report.notes.emplace_back(
            "What was remembered of the interrupted run is deleted, so that it is not told again. "
            "Look for what it left where the product was to be installed."
        );
    } else {
        SettleLeftovers(product);
    }
}

void Restore(const KRunContext& context) {
    const KLockedProduct product(context);
    KRunReport& report = context.report;
    const KRestored restored = KBackup(product.GetService()).Restore(context.ShallStop());
    report.notes.push_back(
        std::to_string(restored.putBack) + " put back, " + std::to_string(restored.deleted) +
        " that had not been there deleted. Services are as they were once systemd has read their "
        "files: systemctl daemon-reload."
    );
    report.changed = restored.putBack + restored.deleted > 0;
    report.leftBehind = restored.kept;
    for (const std::string& failure : restored.failures) {
        report.error += (report.error.empty() ? "" : "; ") + failure;
    }
    if (restored.stopped) {
        report.result = KRunResult::Cancelled;
        report.exitCode = ExitCode::signalBase + context.signals.GetFirst();
        report.error = "stopped on request; run it again to go on";
    } else if (!restored.failures.empty()) {
        report.result = KRunResult::Failed;
        report.exitCode = ExitCode::cannotWrite;
    } else if (const auto& begun = product.GetInterrupted(); begun && !begun->hasBackup) {
        report.notes.push_back(begun->ToWords()); // this backup is older than that run
    } else {
        KWriteJournal::Discard(product.GetService());
        KRunState(product.GetService()).End(); // what was begun is undone
    }
}

} // namespace KSETUP
