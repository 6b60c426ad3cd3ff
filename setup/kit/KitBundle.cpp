// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/kit/ElfRunPath.h>
#include <setup/kit/KitBundle.h>
#include <setup/kit/KitFiles.h>
#include <setup/kit/KitSeal.h>
#include <setup/kit/KitSigning.h>
#include <setup/output/Licences.h>
#include <setup/output/TextFormat.h>

#include <array>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>
#include <vector>

#include <link.h>
#include <openssl/opensslv.h>
#include <sys/processes/ProgramRun.h>

namespace KSETUP {

namespace {

namespace fs = std::filesystem;

constexpr char program[] = "ins-setup";
/// Those that a system may be without. The other libraries that the program needs are on every
/// Debian system: packages depend on them that none is without. That is not so of libcrypto.
constexpr std::array libraries =
    std::to_array<std::string_view>({"libins++.so.1", "libdplinsup.so.1", "libcrypto.so.3"});
static_assert(OPENSSL_SHLIB_VERSION == 3, "libcrypto has another name");
/// The library that has message catalogues beside it, and how their names begin: those of all
/// languages, for the bundle's user may speak another than its author.
constexpr std::string_view speakingLibrary = libraries[0];
constexpr char catalogueBegin[] = "xxxins.";
constexpr char licencesName[] = "licences";
/// A run refuses a kit that others can change, also one that an author with umask 002 made.
constexpr mode_t closedToOthers = 07755;
constexpr char startName[] = "bundle-start.sh";

/// Run by the shell, so that it can speak where programs cannot run. The path of libraries is for
/// an ins-setup that names no directory for them; nothing but the bundle's own is on it.
constexpr char startScript[] = R"(#!/bin/sh
# Started by the bundle when it is unpacked.
if ! [ -x ./ins-setup ]; then
    echo "ins-setup: $PWD is on a file system that runs no programs (noexec). Name another directory:" >&2
    echo "    TMPDIR=/var/tmp sh FILE" >&2
    exit 73
fi
[ $# -gt 0 ] || set -- install
LD_LIBRARY_PATH=$PWD
export LD_LIBRARY_PATH
exec ./ins-setup "$@"
)";

/// Those of the libraries that this process runs with: under which name programs look for them, and
/// where they are.
int CollectLibrary(dl_phdr_info* info, std::size_t /*size*/, void* list) {
    const fs::path path(info->dlpi_name != nullptr ? info->dlpi_name : "");
    for (const std::string_view name : libraries) {
        if (path.filename().string().starts_with(name)) {
            static_cast<std::vector<std::pair<std::string, fs::path>>*>(list)->emplace_back(
                name, path
            );
        }
    }
    return 0;
}

void CopyProgram(const fs::path& from, const fs::path& to) {
    std::string bytes = ReadBytes(from);
    SetRunPathToOrigin(bytes, from.string());
    WriteBytes(to, bytes, 0755);
}

void AddCatalogues(const fs::path& library, const fs::path& kit) {
    std::error_code unknown; // as good as none, for English is built in
    const fs::path directory = fs::canonical(library, unknown).parent_path();
    for (const auto& entry : fs::directory_iterator(directory, unknown)) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with(catalogueBegin) && name.ends_with(".cat")) {
            CopyBytes(entry.path(), kit / name);
        }
    }
}

void AddProgram(const fs::path& kit) {
    std::error_code error;
    const fs::path own = fs::read_symlink("/proc/self/exe", error);
    if (error) {
        FailOn("/proc/self/exe", error.value());
    }
    CopyProgram(own, kit / program);
    std::vector<std::pair<std::string, fs::path>> loaded;
    ::dl_iterate_phdr(&CollectLibrary, &loaded);
    for (const auto& [name, path] : loaded) {
        CopyProgram(path, kit / name);
        if (name == speakingLibrary) {
            AddCatalogues(path, kit);
        }
    }
}

/// Whoever gives the bundle away gives the licences away; a kit may have notices of its own there.
void AddLicences(const fs::path& kit) {
    MakeDirectories(kit / licencesName);
    for (const KLicence& licence : GetLicences()) {
        const fs::path file = kit / licencesName / licence.name;
        std::error_code unknown; // writing it tells
        if (!fs::exists(file, unknown)) {
            WriteBytes(file, std::string(licence.text), 0644);
        }
    }
}

/// The same for a kit that brings its own, as a build leaves them: below /tmp, a directory beside the
/// bundle's is anybody's.
void HoldToOwnDirectory(const fs::path& kit) {
    std::vector<std::string_view> names(libraries.begin(), libraries.end());
    names.emplace_back(program);
    for (const std::string_view name : names) {
        std::error_code unknown; // as good as missing
        const fs::path path = kit / name;
        if (fs::exists(path, unknown) && ReadBytes(path).starts_with("\x7F"
                                                                     "ELF")) {
            CopyProgram(path, path);
        }
    }
}

