// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/files/PathText.h>
#include <setup/plan/UnitFiles.h>
#include <setup/state/KManifest.h>
#include <setup/state/KPrivateDirectory.h>

#include <cerrno>

#include <sys/files/DirectoryEntry.h>

namespace KSETUP {

namespace {

constexpr const char* unitDirectory = "/etc/systemd/system/";

bool HoldsLinks(const std::string& directory) {
    return directory.ends_with(".wants") || directory.ends_with(".requires") ||
           directory.ends_with(".upholds");
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
    // As texts: a std::filesystem::path whose copy fails for want of memory takes the program with it.
    const auto add = [&](const std::string& path) {
        unsigned whyMissing = 0;
        if (LookAtEntry(path, &whyMissing)) {
            entries.push_back(path);
        } else {
            RequireKnown(whyMissing, path);
        }
    };
    add(unitDirectory + unit);
    std::vector<std::string> names;
    RequireKnown(KSYS::ListEntries(unitDirectory, names), unitDirectory);
    for (const std::string& name : names) {
        const std::string path = unitDirectory + name;
        std::string target;
        if (HoldsLinks(path)) {
            add(JoinPath(path, unit));
        } else if (name != unit && KSYS::ReadLink(path, target) == 0 && NameOfPath(target) == unit) {
            add(path); // what is no link leads nowhere
        }
    }
    return entries;
}

} // namespace KSETUP
