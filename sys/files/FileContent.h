// SPDX-License-Identifier: MIT
#pragma once

/// \file
/// System calls on open files: their bytes, attributes and way to the disk. All return 0 or errno
/// and repeat interrupted calls; those on extended attributes may throw std::bad_alloc.

#include <cstddef>
#include <ctime>

#include <sys/files/DirectoryEntry.h>
#include <sys/types.h>

namespace KSYS {

/// Reads what comes next, at most `room` bytes; 0 bytes at the end.
[[nodiscard]] unsigned
ReadSome(int file, char* bytes, std::size_t room, std::size_t& byteCount) noexcept;
/// Reads at an offset, wherever the file stands, at most `room` bytes; 0 bytes at the end.
[[nodiscard]] unsigned
ReadAt(int file, char* bytes, std::size_t room, off_t offset, std::size_t& byteCount) noexcept;
/// Writes at an offset, wherever the file stands; short ones are not continued.
[[nodiscard]] unsigned
WriteAt(int file, const char* bytes, std::size_t byteCount, off_t offset) noexcept;
[[nodiscard]] unsigned Truncate(int file, off_t size) noexcept;

/// Has the kernel read the first bytes of an open file into memory, without waiting for them. Where
/// some of them are there already, it does nothing and `wasThere` says so.
[[nodiscard]] unsigned ReadAhead(int file, std::size_t byteCount, bool& wasThere) noexcept;

/// Has the kernel begin to write to the disk what it has in memory of an open file, without waiting for the
/// disk: a flush finds less to do then. It is no promise, so nothing is told of a file system that
/// cannot (sync_file_range(2)).
void BeginWriting(int file) noexcept;

enum class CopyWay { Any, ReflinkOnly };

/// Copies an open file's bytes into an empty one: by a reflink, which shares them until one is
/// written to, or else by reading them. With ReflinkOnly the errno of a file system that has none.
[[nodiscard]] unsigned CopyContent(int source, int target, CopyWay way) noexcept;

/// Gives the target the source's extended attributes (access lists, capabilities), as far as the
/// target's file system has such. A change of owner afterwards would take capabilities away.
[[nodiscard]] unsigned CopyExtendedAttributes(int source, int target);

[[nodiscard]] unsigned SetOwner(int file, uid_t owner, gid_t group) noexcept;
/// The bits 07777, whatever the umask.
[[nodiscard]] unsigned SetMode(int file, unsigned mode) noexcept;
/// The time of the last modification.
[[nodiscard]] unsigned SetTime(int file, const timespec& changed) noexcept;
/// Owner and time of a symbolic link that this process's user has just made; EEXIST for anything
/// else, which others may have put in its place. Kernels before 5.8 leave the time.
[[nodiscard]] unsigned
SetOwnerAndTime(const Entry& link, uid_t owner, gid_t group, const timespec& changed) noexcept;

/// Brings a file, or the entries of a directory, to the disk.
[[nodiscard]] unsigned Flush(int file) noexcept;
/// Brings to the disk whatever was written on the file system of an open file.
[[nodiscard]] unsigned FlushFileSystem(int file) noexcept;

/// Whether a descriptor of this number is open.
bool IsOpenDescriptor(int number) noexcept;

} // namespace KSYS
