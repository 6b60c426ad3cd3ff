// SPDX-License-Identifier: MIT
// The list of what a backup holds: refused, or it says after being written again what it said.
#include "Fuzz.h"

#include <setup/state/KBackupIndex.h>

#include <stdexcept>

namespace {

std::string Joined(const KSYS::PieceSource& next) {
    std::string all;
    for (std::string_view piece; !(piece = next()).empty();) {
        all += piece;
    }
    return all;
}

} // namespace

/// The file "index" of a backup.
FUZZ_TARGET(BackupIndex) {
    using KTEST::Require;
    KSETUP::KBackupIndex index;
    try {
        index = KSETUP::ToBackupIndex(std::string(input));
    } catch (const std::invalid_argument&) {
        return;
    }
    for (const auto& [path, entry] : index.entries) {
        Require(path.starts_with('/'), "paths are absolute");
        Require(entry.stored.find('/') == std::string::npos, "what is kept is in the backup");
        Require((entry.mode & ~07777U) == 0, "modes are modes");
    }
    const std::string text = Joined(KSETUP::ToPieces(index));
    const KSETUP::KBackupIndex again = KSETUP::ToBackupIndex(text);
    Require(Joined(KSETUP::ToPieces(again)) == text, "it says the same again");
}
