// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupStop.h>
#include <setup/files/WriteAll.h>
#include <setup/output/Words.h>
#include <setup/state/KPrivateDirectory.h>
#include <setup/state/KRunLock.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <charconv>
#include <chrono>
#include <fstream>
#include <iterator>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace KSETUP {

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds betweenTries{100};
/// Somebody who only looks (FindHolder) holds the lock for a moment: that must not refuse a run.
constexpr std::chrono::milliseconds always{300};
constexpr std::size_t commandBytes = 4096;

std::string LockPath(const std::string& serviceName, const std::string& directory) {
    if (serviceName.empty() ||
        serviceName.find_first_of(std::string("/\0", 2)) != std::string::npos) {
        throw KSetupFailure(
            ExitCode::malformedScript,
            "\"" + serviceName +
                "\" cannot be the name of a service: it has to be a plain file "
                "name. Mend \"serviceName\" in product.ini."
        );
    }
    return directory + "/ins++-" + serviceName + ".lock";
}

KSetupFailure CannotLock(const std::string& path, int errorNumber) {
    return SystemFailure(
        ExitCode::cannotWrite,
        "cannot lock",
        path,
        errorNumber,
        "Delete it when no run of ins-setup goes on, and see to it that the directory is there and "
        "can be written."
    );
}

/// The directory may be written by everybody (mode 1777), so anything may stand there.
void RefuseUnlessOurs(int file, const std::string& path) {
    struct stat status {};
    if (::fstat(file, &status) != 0) {
        throw CannotLock(path, errno);
    }
    if (!S_ISREG(status.st_mode) || status.st_uid != ::geteuid() || status.st_nlink > 1 ||
        (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        throw KSetupFailure(
            ExitCode::cannotWrite,
            path + " is no plain file of root's alone. Somebody else laid it there: look who, "
                   "delete it, and run it again."
        );
    }
}

bool StillStandsAt(int file, const std::string& path) {
    struct stat opened {};
    struct stat found {};
    return ::fstat(file, &opened) == 0 && ::lstat(path.c_str(), &found) == 0 &&
           opened.st_dev == found.st_dev && opened.st_ino == found.st_ino;
}

KFileHandle OpenLockFile(const std::string& path) {
    // Two steps: in a directory such as /run/lock, O_CREAT on a file of another user's fails with
    // a reason that tells nobody what is wrong (fs.protected_regular).
    constexpr int flags = O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;
    for (;;) {
        KFileHandle file(::open(path.c_str(), flags));
        if (!file.IsOpen() && errno == ENOENT) {
            file = KFileHandle(::open(path.c_str(), flags | O_CREAT | O_EXCL, S_IRUSR | S_IWUSR));
            if (!file.IsOpen() && errno == EEXIST) {
                continue; // made by another run meanwhile
            }
        }
        if (!file.IsOpen()) {
            throw CannotLock(path, errno);
        }
        RefuseUnlessOurs(file.Get(), path);
        return file;
    }
}

/// Takes the lock at once, or not. The file may be taken away and made anew by others.
bool TryLock(KFileHandle& file, const std::string& path) {
    for (;;) {
        file = OpenLockFile(path);
        if (::flock(file.Get(), LOCK_EX | LOCK_NB) != 0) {
            if (errno == EWOULDBLOCK) {
                return false;
            }
            if (errno != EINTR) {
                throw CannotLock(path, errno);
            }
        } else if (StillStandsAt(file.Get(), path)) {
            return true;
        }
    }
}

std::string OwnCommandLine() {
    std::ifstream stream("/proc/self/cmdline", std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(stream), {}};
    while (!text.empty() && text.back() == '\0') {
        text.pop_back();
    }
    std::replace(text.begin(), text.end(), '\0', ' ');
    return Shown(text.substr(0, commandBytes));
}

KLockHolder ReadHolder(int file) {
    std::array<char, commandBytes + 64> bytes{};
    const ssize_t count = ::pread(file, bytes.data(), bytes.size(), 0);
    const std::string text(bytes.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
    KLockHolder holder;
    const std::size_t end = std::min(text.find('\n'), text.size());
    const auto read = std::from_chars(text.data(), text.data() + end, holder.pid);
    if (read.ec != std::errc() || holder.pid <= 0 || end == text.size()) {
        return {}; // not written yet
    }
    const std::string command = text.substr(end + 1, text.find('\n', end + 1) - end - 1);
    holder.command = Shown(command);
    return holder;
}

KSetupFailure AnotherRun(const std::string& serviceName, const KLockHolder& holder) {
    return {
        ExitCode::anotherRun,
        "another run for " + serviceName + " goes on" + holder.ToWords() +
            " Run it again when that has ended, or let it wait with --wait SECONDS. Nothing was "
            "changed."};
}

} // namespace

std::string KLockHolder::ToWords() const {
    if (pid == 0) {
        return ".";
    }
    const bool lives = ::kill(pid, 0) == 0 || errno == EPERM;
    return ": process " + std::to_string(pid) + " (" + command + ")" +
           (lives ? "." : ", which ended and left a process of its own behind.");
}

KRunLock::KRunLock(
    const std::string& serviceName,
    unsigned waitSeconds,
    const std::function<bool()>& shallStop,
    const std::string& directory,
    const std::function<void(const std::string&)>& tell
) {
    const std::string path = LockPath(serviceName, directory);
    const Clock::time_point begin = Clock::now();
    const Clock::time_point end =
        begin + std::max<Clock::duration>(std::chrono::seconds(waitSeconds), always);
    bool isTold = !tell || waitSeconds == 0;
    while (!TryLock(file, path)) {
        const KLockHolder holder = ReadHolder(file.Get());
        if (shallStop && shallStop()) {
            throw KSetupStop(
                "stopped on request while waiting for another run. Nothing was changed."
            );
        }
        if (Clock::now() >= end || (waitSeconds == 0 && holder.pid != 0)) {
            throw AnotherRun(serviceName, holder);
        }
        if (!isTold && (holder.pid != 0 || Clock::now() >= begin + always)) {
            isTold = true;
            tell("Waiting for another run for " + serviceName + holder.ToWords());
        }
        std::this_thread::sleep_for(betweenTries);
    }
    const std::string text = std::to_string(::getpid()) + "\n" + OwnCommandLine() + "\n";
    if (::ftruncate(file.Get(), 0) != 0) {
        throw CannotLock(path, errno);
    }
    if (const int status = WriteAll(file.Get(), text); status != 0) {
        throw CannotLock(path, status);
    }
}

KRunLock::~KRunLock() {
    // A text that stays would name the wrong holder for a moment, nothing worse.
    static_cast<void>(::ftruncate(file.Get(), 0) == 0);
}

std::optional<KLockHolder>
KRunLock::FindHolder(const std::string& serviceName, const std::string& directory) {
    const std::string path = LockPath(serviceName, directory);
    const KFileHandle looking(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    if (!looking.IsOpen()) {
        if (errno == ENOENT) {
            return std::nullopt;
        }
        if (errno == EACCES) {
            throw KSetupFailure(ExitCode::notRoot, "only root can look at " + path + ".");
        }
        throw CannotLock(path, errno);
    }
    RefuseUnlessOurs(looking.Get(), path);
    if (::flock(looking.Get(), LOCK_SH | LOCK_NB) == 0) {
        return std::nullopt;
    }
    const KLockHolder holder = ReadHolder(looking.Get());
    return holder.pid == ::getpid() ? std::nullopt : std::optional(holder);
}

} // namespace KSETUP
