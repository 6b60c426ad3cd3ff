// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <ctime>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <sys/files/DirectoryEntry.h>
#include <sys/types.h>

namespace KSETUP {

/// What stood at a path at one time.
struct KBackupEntry {
    enum class Kind { Nothing, File, Directory, Link };
    Kind kind = Kind::Nothing;
    unsigned mode = 0; ///< the bits 07777
    uid_t owner = 0;
    gid_t group = 0;
    timespec changed{}; ///< the time of the last modification
    /// Its inode and the time of that one's last change, which nobody can set: the same ones later
    /// are those of an entry that nobody touched.
    std::uint64_t inode = 0;
    timespec statusChanged{};
    std::uint64_t size = 0; ///< of files, in bytes
    std::string digest;     ///< of files, SHA-256 in hexadecimal
    std::string target;     ///< of links
    std::string stored;     ///< the name of the kept file, in the backup's directory

    /// The same kind, content and target, whatever the rest is.
    bool HasContentOf(const KBackupEntry& other) const noexcept;
    /// Not touched between the two looks. Needs no digest.
    bool IsUntouched(const KBackupEntry& before) const noexcept;
};

/// By path.
using KBackupEntries = std::map<std::string, KBackupEntry>;

/// A service that a run may start or stop, as it was before.
struct KServiceBefore {
    std::string name;
    std::optional<bool> ran;  ///< nothing where systemd did not run
    bool isInstalled = false; ///< the run may install or remove it, and so enable or disable it
};

/// The list of what a backup holds, as its file "index" has it, a JSON object a line:
///
///     {"format":"ins++ backup","formatVersion":2,"run":"20261122T050912.123456789Z-4711"}
///     {"changed":…,"kind":"file","mode":420,"path":"/opt/dps/x","sha256":"9f86…","stored":"3",…}
///     {"installed":1,"ran":1,"service":"dps"}
///     {"entries":1}
///
/// The last line is there so that half an index is noticed.
struct KBackupIndex {
    std::string run;          ///< that may change what is kept (RunId.h)
    bool hasCommands = false; ///< it runs commands, which may do what nobody can undo
    KBackupEntries entries;
    std::vector<KServiceBefore> services;
};

/// Its text, some lines at a time.
///
/// Lifetime   borrows it
KSYS::PieceSource ToPieces(const KBackupIndex& index);
/// Throws   std::invalid_argument when it is no complete index
KBackupIndex ToBackupIndex(const std::string& text);

} // namespace KSETUP
