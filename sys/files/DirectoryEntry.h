// SPDX-License-Identifier: MIT
#pragma once

/// \file
/// System calls on one entry of a directory, thin: interrupted ones are repeated, descriptors close
/// on exec, a link that stands there is never followed unless the call says so. All return 0 or
/// errno; those that fill a text or a list may throw std::bad_alloc.

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <sys/files/PathWalk.h>
#include <sys/stat.h>

namespace KSYS {

/// What a call is about: a path, or a name in an open directory, which trusts nothing on the way.
///
/// Lifetime  borrows the directory and the text; meant as an argument
class Entry {
  public:
    Entry(const char* path) noexcept : name(path) {}                // NOLINT: a path is an entry
    Entry(const std::string& path) noexcept : name(path.c_str()) {} // NOLINT: the same
    Entry(const Place& place) noexcept : Entry(place.directory, place.name) {} // NOLINT: the same
    Entry(int itsDirectory, const char* itsName) noexcept
        : directory(itsDirectory),
          name(itsName) {}
    Entry(const KDescriptor& itsDirectory, const std::string& itsName) noexcept
        : Entry(itsDirectory.Get(), itsName.c_str()) {}

    /// An open directory, or AT_FDCWD.
    int GetDirectory() const noexcept { return directory; }
    const char* GetName() const noexcept { return name; }

  private:
    int directory = AT_FDCWD;
    const char* name;
};

/// What stands there. With Follow, what a link leads to.
[[nodiscard]] unsigned ReadStatus(const Entry& entry, LastLink last, struct stat& status) noexcept;
/// Of an open file.
[[nodiscard]] unsigned ReadStatus(int file, struct stat& status) noexcept;

/// Where a link leads, as it is written. EINVAL for what is no link.
[[nodiscard]] unsigned ReadLink(const Entry& link, std::string& target);

/// Opens what stands there, without waiting for a writer or becoming its terminal; ELOOP for a link.
/// `flags` as open(2), without O_CREAT.
[[nodiscard]] unsigned OpenEntry(const Entry& entry, int flags, KDescriptor& opened) noexcept;
/// The same of a regular file. EISDIR for a directory, EINVAL for anything else.
[[nodiscard]] unsigned
OpenRegularEntry(const Entry& entry, int flags, KDescriptor& file, struct stat& status) noexcept;
/// Opens a directory so that it can be listed and flushed. ENOTDIR or ELOOP for anything else.
[[nodiscard]] unsigned OpenDirectoryEntry(const Entry& entry, KDescriptor& directory) noexcept;

/// Makes a file, which nobody else may read, and opens it for writing; `flags` are added, as O_RDWR.
/// EEXIST when something stands there.
[[nodiscard]] unsigned
MakeFile(const Entry& entry, KDescriptor& file, int flags = O_WRONLY) noexcept;
/// Makes a directory; the umask counts.
[[nodiscard]] unsigned MakeDirectoryEntry(const Entry& entry, unsigned mode) noexcept;
[[nodiscard]] unsigned MakeLinkEntry(const char* target, const Entry& entry) noexcept;
/// Gives what stands there a second name, on the same file system.
[[nodiscard]] unsigned MakeHardLink(const Entry& former, const Entry& added) noexcept;

[[nodiscard]] unsigned UnlinkEntry(const Entry& entry) noexcept;
[[nodiscard]] unsigned RemoveDirectoryEntry(const Entry& entry) noexcept;
/// Renames within a directory, over what stands there.
[[nodiscard]] unsigned RenameEntry(int directory, const char* from, const char* to) noexcept;
/// Exchanges two entries in one step. EINVAL or ENOSYS where the file system cannot.
[[nodiscard]] unsigned ExchangeEntries(int directory, const char* one, const char* other) noexcept;

/// Puts a file in the place of what stands at `name`, in one step: written under the name
/// `temporary`, on the disk before it is renamed, with exactly `mode`. A file that stands at
/// `temporary` goes. The directory is not flushed.
[[nodiscard]] unsigned ReplaceEntry(
    int directory,
    const std::string& temporary,
    const std::string& name,
    std::string_view bytes,
    unsigned mode
);

/// Gives a file's bytes piece by piece, an empty one at their end. A piece is valid until the next.
using PieceSource = std::function<std::string_view()>;

/// The same with bytes that need not be in memory all at once. What `next` throws goes through, and
/// nothing is replaced.
[[nodiscard]] unsigned ReplaceEntry(
    int directory,
    const std::string& temporary,
    const std::string& name,
    const PieceSource& next,
    unsigned mode
);

/// Appends the names in a directory, in no order, without "." and "..".
[[nodiscard]] unsigned ListEntries(const Entry& directory, std::vector<std::string>& names);

} // namespace KSYS
