// SPDX-License-Identifier: MIT
#include <sup++/KErrorCode.h>
#include <sup++/SvcFile.h>

#include <cerrno>
#include <exception>

#include <sys/files/FileCalls.h>
#include <sys/files/WriteReport.h>
#include <sys/files/WriteTracking.h>

namespace {

// One number each, here and in the layer below, which knows nothing of this one.
static_assert(SvcWroteFile == static_cast<unsigned>(KSYS::Written::File));
static_assert(SvcMadeDirectory == static_cast<unsigned>(KSYS::Written::Directory));
static_assert(SvcLaidLink == static_cast<unsigned>(KSYS::Written::Link));
static_assert(SvcDeletedFile == static_cast<unsigned>(KSYS::Written::FileDeleted));
static_assert(SvcDeletedDirectory == static_cast<unsigned>(KSYS::Written::DirectoryDeleted));
static_assert(SvcChangedMode == static_cast<unsigned>(KSYS::Written::Mode));

constexpr unsigned directoryMode = 0755;

/// The walk to a path may need memory; a status is all that these calls can answer.
template <class Call>
unsigned WithStatus(const char* path, bool argumentsFit, Call call) noexcept {
    if (path == nullptr || *path == '\0' || !argumentsFit) {
        return KSUP::ErrorCode::invalidArgument;
    }
    try {
        return call();
    } catch (const std::exception&) {
        return ENOMEM;
    }
}

} // namespace

unsigned SvcCreateDirectory(unsigned flags, const char* path, unsigned withParents) noexcept {
    return WithStatus(path, flags == 0 && withParents <= 1, [&] {
        return KSYS::MakeDirectory(path, directoryMode, withParents == 1);
    });
}

unsigned SvcDeleteDirectory(unsigned flags, const char* path, unsigned reserved) noexcept {
    return WithStatus(path, flags == 0 && reserved == 0, [&] {
        return KSYS::RemoveDirectory(path);
    });
}

unsigned SvcDeleteFile(unsigned flags, const char* path) noexcept {
    return WithStatus(path, flags == 0, [&] {
        const unsigned status = KSYS::Unlink(path);
        return status == ENOENT ? 0U : status;
    });
}

unsigned SvcBeginWriteTracking() noexcept {
    return KSYS::BeginWriteTracking();
}

unsigned SvcFlushWrites() noexcept {
    return KSYS::FlushWrites();
}

unsigned SvcTrackWritesSince(int file) noexcept {
    return KSYS::TrackWritesSince(file);
}

unsigned SvcEndWriteTracking() noexcept {
    KSYS::EndWriteTracking();
    return 0;
}

unsigned SvcSetWriteListener(SvcWriteListener listener, void* context) noexcept {
    KSYS::SetWriteListener(listener, context);
    return 0;
}
