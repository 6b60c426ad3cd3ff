// SPDX-License-Identifier: MIT
#include <ins/Names.h>
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/kit/BundleJoin.h>
#include <setup/kit/BundleProgram.h>
#include <setup/kit/KitBundle.h>
#include <setup/kit/KitFiles.h>
#include <setup/kit/KitSeal.h>
#include <setup/kit/KitSigning.h>
#include <setup/output/Licences.h>
#include <sup++/KProfile.h>

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include <bundle/KBundleError.h>
#include <bundle/WriteBundle.h>

namespace KSETUP {

namespace {

namespace fs = std::filesystem;

/// A run refuses a kit that others can change, also one that an author with umask 002 made.
constexpr mode_t closedToOthers = 07755;
/// Whoever gives the bundle away gives the licences away; a kit may have notices of its own there.
void AddLicences(const fs::path& kit) {
    MakeDirectories(kit / licencesBeside);
    for (const KLicence& licence : GetLicences()) {
        const fs::path file = kit / licencesBeside / licence.name;
        std::error_code unknown; // writing it tells
        if (!fs::exists(file, unknown)) {
            WriteBytes(file, std::string(licence.text), 0644);
        }
    }
}

void CopyKit(const fs::path& from, const fs::path& to) {
    const KKitListing listing = ListKit(from);
    if (!listing.others.empty()) {
        throw KSetupFailure(
            ExitCode::noKit,
            Text(
                "%s: neither a file nor a link to one. Take it out of the kit.",
                (from / listing.others.front()).string()
            )
        );
    }
    MakeDirectories(to);
    for (const std::string& directory : listing.directories) {
        MakeDirectories(to / directory);
    }
    for (const std::string& name : listing.files) {
        CopyBytes(from / name, to / name, closedToOthers);
    }
}

/// Where the script proposes to install, as far as that can be told without a machine: bundles are
/// unpacked on that file system.
std::string ProposedPlace(const std::string& script) {
    const KSUP::KString path = KSUP::KProfile(script).GetString(
        KINS::Names::installSection, KINS::Names::defaultPathKey, ""
    );
    const std::string place = path.c_str();
    return place.starts_with('/') && place.find('$') == std::string::npos ? place : "";
}

/// Packs, and says what is wrong in the words of this program.
void Pack(
    const std::vector<KBundlePart>& parts, const std::string& place, const std::string& target
) {
    try {
        if (parts.size() == 1) {
            const KBUNDLE::KArchitectureSource& own = parts.front().source;
            KBUNDLE::WriteBundle(
                {.head = own.head, .directory = own.directory, .place = place}, target
            );
            return;
        }
        std::vector<KBUNDLE::KArchitectureSource> sources;
        for (const KBundlePart& part : parts) {
            sources.push_back(part.source);
        }
        KBUNDLE::WriteJoinedBundle(sources, place, target);
    } catch (const KBUNDLE::KBundleError& error) {
        const bool isWrite = error.GetKind() == KBUNDLE::KBundleError::Kind::CannotWrite;
        throw KSetupFailure(isWrite ? ExitCode::cannotWrite : ExitCode::noKit, error.what());
    }
}

void RefuseTarget(const fs::path& target, const std::string& kit) {
    std::error_code error; // a missing one is what it should be
    const fs::path directory = fs::canonical(target.parent_path(), error);
    if (error) {
        FailOn(
            target.parent_path(), error.value(), Text("The bundle's directory has to be there.")
        );
    }
    if (directory == kit || directory.string().starts_with(kit + "/")) {
        throw KSetupFailure(
            ExitCode::usage,
            Text(
                "%s: this is in the kit, which would hold its own bundle. Name a file elsewhere.",
                target.string()
            )
        );
    }
    const fs::file_status status = fs::symlink_status(target, error);
    if (fs::exists(status) && !fs::is_regular_file(status)) {
        throw KSetupFailure(
            ExitCode::usage,
            Text("%s: there is something that is no file. Name another.", target.string())
        );
    }
}

/// What is in the bundle is more than the kit, so it is sealed and signed anew.
void SealCopy(const fs::path& kit, bool wasSealed, const std::string& secretKey) {
    if (!secretKey.empty()) {
        SealAndSign(kit.string(), secretKey);
    } else if (wasSealed) {
        WriteSeal(kit.string());
    }
}

/// The signature first: one that does not fit is refused, a bundle without one may not be.
void PutInPlace(const fs::path& made, const fs::path& target, bool isSigned) {
    const fs::path signature = target.string() + signatureEnding;
    std::error_code error;
    fs::permissions(made, fs::perms(0755), error);
    if (isSigned) {
        fs::rename(made.string() + signatureEnding, signature, error);
    } else {
        fs::remove(signature, error);
    }
    if (error) {
        FailOnWrite(signature, error.value());
    }
    fs::rename(made, target, error);
    if (error) {
        FailOnWrite(target, error.value());
    }
}

/// The part of this machine, and those of other bundles.
std::vector<KBundlePart> JoinParts(
    KBundlePart own,
    const std::vector<std::string>& others,
    const fs::path& work,
    const KKitListing& kit,
    bool isSigned
) {
    std::vector<KBundlePart> parts{std::move(own)};
    if (others.empty()) {
        return parts;
    }
    parts[0].source.architecture = ArchitectureOfHead(parts[0].source.head);
    for (const std::string& other : others) {
        const fs::path below = work / ("other" + std::to_string(parts.size()));
        for (KBundlePart& part : TakeBundleApart(other, below, isSigned)) {
            parts.push_back(std::move(part));
        }
    }
    // One that is not sealed where others are differs.
    const bool areSealed = std::all_of(parts.begin(), parts.end(), [](const KBundlePart& part) {
        return IsSealed(part.source.directory);
    });
    for (const KBundlePart& part : parts) {
        if (isSigned || areSealed) {
            RemoveSeal(part.source.directory, isSigned);
        }
    }
    RequireOneKit(parts, kit);
    return parts;
}

std::string ArchitecturesOf(const std::vector<KBundlePart>& parts) {
    std::string names;
    for (const KBundlePart& part : parts) {
        names += (names.empty() ? "" : ", ") + part.source.architecture;
    }
    return names;
}

} // namespace

std::string MakeBundle(
    const std::string& kitDirectory,
    const std::string& file,
    const std::string& secretKey,
    const std::vector<std::string>& others
) {
    const fs::path target = fs::absolute(file);
    const std::string head = FindBundleHead();
    RefuseTarget(target, kitDirectory);
    if (secretKey.empty() && IsSigned(kitDirectory)) {
        throw KSetupFailure(
            ExitCode::usage,
            Text(
                "%s: the kit is signed, and a bundle, which holds more than the kit, is to be "
                "signed too. Name the key with --sign KEY.",
                kitDirectory
            )
        );
    }
    VerifySeal(kitDirectory);
    // Beside the target, so that it can take its place at once.
    const KTemporaryDirectory work(target.parent_path());
    const fs::path kit = work.GetPath() / "kit";
    const fs::path made = work.GetPath() / "bundle.run";
    CopyKit(kitDirectory, kit);
    AddProgram(kit);
    AddLicences(kit);
    const std::vector<KBundlePart> parts = JoinParts(
        {{"", head, kit.string()}, kitDirectory},
        others,
        work.GetPath(),
        ListKit(kitDirectory),
        !secretKey.empty()
    );
    for (const KBundlePart& part : parts) {
        SealCopy(part.source.directory, IsSealed(kitDirectory), secretKey);
    }
    Pack(parts, ProposedPlace(kit / "install.ini"), made.string());
    if (!secretKey.empty()) {
        SignFile(made.string(), secretKey, KKitStatement::OfProductData());
    }
    PutInPlace(made, target, !secretKey.empty());
    return ArchitecturesOf(parts);
}

} // namespace KSETUP