void CopyKit(const fs::path& from, const fs::path& to) {
    const KKitListing listing = ListKit(from);
    if (!listing.others.empty()) {
        throw KSetupFailure(
            ExitCode::noKit,
            (from / listing.others.front()).string() +
                ": neither a file nor a link to one. Take it out of the kit."
        );
    }
    for (const auto* names : {&listing.files, &listing.directories}) {
        for (const std::string& name : *names) {
            if (name.find('\n') != std::string::npos) {
                throw KSetupFailure(
                    ExitCode::noKit,
                    Printable((from / name).string()) +
                        ": makeself cannot take a name with a line break. Rename it."
                );
            }
        }
    }
    MakeDirectories(to);
    for (const std::string& directory : listing.directories) {
        MakeDirectories(to / directory);
    }
    for (const std::string& name : listing.files) {
        CopyBytes(from / name, to / name, closedToOthers);
    }
}

/// What makeself writes into a shell script between double quotes.
std::string Label(const std::string& product) {
    std::string label;
    for (const char letter : Printable(product)) {
        const bool means = letter == '"' || letter == '$' || letter == '`' || letter == '\\';
        label += means ? '_' : letter;
    }
    return label.empty() || label.front() == '-' ? "_" + label : label;
}

/// Runs makeself in `directory`; what it says goes to a file there.
void RunMakeself(const fs::path& directory, const std::string& label) {
    const std::vector<std::string> words = {
        "makeself",
        "--sha256",
        "--nox11",
        "--tar-quietly",
        // Root's, whoever makes the bundle: a run refuses a kit that others can change.
        "--tar-extra",
        "--owner=0 --group=0 --numeric-owner",
        "kit",
        "bundle.run",
        label,
        "sh",
        std::string("./") + startName};
    bool succeeded = false;
    const unsigned error = KSYS::RunProgram(words, directory, "log", succeeded);
    if (error == ENOENT) {
        throw KSetupFailure(
            ExitCode::noKit,
            "makeself is missing, which makes the bundle. Install Debian's "
            "package of that name: apt-get install makeself"
        );
    }
    if (error != 0) {
        FailOn("makeself", static_cast<int>(error));
    }
    if (!succeeded) {
        throw KSetupFailure(
            ExitCode::cannotWrite, "makeself failed. It says:\n" + ReadBytes(directory / "log")
        );
    }
}

void RefuseTarget(const fs::path& target, const std::string& kit) {
    std::error_code error; // a missing one is what it should be
    const fs::path directory = fs::canonical(target.parent_path(), error);
    if (error) {
        FailOn(target.parent_path(), error.value(), "The bundle's directory has to be there.");
    }
    if (directory == kit || directory.string().starts_with(kit + "/")) {
        throw KSetupFailure(
            ExitCode::usage,
            target.string() + ": this is in the kit, which would hold its own bundle. Name a file "
                              "elsewhere."
        );
    }
    const fs::file_status status = fs::symlink_status(target, error);
    if (fs::exists(status) && !fs::is_regular_file(status)) {
        throw KSetupFailure(
            ExitCode::usage, target.string() + ": there is something that is no file. Name another."
        );
    }
}

/// What is in the bundle is more than the kit, so it is sealed and signed anew.
void Seal(const fs::path& kit, bool wasSealed, const std::string& secretKey) {
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

} // namespace

void MakeBundle(
    const std::string& kitDirectory,
    const std::string& product,
    const std::string& file,
    const std::string& secretKey
) {
    const fs::path target = fs::absolute(file);
    RefuseTarget(target, kitDirectory);
    if (secretKey.empty() && IsSigned(kitDirectory)) {
        throw KSetupFailure(
            ExitCode::usage,
            kitDirectory +
                ": the kit is signed, and a bundle, which holds more than the kit, is to "
                "be signed too. Name the key with --sign KEY."
        );
    }
    VerifySeal(kitDirectory);
    // Beside the target, so that it can take its place at once.
    const KTemporaryDirectory work(target.parent_path());
    const fs::path kit = work.GetPath() / "kit";
    const fs::path made = work.GetPath() / "bundle.run";
    CopyKit(kitDirectory, kit);
    std::error_code unknown; // as good as missing
    if (!fs::exists(kit / program, unknown)) {
        AddProgram(kit);
    } else {
        HoldToOwnDirectory(kit);
    }
    WriteBytes(kit / startName, startScript, 0755);
    AddLicences(kit);
    Seal(kit, IsSealed(kitDirectory), secretKey);
    RunMakeself(work.GetPath(), Label(product));
    if (!secretKey.empty()) {
        SignFile(made.string(), secretKey, KKitStatement::OfProductData());
    }
    PutInPlace(made, target, !secretKey.empty());
}

} // namespace KSETUP
