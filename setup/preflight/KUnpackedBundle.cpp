// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/KSetupStop.h>
#include <setup/files/KBlake2b.h>
#include <setup/kit/BundlePayload.h>
#include <setup/kit/KKitStatement.h>
#include <setup/kit/KitSigning.h>
#include <setup/preflight/KUnpackedBundle.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <system_error>

#include <sys/files/DirectoryEntry.h>
#include <sys/files/FileCalls.h>
#include <sys/files/FileContent.h>
#include <sys/processes/ProgramRun.h>

namespace KSETUP {

namespace {

namespace fs = std::filesystem;

/// Not /tmp, which often runs no programs and is in memory.
constexpr const char* parentDirectory = "/var/tmp";
constexpr const char* payloadName = "payload";

/// Reads a file from its begin to its end, once, and knows what it was.
class KHashedReader {
  public:
    KHashedReader(const std::string& itsPath, const std::function<bool()>& toStop)
        : path(itsPath),
          shallStop(toStop) {
        struct stat status {};
        Require(KSYS::OpenRegular(path.c_str(), file, status));
    }

    /// The next longestBundleScript bytes; fewer at the end only.
    std::string_view Next() {
        if (shallStop && shallStop()) {
            throw KSetupStop("Stopped on request. Nothing was changed.");
        }
        std::size_t count = 0;
        for (std::size_t more = 1; more != 0 && count < longestBundleScript; count += more) {
            Require(
                KSYS::ReadSome(file.Get(), chunk.get() + count, longestBundleScript - count, more)
            );
        }
        sum.Add({chunk.get(), count});
        return {chunk.get(), count};
    }
    std::string EndSum() { return sum.End(); }

  private:
    void Require(unsigned failed) const {
        if (failed != 0) {
            FailOn(path, static_cast<int>(failed));
        }
    }

    const std::string& path;
    const std::function<bool()>& shallStop;
    KSYS::KDescriptor file;
    KBlake2b sum;
    std::unique_ptr<char[]> chunk = std::make_unique_for_overwrite<char[]>(longestBundleScript);
};

[[noreturn]] void RefuseDamaged(const std::string& file, const std::string& why) {
    throw KSetupFailure(
        ExitCode::malformedScript,
        file + ": the bundle is damaged (" + why + "). Nothing was changed. Get it again."
    );
}

} // namespace

KUnpackedBundle::KUnpackedBundle(
    const std::string& file, Signature signature, const std::function<bool()>& shallStop
)
    : directory(parentDirectory),
      kit((directory.GetPath() / "kit").string()) {
    std::error_code unknown; // reading it tells
    const fs::path real = fs::canonical(file, unknown);
    bundle.path = unknown ? file : real.string();
    bundle.signature = ReadSignature(bundle.path);
    if (signature == Signature::Required && !bundle.signature) {
        RequireSignature(); // before gigabytes are copied
    }
    CopyPayload(shallStop);
    if (signature == Signature::Required) {
        RequireSignature();
    }
    Unpack();
}

/// What is unpacked is what is hashed, also where somebody writes to the file meanwhile.
void KUnpackedBundle::CopyPayload(const std::function<bool()>& shallStop) {
    KHashedReader reader(bundle.path, shallStop);
    std::string_view bytes = reader.Next();
    const auto payload = FindBundlePayload(bytes);
    if (!payload) {
        throw KSetupFailure(
            ExitCode::noKit,
            bundle.path + ": no bundle. Name a file that \"ins-setup kit bundle\" made; where to "
                          "install stands behind it."
        );
    }
    bytes.remove_prefix(payload->offset);
    KSYS::KDescriptor target;
    const fs::path copy = directory.GetPath() / payloadName;
    unsigned failed = KSYS::MakeFile(copy.string(), target);
    std::uint64_t count = 0;
    for (; failed == 0 && !bytes.empty(); bytes = reader.Next()) {
        failed = KSYS::WriteAll(target.Get(), bytes.data(), bytes.size());
        count += bytes.size();
    }
    if (failed != 0) {
        FailOnWrite(copy, static_cast<int>(failed));
    }
    if (count != payload->byteCount) {
        RefuseDamaged(bundle.path, "it is not as long as it says");
    }
    bundle.blake2b = reader.EndSum();
}

/// For whom the keys are is known from the signature, which is believed only with one of them; of
/// what is unpacked it is asked again, also whether it is the kit that a former key may have signed.
void KUnpackedBundle::RequireSignature() const {
    KKnownKeys known;
    if (bundle.signature) {
        const auto says = KKitStatement::FromComment(
            KSignature::FromText(*bundle.signature, bundle.path + signatureEnding)
                .GetTrustedComment()
        );
        if (says) {
            known = KKnownKeys::Find(says->service);
        } else {
            known.keys = KKnownKeys::FindForAll();
        }
    } else {
        known.keys = KKnownKeys::FindForAll();
    }
    if (!known.AreThereAny()) {
        return;
    }
    std::vector<KKnownKey> keys = known.keys;
    if (!known.areAdministrators && known.pinned && known.pinned->formerKey) {
        keys.push_back({*known.pinned->formerKey, known.keys.front().file});
    }
    RequireSigned(bundle, keys, known.ToWords());
}

void KUnpackedBundle::Unpack() {
    MakeDirectories(kit);
    bool succeeded = false;
    const unsigned error = KSYS::RunProgram(
        {"tar", "--extract", "--gzip", "--no-same-owner", "--file", payloadName, "--directory=kit"},
        directory.GetPath(),
        "log",
        succeeded
    );
    if (error != 0) {
        FailOn("tar", static_cast<int>(error), "It unpacks the bundle.");
    }
    if (!succeeded) {
        const std::string said = ReadBytes(directory.GetPath() / "log");
        if (said.find("No space left") != std::string::npos) {
            FailOnWrite(kit, ENOSPC);
        }
        RefuseDamaged(bundle.path, "tar says: " + said.substr(0, said.find('\n')));
    }
    static_cast<void>(KSYS::UnlinkEntry((directory.GetPath() / payloadName).string())); // for room
}

} // namespace KSETUP
