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

namespace {

/// Not without its backup, nor with one that is damaged.
bool CanBeRestored(const std::string& service, const std::string& run) {
    try {
        return KBackup(service).Open(run).has_value();
    } catch (const KSetupFailure& failure) {
        if (!failure.IsDamage()) {
            throw;
        }
        return false;
    }
}

/// What stands there is neither version, and what was put back of its configuration would count as
/// edited. A removal can go on.
void RefuseHalfRestored(const KLockedProduct& product) {
    const auto& begun = product.GetInterrupted();
    const bool isRestoring =
        begun && begun->damage.empty() && begun->action == KRunDescription::Action::Restore;
    if (isRestoring && CanBeRestored(product.GetService(), begun->run)) {
        throw KSetupFailure(
            ExitCode::differs, Text("%s Nothing was changed. Install after that.", begun->ToWords())
        );
    }
}

} // namespace

void Install(const KRunContext& context) {
    KLockedProduct product(context);
    RefuseHalfRestored(product);
    const KTrustedKit kit(product, KTrustedKit::Use::Install);
    KSameInstall same(kit);
    if (same.IsDone()) {
        return;
    }
    KRun run(KCheckedRun(KPlannedRun::OfInstall(kit)), [&same] { same.LookAgain(); });
    run.Finish();
    if (context.report.result == KRunResult::Done) {
        same.Remember(run.GetPlanned(), run.GetManifest());
    }
}

void Remove(const KRunContext& context) {
    KLockedProduct product(context);
    const KTrustedKit kit(product, KTrustedKit::Use::Removal);
    if (std::optional<KPlannedRun> planned = KPlannedRun::OfRemoval(kit)) {
        KRun run(KCheckedRun(std::move(*planned)));
        run.Finish();
    } else if (product.GetInterrupted()) { // one that nobody can go on with: its file is damaged
        KWriteJournal::Discard(product.GetService());
        KRunState(product.GetService()).End();
        KKeptKit::RemoveUnlessNeeded(product.GetService());
        RemoveEmptyStateDirectory(product.GetService());
        context.report.changed = true;
        context.report.notes.emplace_back(
            Text("What was remembered of the interrupted run is deleted, so that it is not told "
                 "again. Look for what it left where the product was to be installed.")
        );
    } else {
        SettleLeftovers(product);
    }
}

} // namespace KSETUP
