// SPDX-License-Identifier: MIT
#pragma once

/// \file
/// What the system tells about files and file systems. All return 0 or errno where they can fail.

#include <cstdint>

#include <sys/files/DirectoryEntry.h>
#include <sys/stat.h>

namespace KSYS {

bool IsSameFile(const struct stat& left, const struct stat& right) noexcept;

/// Whether it belongs to this process's user.
bool IsOwn(const struct stat& status) noexcept;
/// Whether it belongs to this process's user, and nobody else may write to it.
bool IsOwnAlone(const struct stat& status) noexcept;

/// Whether an open directory belongs to root or to this process's user, and nobody else may write
/// there: what stands in it is theirs, and so its owner is one that they gave it.
///
/// Returns  0 or errno; `isClosed` is false then
[[nodiscard]] unsigned ReadClosedToOthers(int directory, bool& isClosed) noexcept;

/// An attribute that chattr(1) sets, by which not even root may change what has it.
enum class ProtectingAttribute : std::uint8_t {
    None,      ///< also where that cannot be told
    Immutable, ///< nothing: an entry of a directory neither comes nor goes
    AppendOnly ///< a file grows, and entries come to a directory; nothing goes or is replaced
};

/// What stands at a path, and how it is protected, by one system call.
struct EntryStatus {
    unsigned mode = 0; ///< as st_mode
    std::uint64_t bytes = 0;
    uid_t owner = 0;
    ProtectingAttribute attribute = ProtectingAttribute::None;
    std::int64_t modifiedSeconds = 0; ///< since 1970
    unsigned modifiedNanoseconds = 0; ///< of that second
};
[[nodiscard]] unsigned
ReadEntryStatus(const Entry& entry, LastLink last, EntryStatus& status) noexcept;

/// When what stands there was made, in nanoseconds since 1970, as statx(2) knows it; a link is not
/// followed. 0 where that cannot be told.
std::uint64_t ReadBirthTime(const Entry& entry) noexcept;
/// The present time by the clock that file systems use for that.
std::uint64_t ReadFileClock() noexcept;

/// Room on a file system. What is free counts for root.
struct FileSystemStatus {
    bool isReadOnly = false;
    bool runsNoPrograms = false;  ///< mounted noexec
    std::uint64_t blockBytes = 1; ///< what a file takes is whole blocks of this size
    std::uint64_t bytesFree = 0;
    std::uint64_t filesFree = 0;
    bool hasFileLimit = true;
};

/// Of the file system that holds what stands at a path; links are followed.
[[nodiscard]] unsigned ReadFileSystem(const char* path, FileSystemStatus& system) noexcept;

} // namespace KSYS
