// SPDX-License-Identifier: MIT
#pragma once

/// \file
/// Which file systems were written to since tracking began. The directory of a file system is
/// opened when the first write to it is noted and kept, because syncfs(2) tells only of failures
/// since then.

namespace KSYS {

[[nodiscard]] unsigned BeginWriteTracking() noexcept;
[[nodiscard]] unsigned FlushWrites() noexcept;
void EndWriteTracking() noexcept;

/// Takes an open file or directory for that of its file system, in place of one that was opened later:
/// what the disk failed to write since it was opened is told as well (syncfs(2)). Without tracking it
/// does nothing.
[[nodiscard]] unsigned TrackWritesSince(int file) noexcept;

/// Notes a write to, or in the directory of, `path`, before data goes there. Costs one comparison
/// while the directory stays the same, and nothing without tracking. A failure is kept for
/// FlushWrites.
void NoteWrite(const char* path) noexcept;

} // namespace KSYS
