// SPDX-License-Identifier: MIT
#pragma once

/// \file
/// Files and directories by path. Links on the way are followed as KFileBase says. `flags` is
/// reserved and must be 0.
///
/// All statuses: 0, errno, or 36 for an invalid argument.

#include <sup++/Export.h>

/// Makes a directory with mode 0755, whatever the umask. `withParents` 1 makes missing parents too.
/// A directory that is there already is success.
[[nodiscard]] SUP_EXPORT unsigned
SvcCreateDirectory(unsigned flags, const char* path, unsigned withParents) noexcept;

/// Removes an empty directory; `reserved` must be 0. It never removes what a directory holds.
[[nodiscard]] SUP_EXPORT unsigned
SvcDeleteDirectory(unsigned flags, const char* path, unsigned reserved) noexcept;

/// Unlinks a file or a link, never a directory. One that is gone is success, so that a removal can
/// be repeated.
[[nodiscard]] SUP_EXPORT unsigned SvcDeleteFile(unsigned flags, const char* path) noexcept;

/// From here until SvcEndWriteTracking the library remembers which file systems its calls write to.
/// It keeps one open directory for each, so that a failure of the disk is not missed.
///
/// Returns  0, or EBUSY when tracking is on
[[nodiscard]] SUP_EXPORT unsigned SvcBeginWriteTracking() noexcept;

/// Brings everything written since SvcBeginWriteTracking to the disk, one syncfs(2) for each file
/// system. Without tracking it does nothing.
///
/// Returns  0, or the first errno that the disk or the tracking met
[[nodiscard]] SUP_EXPORT unsigned SvcFlushWrites() noexcept;

/// What was written to the file system of an open file or directory since that was opened counts as
/// written since SvcBeginWriteTracking: a failure of the disk before that is told too.
///
/// Returns  0 or errno
[[nodiscard]] SUP_EXPORT unsigned SvcTrackWritesSince(int file) noexcept;

/// Ends tracking and lets go of the directories.
SUP_EXPORT unsigned SvcEndWriteTracking() noexcept;

/// What one of the library's calls did to a directory entry.
enum SvcWrite : unsigned {
    /// A file was made, or took the place of a former one: copied files, profiles, unit files. A copy
    /// is told of when its empty file is made; content and mode follow.
    SvcWroteFile = 1,
    /// A directory was made; one that was there already is not told of.
    SvcMadeDirectory = 2,
    /// A symbolic link was made, or took the place of a former one.
    SvcLaidLink = 3,
    /// A file or a link was deleted, also the target of a copy that was cancelled.
    SvcDeletedFile = 4,
    /// An empty directory was deleted; what it held is told of before.
    SvcDeletedDirectory = 5,
    /// The permission bits are others than before; those of a new file too.
    SvcChangedMode = 6
};

/// Called with the context it was registered with, one of SvcWrite, and the path.
///
/// Lifetime `path` is for the time of the call
using SvcWriteListener = void (*)(void* context, unsigned what, const char* path) noexcept;

/// Lets a program see what this library's calls do to the file system, so that it need not guess
/// from what was asked for. One listener at a time, the last one set; null ends it.
///
/// It is called for each entry, right after the change, in the order of the changes of a thread:
/// missing parents before what is made in them. Nothing is told of what failed, was found as it was
/// to be, or is no part of a product: the setup log, traces, the output of shell commands. A call
/// that fails halfway tells of what it did until then. What other programs do, also those that a
/// process rule runs, is not seen; links that systemd lays and deletes for a unit are.
///
/// `path` is the one that the call was given: relative to the current directory where that one was,
/// with links in it unresolved (where the last name is a link that was followed, the file behind it
/// was changed), and without separators at the end of a directory's.
///
/// Returns  0. When it returns, the former listener is not running and will not run again (save
///          where it is called from within a listener)
/// Thread   any. The listener runs on the thread that made the change, on several at once where
///          several make changes. No lock of this library's is held, so it may call anything here;
///          what it changes is told too
[[nodiscard]] SUP_EXPORT unsigned
SvcSetWriteListener(SvcWriteListener listener, void* context) noexcept;
