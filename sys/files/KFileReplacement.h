// SPDX-License-Identifier: MIT
#pragma once

#include <ctime>
#include <string>

#include <sys/files/FileCalls.h>
#include <sys/files/KDirectoryLock.h>

/// How the file of a profile is read, locked and replaced. All return 0 or errno and may throw
/// std::bad_alloc.
namespace KSYS {

/// Which file it was, and in which state: another one means that somebody changed it.
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = -1;
    timespec changed{};

    static FileIdentity Of(const struct stat& status) noexcept;
    friend bool operator==(const FileIdentity& left, const FileIdentity& right) noexcept;
};

/// Reads a regular file and tells its identity.
[[nodiscard]] unsigned ReadFile(const char* path, std::string& bytes, FileIdentity& identity);

/// Changes of one file, one process at a time: held from reading it to writing it back.
class KFileReplacement {
  public:
    /// `keptIn` is where the locks are.
    explicit KFileReplacement(LockPlaces keptIn = LockPlaces::OfThisUser());

    /// Finds the file (a trusted link is followed) and locks the user's other processes out of its
    /// directory; EWOULDBLOCK and ENOLCK as KDirectoryLock has them.
    [[nodiscard]] unsigned Take(const char* path);

    /// Whether the file is still the one; a missing one is that of an identity that never was.
    [[nodiscard]] bool IsStill(const FileIdentity& identity) const noexcept;

    /// Reads the file that was found, whatever its path leads to by now.
    [[nodiscard]] unsigned Read(std::string& bytes, FileIdentity& identity) const;

    /// Puts `bytes` in the file's place in one step: a new file with the owner and mode of the old
    /// one, brought to the disk, renamed; `mode` is for a file that was missing. In a directory in
    /// which others may lay files the new one has no owner of theirs, and what both modes allow.
    /// Where a directory does not let files be renamed in it, the file itself is written over.
    ///
    /// `replaced` tells whether the file holds the new text; it may where the disk fails afterwards
    [[nodiscard]] unsigned
    Write(const std::string& bytes, unsigned mode, FileIdentity& identity, bool& replaced);

  private:
    unsigned WriteBeside(const std::string& bytes, const struct stat* former, unsigned mode);
    unsigned WriteOver(const std::string& bytes);

    Place place;
    KDescriptor directory; // unlike place.directory it can be flushed
    KDirectoryLock lock;   // last: it may be that of the directory
};

} // namespace KSYS
