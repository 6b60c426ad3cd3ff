// SPDX-License-Identifier: MIT
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/KAnnotatedMutex.h>
#include <sys/KPerThread.h>
#include <sys/NeverDestroyed.h>
#include <sys/Retry.h>
#include <sys/ThreadSafety.h>
#include <sys/files/KDescriptor.h>
#include <sys/files/WriteTracking.h>
#include <sys/stat.h>

namespace KSYS {

namespace {

struct FileSystem {
    dev_t device;
    KDescriptor directory;
};

struct Tracking {
    KAnnotatedMutex<std::mutex> guard;
    std::atomic<unsigned> session{0}; // 0 is off; another number for each tracking
    unsigned sessions SYS_GUARDED_BY(guard) = 0;
    std::vector<FileSystem> written SYS_GUARDED_BY(guard);
    unsigned firstError SYS_GUARDED_BY(guard) = 0;
};

Tracking& TheTracking() noexcept {
    static NeverDestroyed<Tracking> tracking;
    return tracking.Get();
}

/// The directory this thread wrote to last, so that a row of files costs one look.
struct LastNoted {
    unsigned session = 0;
    std::string directory;
};

LastNoted& TheLastNoted() {
    static NeverDestroyed<KPerThread<LastNoted>> lastNoted;
    return lastNoted.Get().Get();
}

std::string_view DirectoryOf(const char* path) noexcept {
    const char* slash = std::strrchr(path, '/');
    return slash == nullptr ? std::string_view(".")
                            : std::string_view(path, static_cast<std::size_t>(slash - path) + 1);
}

FileSystem* Find(Tracking& tracking, dev_t device) SYS_REQUIRES(tracking.guard) {
    const auto found =
        std::find_if(tracking.written.begin(), tracking.written.end(), [&](const FileSystem& one) {
            return one.device == device;
        });
    return found == tracking.written.end() ? nullptr : &*found;
}

void Note(Tracking& tracking, const std::string& directory) SYS_REQUIRES(tracking.guard) {
    KDescriptor open(Retry([&] {
        return ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    }));
    struct stat status {};
    if (!open.IsOpen() || ::fstat(open.Get(), &status) != 0) {
        // A directory that is gone already holds nothing to bring to the disk.
        if (errno != ENOENT && tracking.firstError == 0) {
            tracking.firstError = static_cast<unsigned>(errno);
        }
        return;
    }
    if (Find(tracking, status.st_dev) == nullptr) {
        tracking.written.push_back({status.st_dev, std::move(open)});
    }
}

} // namespace

unsigned BeginWriteTracking() noexcept {
    Tracking& tracking = TheTracking();
    const KScopedLock hold(tracking.guard);
    if (tracking.session.load(std::memory_order_relaxed) != 0) {
        return EBUSY;
    }
    tracking.sessions = tracking.sessions + 1 == 0 ? 1 : tracking.sessions + 1;
    tracking.session.store(tracking.sessions, std::memory_order_release);
    return 0;
}

unsigned FlushWrites() noexcept {
    Tracking& tracking = TheTracking();
    const KScopedLock hold(tracking.guard);
    unsigned result = std::exchange(tracking.firstError, 0);
    for (const FileSystem& one : tracking.written) {
        if (Retry([&] { return ::syncfs(one.directory.Get()); }) != 0 && result == 0) {
            result = static_cast<unsigned>(errno);
        }
    }
    return result;
}

void EndWriteTracking() noexcept {
    Tracking& tracking = TheTracking();
    const KScopedLock hold(tracking.guard);
    tracking.session.store(0, std::memory_order_release);
    tracking.written.clear();
    tracking.firstError = 0;
}

unsigned TrackWritesSince(int file) noexcept {
    Tracking& tracking = TheTracking();
    const KScopedLock hold(tracking.guard);
    if (tracking.session.load(std::memory_order_relaxed) == 0) {
        return 0;
    }
    KDescriptor same(Retry([&] { return ::fcntl(file, F_DUPFD_CLOEXEC, 0); }));
    struct stat status {};
    if (!same.IsOpen() || ::fstat(same.Get(), &status) != 0) {
        return static_cast<unsigned>(errno);
    }
    try {
        FileSystem* const known = Find(tracking, status.st_dev);
        FileSystem& system = known != nullptr
                                 ? *known
                                 : tracking.written.emplace_back(FileSystem{status.st_dev, {}});
        system.directory = std::move(same);
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
    return 0;
}

void NoteWrite(const char* path) noexcept {
    Tracking& tracking = TheTracking();
    const unsigned session = tracking.session.load(std::memory_order_acquire);
    if (session == 0) {
        return;
    }
    try {
        const std::string_view directory = DirectoryOf(path);
        LastNoted& last = TheLastNoted();
        if (last.session == session && last.directory == directory) {
            return;
        }
        last.session = 0; // until it is noted
        last.directory.assign(directory);
        const KScopedLock hold(tracking.guard);
        Note(tracking, last.directory);
        last.session = session;
    } catch (...) {
        const KScopedLock hold(tracking.guard);
        tracking.firstError = ENOMEM;
    }
}

} // namespace KSYS
