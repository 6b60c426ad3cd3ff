// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <ctime>
#include <map>
#include <string>

#include <sys/types.h>

namespace KSETUP {

/// What stood at a path before a run.
struct KBackupEntry {
    enum class Kind { Nothing, File, Directory, Link };
    Kind kind = Kind::Nothing;
    unsigned mode = 0; ///< the bits 07777
    uid_t owner = 0;
    gid_t group = 0;
    timespec changed{}; ///< the time of the last modification
    std::string target; ///< of links
    std::string stored; ///< the name of the kept file, in the backup's directory
};

/// The list of what a backup holds, by path, as its file "index" has it: a JSON object a line,
/// {"entries":N} the last one, so that half an index is noticed.
using KBackupIndex = std::map<std::string, KBackupEntry>;

std::string ToText(const KBackupIndex& index);
/// Throws   std::invalid_argument when it is no complete index
KBackupIndex ToBackupIndex(const std::string& text);

} // namespace KSETUP
