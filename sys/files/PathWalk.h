// SPDX-License-Identifier: MIT
#pragma once

/// \file
/// Finding a place in the file system by descriptor. As root one must not be led astray by a
/// symbolic link that another user laid, neither one that is there nor one that appears between a
/// check and an open. So a link is followed only if it is root's, and out of a directory that is root's
/// and that nobody else may write; any other ends the walk with ELOOP.

#include <string>
#include <string_view>

#include <sys/files/KDescriptor.h>

namespace KSYS {

/// A name in an open directory (O_PATH). What stands there may be anything, or nothing.
struct Place {
    KDescriptor directory;
    std::string name;
};

enum class LastLink { Keep, Follow };

/// Walks to the directory that holds the last component of `path`; with Follow also on from a
/// trusted link that stands there. A path that ends in a separator is that of a directory.
///
/// Returns  0 or errno
/// Throws   std::bad_alloc
[[nodiscard]] unsigned FindPlace(const char* path, LastLink last, Place& place);

/// Whether the system itself finds too many links on the way of a path. Where it does not, an ELOOP
/// was a refusal of a link (FindPlace, or a call that does not follow the last one).
[[nodiscard]] bool IsLoop(const char* path) noexcept;

/// Opens `path` with openat2(2) in one step if no link stands on its way.
///
/// Returns  0; ELOOP when there is a link or the kernel cannot say: use FindPlace; else errno
[[nodiscard]] unsigned
OpenWithoutLinks(const char* path, int flags, unsigned mode, KDescriptor& opened) noexcept;

/// A name for a file that is about to be renamed, which nobody can foretell. Not derived from the
/// final name, which may be as long as a name can be.
std::string TemporaryName();
/// By which the temporary names of this process are known, also when it is gone: never 0.
std::uint32_t TemporaryKey() noexcept;
/// Whether a name is one that TemporaryName made in a process with this key.
bool IsTemporaryName(std::string_view name, std::uint32_t key) noexcept;
/// The same of any process.
bool IsTemporaryName(std::string_view name) noexcept;

} // namespace KSYS
