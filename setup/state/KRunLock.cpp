// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupStop.h>
#include <setup/files/PathText.h>
#include <setup/output/TextFormat.h>
#include <setup/script/SecretNames.h>
#include <setup/state/KPrivateDirectory.h>
#include <setup/state/KRunLock.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <thread>

#include <sys/files/FileCalls.h>
#include <sys/files/FileContent.h>
#include <sys/files/FileLock.h>
#include <sys/files/FileStatus.h>
#include <sys/processes/OwnProcess.h>
#include <sys/processes/ProcessIsolation.h>
#include <sys/processes/ProcessList.h>

namespace KSETUP {

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds betweenTries{100};
/// Somebody who only looks (FindHolder) holds the lock for a moment: that must not refuse a run.
constexpr std::chrono::milliseconds always{300};
constexpr std::size_t commandBytes = 4096;

std::string LockName(const std::string& serviceName) {
    if (serviceName.empty() ||
        serviceName.find_first_of(std::string("/\0", 2)) != std::string::npos) {
        throw KSetupFailure(
            ExitCode::malformedScript,
            Text(
                "\"%s\" cannot be the name of a service: it has to be a plain file name. Fix "
                "\"serviceName\" in product.ini.",
                serviceName
            )
        );
    }
    return serviceName + ".lock";
}

/// Only what is no file is to be deleted: another failure says nothing against what stands there.
KText LockAdvice(unsigned errorNumber) noexcept {
    switch (errorNumber) {
    case ELOOP:
    case EISDIR:
    case ENOTDIR:
    case EINVAL:
    case ENXIO:
    case ENODEV:
        return Text("Delete it when no run of ins-setup goes on, and run it again.");
    case ENOENT:
    case EROFS:
        return Text("See to it that the directory is there and can be written.");
    default:
        return Text("Fix the cause and run it again.");
    }
}

KSetupFailure CannotLock(const std::string& path, unsigned errorNumber) {
    return SystemFailure(
        ExitCode::cannotWrite, Text("cannot lock %s", path), errorNumber, LockAdvice(errorNumber)
    );
}

/// The directory of the locks, open.
struct OpenPlace {
    KSYS::KDescriptor directory;
    std::string path;
};

/// Nothing where there is none and none is to be made.
///
/// Throws   KSetupFailure for one that cannot be trusted, opened or made
std::optional<OpenPlace> Open(const KSYS::LockPlaces& places, KSYS::MissingPlace missing) {
    OpenPlace place;
    const unsigned failed = KSYS::OpenLockPlace(places, missing, place.directory, place.path);
    if (failed == ENOENT && missing == KSYS::MissingPlace::StaysMissing) {
        return std::nullopt;
    }
    if (failed == EACCES && !KSYS::IsRoot()) {
        throw KSetupFailure(ExitCode::notRoot, Text("only root can look into %s.", place.path));
    }
    if (failed == ENOLCK) {
        throw KSetupFailure(
            ExitCode::cannotWrite,
            Text("%s. Nothing was changed.", KSYS::DescribeRefusedPlace(place.path))
        );
    }
    if (failed != 0) {
        const std::string first = places.directories.front();
        throw CannotLock(place.path.empty() ? first : place.path, failed);
    }
    return place;
}

void RefuseUnlessOurs(int file, const std::string& path) {
    struct stat status {};
    if (const unsigned failed = KSYS::ReadStatus(file, status); failed != 0) {
        throw CannotLock(path, failed);
    }
    if (!S_ISREG(status.st_mode) || status.st_nlink > 1 || !KSYS::IsOwnAlone(status)) {
        throw KSetupFailure(
            ExitCode::cannotWrite,
            Text(
                "%s is no plain file of root's alone. Look what it is, delete it, and run it "
                "again.",
                path
            )
        );
    }
}

bool StillStandsAt(int file, const KSYS::Entry& entry, const std::string& path) {
    struct stat opened {};
    struct stat found {};
    unsigned failed = KSYS::ReadStatus(file, opened);
    if (failed == 0) {
        failed = KSYS::ReadStatus(entry, KSYS::LastLink::Keep, found);
    }
    if (failed != 0 && failed != ENOENT) {
        throw CannotLock(path, failed);
    }
    return failed == 0 && KSYS::IsSameFile(opened, found);
}

KSYS::KDescriptor OpenLockFile(const OpenPlace& place, const std::string& name) {
    const KSYS::Entry entry(place.directory, name);
    KSYS::KDescriptor file;
    unsigned failed = EEXIST;
    while (failed == EEXIST) { // made by another run meanwhile
        failed = KSYS::OpenEntry(entry, O_RDWR, file);
        if (failed == ENOENT) {
            failed = KSYS::MakeFile(entry, file, O_RDWR);
        }
    }
    const std::string path = JoinPath(place.path, name);
    if (failed != 0) {
        throw CannotLock(path, failed);
    }
    RefuseUnlessOurs(file.Get(), path);
    return file;
}

/// Takes the lock at once, or not. The file may be taken away and made anew by others.
bool TryLock(KSYS::KDescriptor& file, const OpenPlace& place, const std::string& name) {
    for (;;) {
        file = OpenLockFile(place, name);
        const unsigned failed = KSYS::TryLockFile(file.Get(), KSYS::LockKind::Exclusive);
        if (failed == EWOULDBLOCK) {
            return false;
        }
        if (failed != 0) {
            throw CannotLock(JoinPath(place.path, name), failed);
        }
        if (StillStandsAt(file.Get(), {place.directory, name}, JoinPath(place.path, name))) {
            return true;
        }
    }
}

std::string OwnCommandLine() {
    std::string text;
    for (const std::string& word : MaskedArguments(KSYS::ProgramArguments())) {
        text += (text.empty() ? "" : " ") + word;
    }
    return Printable(text.substr(0, commandBytes));
}

KLockHolder ReadHolder(int file) {
    std::string text;
    KLockHolder holder;
    if (KSYS::ReadAll(file, text) != 0) {
        return holder;
    }
    const std::size_t end = std::min(text.find('\n'), text.size());
    const auto read = std::from_chars(text.data(), text.data() + end, holder.pid);
    if (read.ec != std::errc() || holder.pid <= 0 || end == text.size()) {
        return {}; // not written yet
    }
    const std::string command = text.substr(end + 1, text.find('\n', end + 1) - end - 1);
    holder.command = Printable(command);
    return holder;
}

KSetupFailure AnotherRun(const std::string& serviceName, const KLockHolder& holder) {
    return {
        ExitCode::anotherRun,
        Text(
            "another run for %s goes on%s Run it again when that has ended, or let it wait with "
            "--wait SECONDS. Nothing was changed.",
            serviceName,
            holder.ToWords()
        )};
}

} // namespace

