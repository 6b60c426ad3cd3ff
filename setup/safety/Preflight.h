// SPDX-License-Identifier: MIT
#pragma once

#include <setup/plan/KPlan.h>

#include <string>
#include <vector>

#include <sys/types.h>

namespace KSETUP {

/// \file
/// What is looked at before anything is changed. Each throws a KSetupFailure when the run must not
/// begin, its text saying why and what to do, and leaves everything as it is.

/// Room for the files on every file system, with a reserve for directories and the file system's
/// own data: 1 MiB and a hundredth of what is needed, 16 files. ExitCode::cannotWrite.
void CheckSpace(const std::vector<KPlan::Space>& spaces);

/// Where something is to change, the file system is not mounted read-only, and neither what stands
/// there nor its directory is protected by the attributes "immutable" or "append only" (chattr(1)).
/// ExitCode::cannotWrite.
void CheckWritable(const std::vector<std::string>& paths);

struct KProductVersion {
    std::string version;
    unsigned buildNumber = 0;
};

/// No newer version is installed, unless that is allowed. A version that is empty or "unknown" is
/// none. ExitCode::usage.
void CheckDowngrade(
    const std::string& product,
    const KProductVersion& installed,
    const KProductVersion& kit,
    bool allowed
);

inline constexpr const char* serviceManagerDirectory = "/run/systemd/system";

/// Where the plan has services, systemd runs, or they are left for the next boot.
/// ExitCode::noService.
void CheckServiceManager(
    const KPlan& plan,
    bool offlineServices,
    const std::string& runDirectory = serviceManagerDirectory
);

/// The kit is root's and nobody else may write in it, nor move another one into its place: neither
/// in the directories above it nor in anything it holds. ExitCode::noKit.
void CheckKitIsPrivate(const std::string& kit);

/// The same of the directory of logs, but not of what it holds; a group of the system may write
/// there, as some systems have it. ExitCode::cannotWrite.
void CheckLogDirectory(const std::string& directory);

struct KRunningProgram {
    pid_t pid = 0;
    std::string name;
    std::string path; ///< as it was given

    /// "4711 dpsd /opt/dps/lin/dpsd", printable
    std::string ToWords() const;
};

/// The programs that run from these files, by process id, this one left out. They go on with the
/// former file when it is replaced. Processes that end meanwhile, or may not be looked at, are left
/// out too.
std::vector<KRunningProgram>
FindRunningPrograms(const std::vector<std::string>& paths, const std::string& processes = "/proc");

/// A number of bytes for people: "512 bytes", "1.5 MiB".
std::string ReadableBytes(std::uint64_t bytes);

} // namespace KSETUP
