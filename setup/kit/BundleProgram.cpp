// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/CatalogueDirectory.h>
#include <setup/kit/BundleProgram.h>
#include <setup/kit/ElfRunPath.h>
#include <setup/kit/KitFiles.h>

#include <string_view>
#include <system_error>
#include <vector>

#include <link.h>
#include <sys/processes/OwnProcess.h>

namespace KSETUP {

namespace {

namespace fs = std::filesystem;

constexpr char program[] = "ins-setup";
constexpr char headBeside[] = "../lib/ins-setup/bundle-head";
/// The library that has message catalogues beside it, and how their names begin: those of all
/// languages, for the bundle's user may speak another than its author.
constexpr std::string_view speakingLibrary = "libins++.so.1";
constexpr char catalogueBegin[] = "xxxins.";
/// The loader is told where it looks, and not by what is in its own file.
constexpr std::string_view loaderBegin = "ld-linux";
/// By this one texts are translated where the system has no locale; of the same C library as the one
/// that comes along.
constexpr char neutralLocale[] = "/usr/lib/locale/C.utf8/LC_MESSAGES/SYS_LC_MESSAGES";
constexpr char neutralLocaleBeside[] = "C.utf8/LC_MESSAGES/SYS_LC_MESSAGES";

/// The files that this process runs with; the first one is its own and has no name, nor has what the
/// kernel gives each process.
int CollectLibrary(dl_phdr_info* info, std::size_t /*size*/, void* list) {
    const fs::path path(info->dlpi_name != nullptr ? info->dlpi_name : "");
    if (path.is_absolute()) {
        static_cast<std::vector<fs::path>*>(list)->push_back(path);
    }
    return 0;
}

void CopyProgram(const fs::path& from, const fs::path& to) {
    std::string bytes = ReadBytes(from);
    if (!to.filename().string().starts_with(loaderBegin)) {
        SetRunPathToOrigin(bytes, from.string());
        SetNoDefaultLibraries(bytes, from.string());
    }
    constexpr mode_t executable = 0755;
    WriteBytes(to, bytes, executable);
}

void AddCatalogues(const fs::path& library, const fs::path& kit) {
    std::error_code unknown; // as good as none, for English is built in
    const fs::path directory = fs::canonical(library, unknown).parent_path();
    for (const auto& entry : fs::directory_iterator(directory, unknown)) {
        const std::string name = entry.path().filename().string();
        if (IsCatalogueOfLibrary(name)) {
            CopyBytes(entry.path(), kit / name);
        }
    }
}

void AddLibraries(const fs::path& kit) {
    std::vector<fs::path> loaded;
    ::dl_iterate_phdr(&CollectLibrary, &loaded);
    for (const fs::path& path : loaded) {
        const fs::path target = kit / path.filename();
        std::error_code unknown; // as good as missing
        if (fs::exists(target, unknown)) {
            CopyProgram(target, target);
            continue;
        }
        CopyProgram(path, target);
        if (path.filename() == speakingLibrary) {
            AddCatalogues(path, kit);
        }
    }
}

/// Copies what is there and the kit has not.
void AddText(const fs::path& from, const fs::path& to) {
    constexpr mode_t closedToOthers = 0755; // or a run as root would not believe it
    std::error_code unknown;                // as good as none
    if (fs::is_regular_file(from, unknown) && !fs::exists(to, unknown)) {
        MakeDirectories(to.parent_path());
        CopyBytes(from, to, closedToOthers);
    }
}

/// What the program itself says, in all languages too.
void AddTexts(const fs::path& kit) {
    const fs::path texts = kit / cataloguesBeside;
    std::error_code unknown; // as good as none
    for (const auto& language : fs::directory_iterator(CatalogueDirectory(), unknown)) {
        AddText(
            language.path() / catalogueBelowLanguage,
            texts / language.path().filename() / catalogueBelowLanguage
        );
    }
    AddText(neutralLocale, texts / neutralLocaleBeside);
}

} // namespace

bool IsElf(std::string_view bytes) {
    return bytes.starts_with("\x7F"
                             "ELF");
}

bool IsCatalogueOfLibrary(std::string_view name) {
    return name.starts_with(catalogueBegin) && name.ends_with(".cat");
}

std::string FindBundleHead() {
    const fs::path path = fs::path(KSYS::ProgramDirectory()) / headBeside;
    std::error_code missing;
    const fs::path found = fs::canonical(path, missing);
    if (missing) {
        throw KSetupFailure(
            ExitCode::noKit,
            Text(
                "%s: missing; a bundle begins with it. Make bundles with an ins-setup that is "
                "installed as its package lays it down: apt-get install ins-setup",
                path.lexically_normal().string()
            )
        );
    }
    return found.string();
}

void AddProgram(const fs::path& kit) {
    std::error_code unknown; // as good as missing
    const fs::path target = kit / program;
    if (!fs::exists(target, unknown)) {
        std::error_code error;
        const fs::path own = fs::read_symlink("/proc/self/exe", error);
        if (error) {
            FailOn("/proc/self/exe", error.value());
        }
        CopyProgram(own, target);
    } else if (IsElf(ReadBytes(target))) {
        CopyProgram(target, target);
    } else {
        return;
    }
    AddLibraries(kit);
    AddTexts(kit);
}

} // namespace KSETUP
