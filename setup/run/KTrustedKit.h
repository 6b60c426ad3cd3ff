// SPDX-License-Identifier: MIT
#pragma once

#include <setup/preflight/KitSigner.h>
#include <setup/run/KLockedProduct.h>
#include <setup/state/KKitLook.h>
#include <setup/text/KText.h>

#include <memory>

namespace KSETUP {

/// The kit of a run, signed by whom the machine wants the locked product's kits to be signed by, as
/// far as it wants anybody. Step two: KPlannedRun takes it. Nothing of the kit but product.ini was
/// read, and nothing was run.
///
/// Borrows the locked product.
/// Thread   the main thread's
class KTrustedKit {
  public:
    enum class Use { Install, Removal };

    /// For a removal the kit that was kept is as good as the one that was installed.
    ///
    /// Throws   KSetupFailure for a kit that others can change, and with ExitCode::malformedScript
    ///          for one that is not signed as it has to be, unless the arguments allow that
    KTrustedKit(KLockedProduct& locked, Use use);

    KLockedProduct& GetProduct() const noexcept { return product; }
    /// What was in the kit when nobody else could change it any more.
    const std::shared_ptr<const KKitLook>& GetLook() const noexcept { return look; }
    /// Whether it is the one that was kept, for a removal: no seal says what that holds, for it has less
    /// than the kit, and files in place of links.
    bool IsKeptOne() const noexcept { return isKeptOne; }
    /// Remembers the key, or the next one that the kit brings, for the product's next kits; nothing
    /// where the kit is not verified.
    ///
    /// Throws   KSetupFailure
    void PinKey() const;

  private:
    bool IsKept() const;
    void Verify();
    void Report() const;
    KText AdviceForRemoval() const;

    KLockedProduct& product;
    std::shared_ptr<const KKitLook> look;
    KKnownKeys known;
    KKitSigner signer;
    bool hasKept = false; // what a removal needs
    bool isKeptOne = false;
};

} // namespace KSETUP
