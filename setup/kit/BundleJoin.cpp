// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/CatalogueDirectory.h>
#include <setup/kit/BundleJoin.h>
#include <setup/kit/BundleProgram.h>
#include <setup/kit/KitSeal.h>
#include <setup/kit/KitSigning.h>

#include <algorithm>
#include <set>
#include <system_error>

#include <bundle/Architecture.h>
#include <bundle/KBundleError.h>
#include <bundle/UnpackBundle.h>
#include <sys/files/FileCalls.h>

namespace KSETUP {

namespace {

namespace fs = std::filesystem;

constexpr mode_t executable = 0755;

void RemoveFrom(const std::string& kit, const char* name) {
    std::error_code error;
    fs::remove(fs::path(kit) / name, error);
    if (error) {
        FailOnWrite(fs::path(kit) / name, error.value());
    }
}

KBundlePart
TakePart(KBUNDLE::KBundleReader& bundle, const KBUNDLE::KBundleHead& head, const fs::path& below) {
    const std::string program = bundle.ReadHead(head);
    const KBUNDLE::KArchitecture* const real = KBUNDLE::FindArchitecture(program);
    if (real == nullptr || real->name != head.architecture || !bundle.Choose(head.architecture)) {
        throw KSetupFailure(
            ExitCode::malformedScript,
            Text("%s: its program for %s is for another one.", bundle.GetPath(), head.architecture)
        );
    }
    const fs::path place = below / head.architecture;
    MakeDirectories(place / "kit");
    WriteBytes(place / "head", program, executable);
    KBUNDLE::UnpackBundle(bundle, place / "kit");
    return {{head.architecture, place / "head", place / "kit"}, bundle.GetPath()};
}

[[noreturn]] void FailOnBundle(const KBUNDLE::KBundleError& error) {
    switch (error.GetKind()) {
    case KBUNDLE::KBundleError::Kind::Damaged:
        throw KSetupFailure(ExitCode::malformedScript, error.what());
    case KBUNDLE::KBundleError::Kind::CannotWrite:
        throw KSetupFailure(ExitCode::cannotWrite, error.what());
    default:
        throw KSetupFailure(ExitCode::noKit, error.what());
    }
}

/// What is of one architecture by its nature: the program, its loader, and libraries beside it.
bool IsOfProgram(const std::string& name, const std::string& directory) {
    const bool isNamedSo = name == "ins-setup" || name.starts_with("ld-linux") ||
                           (name.starts_with("lib") && name.find(".so") != std::string::npos);
    return isNamedSo && name.find('/') == std::string::npos &&
           IsElf(ReadBytes(fs::path(directory) / name));
}

/// What a bundle has beside the kit, and which another version may have in other words.
bool IsAdded(const std::string& name) {
    const std::string first = name.substr(0, name.find('/'));
    return first == cataloguesBeside || first == licencesBeside ||
           (first == name && IsCatalogueOfLibrary(name));
}

unsigned FirstOf(KBUNDLE::KArchitectureBits bits) {
    unsigned first = 0;
    while ((bits >> first & 1U) == 0) {
        ++first;
    }
    return first;
}

void RequireDifferentArchitectures(const std::vector<KBundlePart>& parts) {
    for (auto part = parts.begin(); part != parts.end(); ++part) {
        const std::string& architecture = part->source.architecture;
        const auto former = std::find_if(parts.begin(), part, [&](const KBundlePart& each) {
            return each.source.architecture == architecture;
        });
        if (former != part) {
            throw KSetupFailure(
                ExitCode::usage,
                Text(
                    "%s: is for %s, as %s is. Join bundles that were made on other architectures.",
                    part->origin,
                    architecture,
                    former->origin
                )
            );
        }
    }
}

} // namespace

std::string ArchitectureOfHead(const std::string& head) {
    const KBUNDLE::KArchitecture* const found = KBUNDLE::FindArchitecture(ReadBytes(head));
    if (found == nullptr) {
        throw KSetupFailure(
            ExitCode::noKit,
            Text("%s: a program for an architecture whose bundles cannot be joined.", head)
        );
    }
    return std::string(found->name);
}

std::vector<KBundlePart>
TakeBundleApart(const std::string& file, const fs::path& below, bool isSigned) {
    KSYS::KDescriptor opened;
    struct stat status {};
    if (const unsigned failed = KSYS::OpenRegular(file.c_str(), opened, status); failed != 0) {
        FailOn(file, static_cast<int>(failed));
    }
    std::vector<KBundlePart> parts;
    try {
        KBUNDLE::KBundleReader bundle(opened.Get(), file);
        VerifyBundle(bundle);
        for (const KBUNDLE::KBundleHead& head : bundle.GetHeads()) {
            parts.push_back(TakePart(bundle, head, below));
        }
    } catch (const KBUNDLE::KBundleError& error) {
        FailOnBundle(error);
    }
    for (const KBundlePart& part : parts) {
        const std::string& kit = part.source.directory;
        if (!isSigned && IsSigned(kit)) {
            throw KSetupFailure(
                ExitCode::usage,
                Text(
                    "%s: the kit in it is signed, and what is made of it is to be signed too. Name "
                    "the key with --sign KEY.",
                    file
                )
            );
        }
    }
    return parts;
}

void RemoveSeal(const std::string& kit, bool isSigned) {
    RemoveFrom(kit, sealName);
    RemoveFrom(kit, sealSignatureName);
    if (isSigned) {
        RemoveFrom(kit, kitKeyName);
    }
}

void RequireOneKit(const std::vector<KBundlePart>& parts, const KKitListing& kit) {
    RequireDifferentArchitectures(parts);
    std::set<std::string> names(kit.files.begin(), kit.files.end());
    names.insert(kit.directories.begin(), kit.directories.end());
    std::vector<KBUNDLE::KArchitectureSource> sources;
    for (const KBundlePart& part : parts) {
        sources.push_back(part.source);
    }
    const std::vector<KBUNDLE::KBundleEntry> entries = KBUNDLE::JoinedEntries(sources);
    const KBUNDLE::KArchitectureBits all = KBUNDLE::BitsOf(parts.size());
    for (const KBUNDLE::KBundleEntry& entry : entries) {
        const unsigned first = FirstOf(entry.architectures);
        const bool mayDiffer =
            (!entry.isDirectory && IsOfProgram(entry.name, sources[first].directory)) ||
            (!names.contains(entry.name) && IsAdded(entry.name));
        if (entry.architectures == all || mayDiffer) {
            continue;
        }
        // The first part that has it, and one that has not.
        const KBundlePart& with = parts[first];
        const KBundlePart& without = parts[FirstOf(all & ~entry.architectures)];
        const bool isThereToo =
            std::any_of(entries.begin(), entries.end(), [&](const KBUNDLE::KBundleEntry& other) {
                return other.name == entry.name && &other != &entry;
            });
        const KText why =
            isThereToo
                ? Text("%s in %s differs from that in %s.", entry.name, without.origin, with.origin)
                : Text("%s is in %s, and not in %s.", entry.name, with.origin, without.origin);
        throw KSetupFailure(
            ExitCode::malformedScript,
            why + " " + Text("Make the bundles of all architectures of one and the same kit.")
        );
    }
}

} // namespace KSETUP
