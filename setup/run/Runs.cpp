// SPDX-License-Identifier: MIT
#include <setup/run/KRun.h>
#include <setup/run/KSameInstall.h>
#include <setup/run/Leftovers.h>
#include <setup/run/Runs.h>
#include <setup/state/KKeptKit.h>
#include <setup/state/StateDirectory.h>

#include <optional>
#include <string>
#include <utility>

namespace KSETUP {

void Install(const KRunContext& context) {
    KLockedProduct product(context);
    const KTrustedKit kit(product, KTrustedKit::Use::Install);
    const KSameInstall same(product);
    if (same.IsDone()) {
        return;
    }
    KRun run(KCheckedRun(KPlannedRun::OfInstall(kit)));
    run.Finish();
    if (context.report.result == KRunResult::Done) {
        same.Remember(run.GetPlanned());
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
            "What was remembered of the interrupted run is deleted, so that it is not told again. "
            "Look for what it left where the product was to be installed."
        );
    } else {
        SettleLeftovers(product);
    }
}

} // namespace KSETUP
