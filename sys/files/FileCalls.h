// SPDX-License-Identifier: MIT
#pragma once

/// \file
/// System calls on files, thin: interrupted ones are repeated, short ones continued, descriptors
/// close on exec. All return 0 or errno; those that walk a path may throw std::bad_alloc.

#include <cstddef>
#include <string>

#include <sys/files/KDescriptor.h>
#include <sys/files/PathWalk.h>
#include <sys/stat.h>

namespace KSYS {

/// Opens a regular file. EISDIR for a directory, EINVAL for anything else.
[[nodiscard]] unsigned
OpenRegular(const char* path, KDescriptor& file, struct stat& status) noexcept;

/// The same in an open directory, by a name.
[[nodiscard]] unsigned
OpenRegularAt(int directory, const char* name, KDescriptor& file, struct stat& status) noexcept;

/// Opens a directory to find files in it; links on its path are followed.
[[nodiscard]] unsigned OpenDirectory(const char* path, KDescriptor& directory) noexcept;
/// Opens the directory that holds `path`, to make files in it (see SysPath.h).
[[nodiscard]] unsigned OpenPlace(const char* path, KDescriptor& directory) noexcept;

/// Makes a file anew, unlinking a regular one that stands there. Its owner is kept where nobody but
/// root and this process's user may lay files. EISDIR and EINVAL as above.
[[nodiscard]] unsigned CreateAnew(const char* path, unsigned mode, KDescriptor& file);

/// The same by its name in an open directory; ELOOP for a link that stands there. `path` is where
/// that is.
[[nodiscard]] unsigned CreateAnewAt(
    int directory, const char* name, const char* path, unsigned mode, KDescriptor& file
) noexcept;

/// Opens a regular file at its end, making it with exactly `mode` where it is missing; a link at
/// the path itself is never followed.
[[nodiscard]] unsigned OpenForAppend(const char* path, unsigned mode, KDescriptor& file);

/// Appends `length` bytes of `from` to `to`. `byKernel` is cleared once copy_file_range(2) refuses.
/// ENODATA when the source ends before that.
[[nodiscard]] unsigned
CopyRange(int from, unsigned long long offset, int to, std::size_t length, bool& byKernel) noexcept;

/// Whether less of a file is on the disk than it is long: it may have holes, which read as zeros.
bool MayHaveHoles(const struct stat& status) noexcept;
/// As CopyRange, with holes for the holes of `from`, whose position it moves; `to` stands at its end.
[[nodiscard]] unsigned CopyRangeWithHoles(
    int from, unsigned long long offset, int to, std::size_t length, bool& byKernel
) noexcept;

[[nodiscard]] unsigned WriteAll(int file, const char* bytes, std::size_t byteCount) noexcept;
[[nodiscard]] unsigned ReadAll(int file, std::string& bytes);
/// Closes and tells what the disk reports.
[[nodiscard]] unsigned CloseReporting(KDescriptor& file) noexcept;

/// Unlinks whatever stands at the path save a directory (EISDIR).
[[nodiscard]] unsigned Unlink(const char* path);
[[nodiscard]] unsigned MakeDirectory(const char* path, unsigned mode, bool withParents);
[[nodiscard]] unsigned RemoveDirectory(const char* path);
/// Makes a symbolic link, replacing one that stands there in one step; EEXIST for anything else.
[[nodiscard]] unsigned MakeLink(const char* target, const char* path);
[[nodiscard]] unsigned ChangeMode(const char* path, unsigned mode);

} // namespace KSYS
