// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/KBlake2b.h>
#include <setup/files/KFileDigest.h>
#include <setup/kit/KitFiles.h>
#include <setup/kit/KitSeal.h>
#include <setup/kit/KitSigning.h>
#include <setup/output/TextFormat.h>
#include <setup/preflight/KitSigner.h>

#include <cerrno>

#include <sys/files/DirectoryEntry.h>

namespace KSETUP {

namespace {

constexpr const char* override =
    TextFormat(" --allow-unsigned goes on without knowing whose kit it is.");

/// Knows why by itself, too: who may have the kit all the same is told no advice.
class KKitRefusal : public KSetupFailure {
  public:
    KKitRefusal(const KText& itsWhy, const KText& advice)
        : KSetupFailure(
              ExitCode::malformedScript,
              Text("%s. Nothing was changed. %s%s", itsWhy, advice, Text(override))
          ),
          why(itsWhy) {}

    const KText& GetWhy() const noexcept { return why; }

  private:
    KText why;
};

[[noreturn]] void Refuse(const KText& why, const KText& advice) {
    throw KKitRefusal(why, advice);
}

bool IsThere(const std::string& path) {
    struct stat status {};
    return KSYS::ReadStatus(path, KSYS::LastLink::Keep, status) != ENOENT;
}

std::optional<KPublicKey> ReadKey(const std::string& path) {
    return IsThere(path) ? std::optional(KPublicKey::FromText(ReadBytes(path), path))
                         : std::nullopt;
}

KSignature ParseSignature(const KSignedFile& file) {
    return KSignature::FromText(*file.signature, file.path + signatureEnding);
}

/// A signature is for one product and version: none of another is to be put beside these files.
void RequireMeant(const KSignedFile& file, const KKitStatement& productData) {
    const std::string comment = ParseSignature(file).GetTrustedComment();
    const auto says = KKitStatement::FromComment(comment);
    const std::string where = file.path + signatureEnding;
    if (!says) {
        Refuse(
            Text("%s: the signer does not say of which product and version this is a kit", where),
            Text("Sign it with \"ins-setup kit seal --sign KEY\" if it is your own.")
        );
    }
    if (*says != productData) {
        Refuse(
            Text(
                "%s: signed as %s of service %s, but product.ini has %s of service %s",
                where,
                Printable(says->ToWords()),
                Printable(says->service),
                Printable(productData.ToWords()),
                Printable(productData.service)
            ),
            Text("Get the kit again; if it is your own, sign it again.")
        );
    }
}

void RequireNoKey(const std::string& where, const KKnownKeys& known) {
    if (known.AreThereAny()) {
        Refuse(
            Text(
                "%s: the kit is neither sealed nor signed, and has to be, by %s",
                where,
                known.ToWords()
            ),
            Text("Get the signed kit from who makes it.")
        );
    }
}

/// For the very kit that is installed, where it replaced the key that it is signed with.
std::optional<KKnownKeys> KeysOfInstalled(const KKnownKeys& known, const std::string& seal) {
    if (known.areAdministrators || !known.pinned || !known.pinned->formerKey ||
        known.pinned->seal != seal) {
        return std::nullopt;
    }
    KKnownKeys keys = known;
    keys.keys.push_back({*known.pinned->formerKey, known.keys.front().file});
    return keys;
}

void VerifyByKnownKeys(
    KKitSigner& signer,
    const KSignedFile& seal,
    const std::optional<KSignedFile>& bundle,
    const KKnownKeys& known
) {
    const KKnownKey& key = RequireSigned(seal, known.keys, known.ToWords());
    if (bundle) {
        RequireSigned(*bundle, known.keys, known.ToWords());
    }
    signer.kind = KKitSigner::Kind::Known;
    signer.key = key.key;
    signer.knownFrom = key.file;
}

/// With the key that the kit brings, for want of a better one.
void VerifyByOwnKey(
    KKitSigner& signer,
    const KSignedFile& seal,
    const std::optional<KSignedFile>& bundle,
    const std::string& kitDirectory
) {
    const std::string file = kitDirectory + "/" + kitKeyName;
    const std::optional<KPublicKey> own = ReadKey(file);
    if (!own) {
        signer.kind = KKitSigner::Kind::Unverifiable;
        return;
    }
    const std::vector<KKnownKey> keys = {{*own, file}};
    const KText words = Text("key %s (%s)", own->GetId(), file);
    RequireSigned(seal, keys, words);
    if (bundle && bundle->signature) {
        RequireSigned(*bundle, keys, words);
    }
    signer.kind = KKitSigner::Kind::FirstUse;
    signer.key = own;
    signer.knownFrom = file;
}

} // namespace

std::optional<std::string> ReadSignature(const std::string& file) {
    const std::string path = file + signatureEnding;
    return IsThere(path) ? std::optional(ReadBytes(path)) : std::nullopt;
}

KText WhyNotSigned(const KSetupFailure& failure) {
    const auto* refusal = dynamic_cast<const KKitRefusal*>(&failure);
    if (refusal != nullptr) {
        return refusal->GetWhy();
    }
    const auto withoutEnd = [](std::string text) {
        return text.ends_with('.') ? text.substr(0, text.size() - 1) : text;
    };
    return {withoutEnd(failure.GetText().English()), withoutEnd(failure.GetText().Translated())};
}

const KKnownKey& RequireSigned(
    const KSignedFile& file, const std::vector<KKnownKey>& keys, const KText& keysInWords
) {
    if (!file.signature) {
        Refuse(
            Text(
                "%s is not signed (there is no %s%s), and has to be, by %s",
                file.path,
                file.path,
                signatureEnding,
                keysInWords
            ),
            Text("Get the signature too from who makes it.")
        );
    }
    const KSignature signature = ParseSignature(file);
    bool isOfKnown = false;
    for (const KKnownKey& known : keys) { // several may have one id
        if (known.key.GetId() == signature.GetKeyId()) {
            isOfKnown = true;
            if (signature.Fits(known.key, file.blake2b)) {
                return known;
            }
        }
    }
    if (isOfKnown) {
        Refuse(
            Text(
                "%s%s does not fit %s: one of them was changed, or key %s did not sign it",
                file.path,
                signatureEnding,
                file.path,
                signature.GetKeyId()
            ),
            Text("Get both again from who makes them.")
        );
    }
    Refuse(
        Text(
            "%s is signed by key %s, and has to be by %s",
            file.path,
            signature.GetKeyId(),
            keysInWords
        ),
        Text(
            "If its maker has a new key, install the version that brings it, or put the new key, "
            "which you have from a source that you trust, into %s/trusted.d/SERVICE/.",
            trustDirectory
        )
    );
}

KKitSigner FindSigner(
    const std::string& kitDirectory,
    const KKitStatement& productData,
    const KKnownKeys& known,
    const std::optional<KSignedFile>& bundle
) {
    KKitSigner signer;
    if (!IsSealed(kitDirectory)) {
        RequireNoKey(bundle ? bundle->path : kitDirectory, known);
        return signer;
    }
    const std::string sealPath = kitDirectory + "/" + sealName;
    const std::string sealText = ReadSealText(kitDirectory);
    const KSignedFile seal{
        bundle ? bundle->path + ":" + sealName : sealPath, // where whoever reads of it finds it
        Blake2b(sealText),
        ReadSignature(sealPath)};
    signer.seal = DigestBytes(sealText);
    signer.nextKey = ReadKey(kitDirectory + "/" + nextKeyName);
    if (seal.signature) {
        signer.keyId = ParseSignature(seal).GetKeyId();
    }
    if (const auto installed = KeysOfInstalled(known, signer.seal)) {
        VerifyByKnownKeys(signer, seal, bundle, *installed);
        signer.kind = KKitSigner::Kind::Installed;
    } else if (known.AreThereAny()) {
        VerifyByKnownKeys(signer, seal, bundle, known);
    } else if (seal.signature) {
        VerifyByOwnKey(signer, seal, bundle, kitDirectory);
    }
    if (signer.IsVerified()) {
        RequireMeant(seal, productData);
        if (bundle && bundle->signature) {
            RequireMeant(*bundle, productData);
        }
    }
    return signer;
}

} // namespace KSETUP
