// SPDX-License-Identifier: MIT
#pragma once

#include <setup/files/KFileDigest.h>
#include <setup/plan/KDiskView.h>
#include <setup/plan/KPlan.h>
#include <setup/plan/ValueMacros.h>
#include <setup/run/KTrustedKit.h>
#include <setup/state/KRunState.h>

#include <memory>
#include <optional>
#include <string>

namespace KSETUP {

/// What a run would do, found for a locked product and a kit of an accepted signer without a change.
/// Step three: KCheckedRun takes it.
///
/// Borrows the kit, and with it the locked product.
/// Thread   the main thread's
class KPlannedRun {
  public:
    using Action = KRunDescription::Action;

    /// Throws   KSetupFailure for a kit that others can change, whose seal is broken or whose version
    ///          is older than the installed one, for values that are missing, and for a path that is none of a product's;
    ///          KSetupStop while the seal is checked, or values are asked for
    static KPlannedRun OfInstall(const KTrustedKit& kit);
    /// Nothing when there is nothing to remove: no product, and no run that was interrupted.
    ///
    /// Throws   as above
    static std::optional<KPlannedRun> OfRemoval(const KTrustedKit& kit);

    const KTrustedKit& GetKit() const noexcept { return *kit; }
    KLockedProduct& GetProduct() const noexcept { return kit->GetProduct(); }
    const KRunContext& GetContext() const noexcept { return GetProduct().GetContext(); }
    Action GetAction() const noexcept { return action; }
    bool Installs() const noexcept { return action == Action::Install; }
    const KPlan& GetPlan() const noexcept { return *plan; }
    const std::string& GetProductPath() const noexcept { return productPath; }
    /// What the run may do to what stands there already.
    const KChangePolicy& GetPolicy() const noexcept { return *policy; }
    /// What the disk showed the plan, for further looks before the first change.
    const std::shared_ptr<KDiskView>& GetView() const noexcept { return view; }
    /// Those of the kit's values that are known, the secrets too.
    const KValueTexts& GetValues() const noexcept { return values; }
    /// The digests of the kit's files, where its seal was read; once.
    KDigests TakeSealed() noexcept { return std::move(sealed); }

  private:
    KPlannedRun(const KTrustedKit& trusted, Action what, const std::string& wantedPath);
    void VerifyKit();

    const KTrustedKit* kit;
    Action action;
    KDigests sealed;
    std::string productPath;
    KValueTexts values;
    std::shared_ptr<KDiskView> view;
    std::unique_ptr<KChangePolicy> policy;
    std::unique_ptr<KPlan> plan;
};

} // namespace KSETUP