KText KLockHolder::ToWords() const {
    if (pid == 0) {
        return ".";
    }
    KSYS::KDescriptor process;
    const bool isKnown = KSYS::KnownProcessId() == ::getpid(); // else it is none of this namespace
    const bool lives = !isKnown || KSYS::OpenProcess(pid, process) != 0 || process.IsOpen();
    return lives ? Text(": process %s (%s).", pid, command)
                 : Text(
                       ": process %s (%s), which ended and left a process of its own behind.",
                       pid,
                       command
                   );
}

KRunLock::KRunLock(
    const std::string& serviceName,
    unsigned waitSeconds,
    const std::function<bool()>& shallStop,
    const KSYS::LockPlaces& places,
    const std::function<void(const KText&)>& tell
) {
    const std::string name = LockName(serviceName);
    const auto place = Open(places, KSYS::MissingPlace::IsMade);
    const Clock::time_point begin = Clock::now();
    const Clock::time_point end =
        begin + std::max<Clock::duration>(std::chrono::seconds(waitSeconds), always);
    bool isTold = !tell || waitSeconds == 0;
    while (!TryLock(file, *place, name)) {
        const KLockHolder holder = ReadHolder(file.Get());
        if (shallStop && shallStop()) {
            throw KSetupStop(
                Text("stopped on request while waiting for another run. Nothing was changed.")
            );
        }
        if (Clock::now() >= end || (waitSeconds == 0 && holder.pid != 0)) {
            throw AnotherRun(serviceName, holder);
        }
        if (!isTold && (holder.pid != 0 || Clock::now() >= begin + always)) {
            isTold = true;
            tell(Text("Waiting for another run for %s%s", serviceName, holder.ToWords()));
        }
        std::this_thread::sleep_for(betweenTries);
    }
    const std::string text =
        std::to_string(KSYS::KnownProcessId()) + "\n" + OwnCommandLine() + "\n";
    unsigned failed = KSYS::Truncate(file.Get(), 0);
    if (failed == 0) {
        failed = KSYS::WriteAll(file.Get(), text.data(), text.size());
    }
    if (failed != 0) {
        throw CannotLock(JoinPath(place->path, name), failed);
    }
}

KRunLock::~KRunLock() {
    // A text that stays would name the wrong holder for a moment, nothing worse.
    static_cast<void>(KSYS::Truncate(file.Get(), 0));
}

std::optional<KLockHolder>
KRunLock::FindHolder(const std::string& serviceName, const KSYS::LockPlaces& places) {
    const std::string name = LockName(serviceName);
    const auto place = Open(places, KSYS::MissingPlace::StaysMissing);
    KSYS::KDescriptor looking;
    const unsigned failed =
        place ? KSYS::OpenEntry({place->directory, name}, O_RDONLY, looking) : ENOENT;
    if (failed == ENOENT) {
        return std::nullopt;
    }
    const std::string path = JoinPath(place->path, name);
    if (failed != 0) {
        throw CannotLock(path, failed);
    }
    RefuseUnlessOurs(looking.Get(), path);
    const unsigned refused = KSYS::TryLockFile(looking.Get(), KSYS::LockKind::Shared);
    if (refused == 0) {
        return std::nullopt;
    }
    if (refused != EWOULDBLOCK) {
        throw CannotLock(path, refused);
    }
    const KLockHolder holder = ReadHolder(looking.Get());
    return holder.pid == KSYS::KnownProcessId() ? std::nullopt : std::optional(holder);
}

} // namespace KSETUP
