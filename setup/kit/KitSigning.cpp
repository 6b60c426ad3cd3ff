// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/KBlake2b.h>
#include <setup/kit/KitFiles.h>
#include <setup/kit/KitSeal.h>
#include <setup/kit/KitSigning.h>

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

#include <sys/files/DirectoryEntry.h>
#include <sys/processes/ProgramRun.h>

namespace KSETUP {

namespace {

namespace fs = std::filesystem;

constexpr const char* secretEnding = ".key";
constexpr const char* publicEnding = ".pub";

/// What it asks and why it fails it says itself.
void RunMinisign(std::vector<std::string> words, const KText& failed) {
    words.insert(words.begin(), "minisign");
    bool succeeded = false;
    const unsigned error = KSYS::RunProgramHere(std::move(words), succeeded);
    if (error == ENOENT) {
        throw KSetupFailure(
            ExitCode::noKit,
            Text("minisign is missing, which makes keys and signatures. Install Debian's package "
                 "of that name: apt-get install minisign")
        );
    }
    if (error != 0) {
        FailOn("minisign", static_cast<int>(error));
    }
    if (!succeeded) {
        throw KSetupFailure(ExitCode::cannotWrite, Text("minisign failed: %s", failed));
    }
}

fs::path PublicHalfOf(const std::string& secretKey) {
    return fs::path(secretKey).replace_extension(publicEnding);
}

KPublicKey ReadPublicHalf(const std::string& secretKey) {
    const fs::path file = PublicHalfOf(secretKey);
    std::error_code unknown; // reading it tells
    if (!fs::exists(file, unknown)) {
        throw KSetupFailure(
            ExitCode::noKit,
            Text(
                "%s: missing. It is the public half of %s, and goes into the kit. \"minisign -R -s "
                "%s -p %s\" makes it again.",
                file.string(),
                secretKey,
                secretKey,
                file.string()
            )
        );
    }
    return KPublicKey::FromText(ReadBytes(file), file.string());
}

/// Whoever gets the kit would sign as its author does.
void RefuseSecretInKit(const std::string& kitDirectory, const std::string& secretKey) {
    std::error_code error;
    const fs::path secret = fs::canonical(secretKey, error);
    if (error) {
        FailOn(secretKey, error.value(), Text("Make a key with \"ins-setup kit key new NAME\"."));
    }
    if (secret.string().starts_with(fs::canonical(kitDirectory, error).string() + "/")) {
        throw KSetupFailure(
            ExitCode::usage,
            Text(
                "%s: the secret key is in the kit, and would go to everybody who gets that. Move "
                "it out.",
                secret.string()
            )
        );
    }
}

void PutKey(const fs::path& kit, const KPublicKey& key) {
    const fs::path file = kit / kitKeyName;
    std::error_code unknown; // writing it tells
    if (fs::exists(file, unknown)) {
        try {
            KPublicKey::FromText(ReadBytes(file), file.string());
        } catch (const KSetupFailure& failure) {
            throw KSetupFailure(
                ExitCode::noKit,
                Text(
                    "%s The kit's public key is to lie there. Move the file into payload/.",
                    failure.GetText()
                )
            );
        }
    }
    WriteBytes(file, key.ToText(), 0644);
}

} // namespace

void MakeKeyPair(const std::string& name, bool hasPassword) {
    const std::string secret = name + secretEnding;
    const std::string half = name + publicEnding;
    for (const std::string& file : {secret, half}) {
        struct stat status {};
        if (KSYS::ReadStatus(file, KSYS::LastLink::Keep, status) != ENOENT) {
            throw KSetupFailure(
                ExitCode::usage,
                Text(
                    "%s: there is something already, and a lost key cannot be made again. Choose "
                    "another name.",
                    file
                )
            );
        }
    }
    std::vector<std::string> words = {"-G", "-s", secret, "-p", half};
    if (!hasPassword) {
        words.emplace_back("-W");
    }
    RunMinisign(words, Text("no key was made."));
    static_cast<void>(ReadPublicHalf(secret));
}

void SignFile(
    const std::string& file, const std::string& secretKey, const KKitStatement& statement
) {
    const KPublicKey key = ReadPublicHalf(secretKey);
    const fs::path target = file + signatureEnding;
    // Elsewhere first, so that no signature is there that does not fit.
    const KTemporaryDirectory work(fs::path(file).parent_path());
    const std::string made = work.GetPath() / "signature";
    RunMinisign(
        {"-S",
         "-q",
         "-s",
         secretKey,
         "-x",
         made,
         "-t",
         statement.ToComment(),
         "-c",
         "made by ins-setup",
         "-m",
         file},
        Text(
            "nothing is signed with %s. It asks for the password of the key at the terminal; "
            "\"ins-setup kit key new --no-password NAME\" makes a key for automation.",
            secretKey
        )
    );
    const std::string text = ReadBytes(made);
    if (!KSignature::FromText(text, made).Fits(key, Blake2bOfFile(file))) {
        throw KSetupFailure(
            ExitCode::noKit,
            Text(
                "%s is not the public half of %s. Nothing is signed. Put the two halves of one key "
                "side by side.",
                PublicHalfOf(secretKey).string(),
                secretKey
            )
        );
    }
    WriteBytes(target, text, 0644);
}

std::size_t SealAndSign(const std::string& kitDirectory, const std::string& secretKey) {
    const fs::path kit(kitDirectory);
    RefuseSecretInKit(kitDirectory, secretKey);
    PutKey(kit, ReadPublicHalf(secretKey));
    RemoveSignature(kitDirectory); // of another seal
    const std::size_t count = WriteSeal(kitDirectory);
    SignFile((kit / sealName).string(), secretKey, KKitStatement::OfProductData());
    return count;
}

bool IsSigned(const std::string& kitDirectory) {
    struct stat status {};
    const std::string file = fs::path(kitDirectory) / sealSignatureName;
    return KSYS::ReadStatus(file, KSYS::LastLink::Keep, status) != ENOENT;
}

bool RemoveSignature(const std::string& kitDirectory) {
    const fs::path file = fs::path(kitDirectory) / sealSignatureName;
    const unsigned failed = KSYS::UnlinkEntry(file.string());
    if (failed != 0 && failed != ENOENT) {
        FailOnWrite(file, static_cast<int>(failed));
    }
    return failed == 0;
}

} // namespace KSETUP
