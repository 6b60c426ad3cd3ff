// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/KSetupStop.h>
#include <setup/files/KBlake2b.h>
#include <setup/kit/KKitStatement.h>
#include <setup/kit/KitFiles.h>
#include <setup/kit/KitSigning.h>
#include <setup/preflight/KUnpackedBundle.h>
#include <setup/preflight/Preflight.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <system_error>

#include <bundle/Architecture.h>
#include <bundle/KBundleError.h>
#include <bundle/UnpackBundle.h>
#include <bundle/UnpackedTable.h>
#include <sys/files/DirectoryEntry.h>
#include <sys/files/FileCalls.h>
#include <sys/files/FileContent.h>
#include <sys/files/FileStatus.h>
#include <sys/processes/PrivateRoot.h>

namespace KSETUP {

namespace {

namespace fs = std::filesystem;

constexpr const char* copyName = "bundle";
constexpr const char* stopped = TextFormat("Stopped on request. Nothing was changed.");
constexpr std::size_t chunkBytes = std::size_t{1} << 20U;

/// Reads a file from its begin to its end, once, and knows what it was.
class KHashedReader {
  public:
    KHashedReader(const std::string& itsPath, const std::function<bool()>& toStop)
        : path(itsPath),
          shallStop(toStop) {
        struct stat status {};
        Require(KSYS::OpenRegular(path.c_str(), file, status));
        byteCount = static_cast<std::uint64_t>(status.st_size);
    }

    /// The next chunkBytes bytes; fewer at the end only.
    std::string_view Next() {
        if (shallStop && shallStop()) {
            throw KSetupStop(Text(stopped));
        }
        std::size_t count = 0;
        for (std::size_t more = 1; more != 0 && count < chunkBytes; count += more) {
            Require(KSYS::ReadSome(file.Get(), chunk.get() + count, chunkBytes - count, more));
        }
        sum.Add({chunk.get(), count});
        return {chunk.get(), count};
    }
    std::string EndSum() { return sum.End(); }
    /// When it was opened.
    std::uint64_t GetByteCount() const noexcept { return byteCount; }

  private:
    void Require(unsigned failed) const {
        if (failed != 0) {
            FailOn(path, static_cast<int>(failed));
        }
    }

