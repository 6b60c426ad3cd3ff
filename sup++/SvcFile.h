// SPDX-License-Identifier: MIT
#pragma once

/// \file
/// Files and directories by path. Links on the way are followed as KFileBase says. `flags` is
/// reserved and must be 0.
///
/// All statuses: 0, errno, or 36 for an argument that cannot be.

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

/// Ends tracking and lets go of the directories.
SUP_EXPORT unsigned SvcEndWriteTracking() noexcept;
