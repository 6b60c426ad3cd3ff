// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/plan/UnitFiles.h>
#include <setup/state/KManifest.h>
#include <setup/state/KPrivateDirectory.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include <sys/files/DirectoryEntry.h>

namespace KSETUP {

namespace {

namespace fs = std::filesystem;

constexpr const char* unitDirectory = "/etc/systemd/system/";

bool HoldsLinks(const fs::path& directory) {
    const fs::path ending = directory.extension();
    return ending == ".wants" || ending == ".requires" || ending == ".upholds";
}

/// What cannot be looked at is not known to be missing.
void RequireKnown(unsigned failed, const std::string& path) {
    if (failed != 0 && failed != ENOENT && failed != ENOTDIR) {
        throw SystemFailure(
            ExitCode::cannotWrite,
            Text("cannot look at %s", path),
            failed,
            Text("Fix the cause and run it again.")
        );
    }
}

} // namespace

std::vector<std::string> UnitPaths(const std::string& service) {
    return {
        unitDirectory + service + ".service",
        std::string(unitDirectory) + "multi-user.target.wants/" + service + ".service"};
}

std::vector<std::string> FindUnitEntries(const std::string& service) {
    const std::string unit = service + ".service";
    std::vector<std::string> entries;
    const auto add = [&](const fs::path& path) {
        unsigned whyMissing = 0;
        if (LookAtEntry(path.string(), &whyMissing)) {
            entries.push_back(path.string());
        } else {
            RequireKnown(whyMissing, path.string());
        }
    };
    add(fs::path(unitDirectory) / unit);
    std::vector<std::string> names;
    RequireKnown(KSYS::ListEntries(unitDirectory, names), unitDirectory);
    for (const std::string& name : names) {
        const fs::path path = fs::path(unitDirectory) / name;
        std::error_code none; // what is no link leads nowhere
        if (HoldsLinks(path)) {
            add(path / unit);
        } else if (name != unit && fs::read_symlink(path, none).filename() == unit) {
            add(path);
        }
    }
    return entries;
}

} // namespace KSETUP
