// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/kit/KitSigning.h>
#include <setup/preflight/TrustedPlaces.h>
#include <setup/run/KTrustedKit.h>
#include <setup/state/KKeptKit.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace KSETUP {

namespace {

const char* SignatureState(KKitSigner::Kind kind) {
    switch (kind) {
    case KKitSigner::Kind::Known:
        return "known key";
    case KKitSigner::Kind::FirstUse:
        return "first use";
    case KKitSigner::Kind::Installed:
        return "installed kit";
    case KKitSigner::Kind::Unsigned:
    case KKitSigner::Kind::Unverifiable:
        break;
    }
    return "not verified";
}

} // namespace

KTrustedKit::KTrustedKit(KLockedProduct& locked, Use use)
    : product(locked),
      look(std::make_shared<const KKitLook>(locked.GetContext().kit.GetDirectory())) {
    RequirePrivate(*look); // what is verified stays as it is
    isKeptOne = use == Use::Removal && IsKept();
    if (isKeptOne) {
        return;
    }
    known = KKnownKeys::Find(product.GetService());
    hasKept = use == Use::Removal && KKeptKit::FindDirectory(product.GetService());
    Verify();
    Report();
}

/// It was written by an install whose kit was verified, where only root can write.
bool KTrustedKit::IsKept() const {
    const auto kept = KKeptKit::FindDirectory(product.GetService());
    std::error_code unknown; // then it is another
    return kept &&
           std::filesystem::equivalent(*kept, product.GetContext().kit.GetDirectory(), unknown);
}

void KTrustedKit::Verify() {
    const KRunContext& context = product.GetContext();
    try {
        signer = FindSigner(
            context.kit.GetDirectory(), KKitStatement::OfProductData(), known, context.bundle
        );
    } catch (const KSetupFailure& failure) {
        if (!context.arguments.allowUnsigned) {
            throw KSetupFailure(failure.GetExitCode(), failure.GetText() + AdviceForRemoval());
        }
        const KText why = WhyNotSigned(failure);
        context.report.signer = KSignerReport{"not verified", "", "", why};
        context.reporter.Warn(Text("ins-setup: --allow-unsigned goes on although %s.", why));
    }
}

KText KTrustedKit::AdviceForRemoval() const {
    return hasKept
               ? Text(" To remove it without the kit: ins-setup remove %s", product.GetService())
               : "";
}

void KTrustedKit::Report() const {
    std::optional<KSignerReport>& report = product.GetContext().report.signer;
    if (report || signer.kind == KKitSigner::Kind::Unsigned) {
        return;
    }
    report = KSignerReport{SignatureState(signer.kind), signer.keyId, signer.knownFrom, ""};
    if (signer.key) {
        report->key = signer.key->GetId();
    }
    if (signer.kind == KKitSigner::Kind::Unverifiable) {
        report->why = Text("no key is known here, and the kit brings none");
        product.GetContext().report.notes.push_back(Text(
            "The kit is signed by key %s, which was not verified: %s (%s).",
            signer.keyId,
            report->why,
            kitKeyName
        ));
    }
}

void KTrustedKit::PinKey() const {
    if (!signer.IsVerified()) {
        return;
    }
    const std::string& service = product.GetService();
    KPinnedKey pin{signer.nextKey.value_or(*signer.key), signer.seal, {}};
    if (pin.key != *signer.key) {
        pin.formerKey = signer.key;
    }
    pin.Write(service);
    KRunReport& report = product.GetContext().report;
    if (known.areAdministrators) {
        const bool isKnown =
            std::any_of(known.keys.begin(), known.keys.end(), [&](const KKnownKey& one) {
                return one.key == pin.key;
            });
        if (!isKnown) {
            report.notes.push_back(Text(
                "The next kits of %s will be signed by key %s, which is not among the keys in "
                "%s/trusted.d. Put the kit's %s there.",
                report.product,
                pin.key.GetId(),
                trustDirectory,
                nextKeyName
            ));
        }
    } else if (known.keys.empty() || !(known.keys.front().key == pin.key)) {
        report.notes.push_back(Text(
            "From now on kits of %s have to be signed by key %s (%s).",
            report.product,
            pin.key.GetId(),
            KPinnedKey::PathOf(service)
        ));
    }
}

} // namespace KSETUP
