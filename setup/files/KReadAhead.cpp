// SPDX-License-Identifier: MIT
#include <setup/files/KReadAhead.h>

#include <algorithm>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/files/DirectoryEntry.h>
#include <sys/files/FileContent.h>
#include <sys/processes/BlockedSignals.h>

namespace KSETUP {

namespace {

// How far it goes ahead.
constexpr std::size_t mostFiles = 512;
constexpr std::uint64_t mostBytes = std::uint64_t{64} << 20U;
/// It sleeps until this part of the way is free again: to be woken for each file would cost the copies
/// more than a file that is in memory takes.
constexpr std::size_t freeFiles = mostFiles / 8;
constexpr std::uint64_t freeBytes = mostBytes / 8;
/// Of one file: the kernel itself reads on in a long one.
constexpr std::uint64_t mostOfOne = std::uint64_t{8} << 20U;
/// So many in memory, one behind the other: so are the others.
constexpr std::size_t knownFiles = 64;

} // namespace

KReadAhead::KReadAhead(std::vector<const std::string*> paths) : files(std::move(paths)) {
    if (files.size() < fewestFiles) {
        return;
    }
    const KSYS::BlockedSignals
        blocked; // for the thread that inherits them: they are the main one's
    try {
        thread = std::thread([this] { Run(); });
    } catch (const std::system_error&) {
        // the copies read for themselves
    }
}

KReadAhead::~KReadAhead() {
    {
        const KSYS::KScopedLock hold(guard);
        isOver = true;
        changed.notify_all();
    }
    Wait();
}

void KReadAhead::Wait() {
    if (thread.joinable()) {
        thread.join();
    }
}

void KReadAhead::NoteCopied() {
    const KSYS::KScopedLock hold(guard);
    if (isOver || !thread.joinable()) {
        return;
    }
    ++copied;
    if (!ahead.empty()) {
        bytesAhead -= ahead.front();
        ahead.pop_front();
    }
    if (isAsleep && HasRoom(freeFiles, freeBytes)) {
        changed.notify_all();
    }
}

bool KReadAhead::HasRoom(std::size_t ofFiles, std::uint64_t ofBytes) const {
    return ahead.size() + ofFiles <= mostFiles && bytesAhead + ofBytes <= mostBytes;
}

/// Whether some of the file was in memory.
bool KReadAhead::Read(const std::string& path, std::uint64_t& bytes) const {
    KSYS::KDescriptor file;
    struct stat status {};
    bool wasThere = true; // of one that cannot be read: that is not waited for
    if (KSYS::OpenRegularEntry(path, O_RDONLY, file, status) == 0 && status.st_size > 0) {
        bytes = std::min(static_cast<std::uint64_t>(status.st_size), mostOfOne);
        static_cast<void>(KSYS::ReadAhead(file.Get(), static_cast<std::size_t>(bytes), wasThere));
    }
    return wasThere;
}

void KReadAhead::Run() {
    std::size_t known = 0;
    KSYS::KScopedLock hold(guard);
    for (std::size_t next = 0; next < files.size() && known < knownFiles; ++next) {
        if (!HasRoom(1, 1)) {
            isAsleep = true;
            changed.wait(hold.GetStandard(), [this]() SUP_REQUIRES(guard) {
                return isOver || HasRoom(freeFiles, freeBytes);
            });
            isAsleep = false;
        }
        if (isOver) {
            return;
        }
        if (next < copied) { // it comes too late for this one
            continue;
        }
        hold.Unlock();
        std::uint64_t bytes = 0;
        known = Read(*files[next], bytes) ? known + 1 : 0;
        hold.Lock();
        if (next >= copied) {
            ahead.push_back(bytes);
            bytesAhead += bytes;
        }
    }
    isOver = true;
}

} // namespace KSETUP