    const std::string& path;
    const std::function<bool()>& shallStop;
    KSYS::KDescriptor file;
    std::uint64_t byteCount = 0;
    KBlake2b sum;
    std::unique_ptr<char[]> chunk = std::make_unique_for_overwrite<char[]>(chunkBytes);
};

/// The program in it is not run, and what the kit brings is the same for all: any will do where there is
/// none for this architecture, as with a bundle of another one alone.
void ChooseArchitecture(KBUNDLE::KBundleReader& reader) {
    const std::vector<KBUNDLE::KBundleHead>& heads = reader.GetTable().heads;
    if (!reader.Choose(KBUNDLE::OwnArchitecture().name)) {
        reader.Choose(heads.front().architecture);
    }
}

} // namespace

std::string KUnpackedBundle::ParentFor(const KSetupArguments& arguments) {
    return arguments.unpackParent.empty() ? usualParent : arguments.unpackParent;
}

std::unique_ptr<KBUNDLE::KWorkPlace> KUnpackedBundle::MakeWorkPlace(const std::string& parent) {
    try {
        KBUNDLE::RemoveLeftovers({parent});
        return std::make_unique<KBUNDLE::KWorkPlace>(parent);
    } catch (const KBUNDLE::KBundleError& error) {
        throw KSetupFailure(ExitCode::cannotWrite, error.what());
    }
}

KUnpackedBundle::KUnpackedBundle(
    const std::string& file,
    Signature signature,
    const std::function<bool()>& shallStop,
    const std::string& parent
)
    : directory(MakeWorkPlace(parent)),
      kit(directory->GetPath() + "/kit") {
    std::error_code unknown; // reading it tells
    const fs::path real = fs::canonical(file, unknown);
    bundle.path = unknown ? file : real.string();
    bundle.signature = ReadSignature(bundle.path);
    if (signature == Signature::Required && !bundle.signature) {
        RequireSignature(); // before gigabytes are copied
    }
    CopyBundle(shallStop);
    if (signature == Signature::Required) {
        RequireSignature();
    }
    Unpack(shallStop);
}

/// Asked before each of the two steps: how much is in a bundle is believed once it is verified.
void KUnpackedBundle::RequireRoom(
    const std::function<KBUNDLE::KBundleNeeds(std::uint64_t blockBytes)>& needs
) const {
    KSYS::FileSystemStatus system;
    if (KSYS::ReadFileSystem(directory->GetPath().c_str(), system) != 0) {
        return; // writing tells
    }
    const KBUNDLE::KBundleNeeds needed = needs(system.blockBytes);
    KPlan::Space space;
    const bool isShown = directory->GetPath().starts_with(KSYS::privateRootPlace);
    space.directory = isShown ? usualParent // as the machine calls it
                              : fs::path(directory->GetPath()).parent_path().string();
    // Of both steps, as it was before the first one.
    space.needed = needed.bytes + copiedBytes;
    space.available = system.bytesFree + copiedBytes;
    space.filesNeeded = needed.entries;
    space.filesAvailable = system.filesFree;
    space.filesAreUnlimited = !system.hasFileLimit;
    RequireSpace(space);
}

/// What is unpacked is what is hashed, also where somebody writes to the file meanwhile.
void KUnpackedBundle::CopyBundle(const std::function<bool()>& shallStop) {
    KHashedReader reader(bundle.path, shallStop);
    RequireRoom([&](std::uint64_t /*blockBytes*/) {
        return KBUNDLE::KBundleNeeds{.bytes = reader.GetByteCount(), .entries = 1};
    });
    const std::string copy = directory->GetPath() + "/" + copyName;
    unsigned failed = KSYS::MakeFile(copy, content, O_RDWR);
    for (std::string_view bytes = reader.Next(); failed == 0 && !bytes.empty();
         bytes = reader.Next()) {
        failed = KSYS::WriteAll(content.Get(), bytes.data(), bytes.size());
        copiedBytes += bytes.size();
    }
    if (failed != 0) {
        FailOnWrite(copy, static_cast<int>(failed));
    }
    bundle.blake2b = reader.EndSum();
    // Read by its descriptor; the room is free again when that is closed.
    static_cast<void>(KSYS::UnlinkEntry(copy));
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

void KUnpackedBundle::Unpack(const std::function<bool()>& shallStop) {
    try {
        KBUNDLE::KBundleReader reader(content.Get(), bundle.path);
        ChooseArchitecture(reader);
        RequireRoom([&](std::uint64_t blockBytes) {
            return KBUNDLE::NeedsOf(reader.GetTable(), KBUNDLE::BundlePart::Everything, blockBytes);
        });
        MakeDirectories(kit);
        KBUNDLE::UnpackBundle(reader, kit, KBUNDLE::BundlePart::Everything, shallStop);
        table = KBUNDLE::KeepTable(reader.GetTable(), kit);
    } catch (const KBUNDLE::KBundleError& error) {
        switch (error.GetKind()) {
        case KBUNDLE::KBundleError::Kind::NoBundle:
            throw KSetupFailure(
                ExitCode::noKit,
                Text(
                    "%s Name a file that \"ins-setup kit bundle\" made; where to install stands "
                    "behind it.",
                    error.what()
                )
            );
        case KBUNDLE::KBundleError::Kind::Damaged:
            throw KSetupFailure(
                ExitCode::malformedScript, Text("%s Nothing was changed.", error.what())
            );
        case KBUNDLE::KBundleError::Kind::CannotRead:
        case KBUNDLE::KBundleError::Kind::OtherArchitecture:
            throw KSetupFailure(ExitCode::noKit, error.what());
        case KBUNDLE::KBundleError::Kind::CannotWrite:
            throw KSetupFailure(ExitCode::cannotWrite, error.what());
        case KBUNDLE::KBundleError::Kind::Stopped:
            throw KSetupStop(Text(stopped));
        }
    }
    content.Reset();
}

} // namespace KSETUP
