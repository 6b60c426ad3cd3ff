// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/kit/KSetupKit.h>
#include <setup/kit/KitSeal.h>
#include <setup/preflight/KUnpackedBundle.h>
#include <setup/run/Verify.h>

#include <filesystem>
#include <optional>

#include <sys/processes/ProcessIsolation.h>

namespace KSETUP {

namespace {

[[noreturn]] void Refuse(const KText& why) {
    throw KSetupFailure(ExitCode::malformedScript, why);
}

void RequireVerified(
    const KKitSigner& signer, const std::string& target, const std::optional<KSignedFile>& bundle
) {
    if (signer.keyId.empty() && !signer.IsVerified()) {
        Refuse(Text("%s: not signed: it is not known who made it.", target));
    }
    if (!signer.IsVerified()) {
        Refuse(Text(
            "%s: signed by key %s, which is not known here, and the kit does not bring it. Get the "
            "key from who makes the kit and put it into %s/trusted.d/SERVICE/.",
            target,
            signer.keyId,
            trustDirectory
        ));
    }
    if (bundle && !bundle->signature) {
        Refuse(Text(
            "%s: the kit in it is signed by key %s, but the bundle is not: there is no %s.minisig.",
            target,
            signer.key->GetId(),
            target
        ));
    }
}

/// Only root can see all keys that count.
KKitSigner Find(
    const std::string& kit,
    const KKitStatement& productData,
    const std::optional<KSignedFile>& bundle
) {
    const KKnownKeys known = KSYS::IsRoot() ? KKnownKeys::Find(productData.service) : KKnownKeys();
    try {
        return FindSigner(kit, productData, known, bundle);
    } catch (const KSetupFailure& failure) {
        Refuse(WhyNotSigned(failure) + ".");
    }
}

} // namespace

void Verify(const KSetupArguments& arguments, KRunReport& report) {
    std::error_code unknown; // then it is taken for a directory, and that tells
    std::optional<KUnpackedBundle> unpacked;
    std::optional<KSignedFile> bundle;
    // In a root both have other names than the target.
    const std::string& file = arguments.bundle.empty() ? arguments.target : arguments.bundle;
    const std::string& directory = arguments.kit.empty() ? arguments.target : arguments.kit;
    if (std::filesystem::is_regular_file(file, unknown)) {
        unpacked.emplace(
            file,
            KUnpackedBundle::Signature::Ignored,
            nullptr,
            KUnpackedBundle::ParentFor(arguments)
        );
        bundle = unpacked->GetSigned();
    } else if (!std::filesystem::exists(directory, unknown) && !unknown) {
        throw KSetupFailure(
            ExitCode::noKit,
            Text(
                "%s: there is no kit or bundle of that name. What is installed is compared by "
                "\"ins-setup status --verify NAME\".",
                arguments.target
            )
        );
    }
    const KSetupKit kit(unpacked ? unpacked->GetKitDirectory() : directory);
    const KKitStatement productData = KKitStatement::OfProductData();
    report.product = productData.product;
    report.version = productData.version;
    report.buildNumber = productData.buildNumber;
    const KKitSigner signer = Find(kit.GetDirectory(), productData, bundle);
    RequireVerified(signer, arguments.target, bundle);
    VerifySeal(kit.GetDirectory());
    report.signer = KSignerReport{
        signer.kind == KKitSigner::Kind::FirstUse ? "first use" : "known key",
        signer.key->GetId(),
        signer.knownFrom,
        ""};
    if (signer.kind == KKitSigner::Kind::FirstUse) {
        report.signer->knownFrom = unpacked ? "in the bundle itself" : signer.knownFrom;
        report.notes.emplace_back(
            KSYS::IsRoot() ? Text("Nothing on this machine vouches for the key: compare it with "
                                  "the one that the maker publishes.")
                           : Text("Only root sees which keys this machine knows: compare it with "
                                  "the one that the maker publishes.")
        );
    }
}

} // namespace KSETUP
