// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/safety/CompareVersions.h>
#include <setup/safety/PlannedPaths.h>
#include <setup/safety/Preflight.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <set>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

namespace KSETUP {

namespace {

constexpr std::uint64_t reserveBytes = std::uint64_t{1} << 20U;
constexpr std::uint64_t reservePart = 100;
constexpr std::uint64_t reserveFiles = 16;
constexpr const char* nothingChanged = " Nothing was changed.";

/// The word for what keeps a thing from being changed, or none. Nothing protects what is not there.
const char* Protection(const std::string& path) {
    struct statx status {};
    if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_TYPE, &status) != 0) {
        return nullptr;
    }
    return (status.stx_attributes & STATX_ATTR_IMMUTABLE) != 0 ? "immutable"
           : (status.stx_attributes & STATX_ATTR_APPEND) != 0  ? "append only"
                                                               : nullptr;
}

void RefuseProtected(const std::string& path) {
    if (const char* const protection = Protection(path)) {
        throw KSetupFailure(
            ExitCode::cannotWrite,
            path + " has the attribute \"" + protection + "\", so it cannot be changed. Take it " +
                "away with chattr -ia, if it is not meant." + nothingChanged
        );
    }
}

std::string VersionText(const KProductVersion& version) {
    return version.version + " (build " + std::to_string(version.buildNumber) + ")";
}

} // namespace

std::string ReadableBytes(std::uint64_t bytes) {
    static constexpr std::array units = std::to_array<const char*>({"KiB", "MiB", "GiB", "TiB"});
    if (bytes < 1024) {
        return std::to_string(bytes) + " bytes";
    }
    double amount = static_cast<double>(bytes) / 1024;
    std::size_t unit = 0;
    while (amount >= 1024 && unit + 1 < units.size()) {
        amount /= 1024;
        ++unit;
    }
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%.1f %s", amount, units[unit]);
    return text.data();
}

void CheckSpace(const std::vector<KPlan::Space>& spaces) {
    for (const KPlan::Space& space : spaces) {
        const std::uint64_t reserve = reserveBytes + space.needed / reservePart;
        if (space.needed != 0 && space.available < space.needed + reserve) {
            throw KSetupFailure(
                ExitCode::cannotWrite,
                "there is not enough space on the file system of " + space.directory + ": " +
                    ReadableBytes(space.needed) + " and " + ReadableBytes(reserve) +
                    " in reserve are needed, " + ReadableBytes(space.available) +
                    " are free. Free some, or install on another file system." + nothingChanged
            );
        }
        if (!space.filesAreUnlimited && space.filesNeeded != 0 &&
            space.filesAvailable < space.filesNeeded + reserveFiles) {
            throw KSetupFailure(
                ExitCode::cannotWrite,
                "the file system of " + space.directory + " cannot hold so many files: " +
                    std::to_string(space.filesNeeded) + " and " + std::to_string(reserveFiles) +
                    " in reserve are needed, " + std::to_string(space.filesAvailable) +
                    " are free. Delete some, or install on another file system." + nothingChanged
            );
        }
    }
}

void CheckWritable(const std::vector<std::string>& paths) {
    std::set<std::string> seen; // directories that were looked at
    for (const std::string& path : paths) {
        RefuseProtected(path);
        for (std::filesystem::path at = std::filesystem::path(path).parent_path();
             !at.empty() && seen.insert(at.string()).second;
             at = at.parent_path()) {
            struct statvfs system {};
            if (::statvfs(at.c_str(), &system) != 0) {
                continue; // not there: the directory above tells
            }
            if ((system.f_flag & ST_RDONLY) != 0) {
                throw KSetupFailure(
                    ExitCode::cannotWrite,
                    path + " cannot be written: " + at.string() +
                        " is on a file system that is mounted read-only. Mount it for writing, or "
                        "install elsewhere." +
                        nothingChanged
                );
            }
            RefuseProtected(at.string());
            break;
        }
    }
}

void CheckDowngrade(
    const std::string& product,
    const KProductVersion& installed,
    const KProductVersion& kit,
    bool allowed
) {
    if (allowed || installed.version.empty() || installed.version == "unknown") {
        return;
    }
    const int order = CompareVersions(installed.version, kit.version);
    if (order > 0 || (order == 0 && installed.buildNumber > kit.buildNumber)) {
        throw KSetupFailure(
            ExitCode::usage,
            product + " " + VersionText(installed) +
                " is installed, which is newer than this "
                "kit's " +
                VersionText(kit) + ". Give --allow-downgrade to install it all the same." +
                nothingChanged
        );
    }
}

void CheckServiceManager(const KPlan& plan, bool offlineServices, const std::string& runDirectory) {
    struct stat status {};
    if (!offlineServices && HasServices(plan) &&
        (::lstat(runDirectory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))) {
        throw KSetupFailure(
            ExitCode::noService,
            "the script has services, but systemd does not run here (" + runDirectory +
                " is missing). Give --offline-services to leave them for the next boot." +
                nothingChanged
        );
    }
}

} // namespace KSETUP
