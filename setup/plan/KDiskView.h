// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace KSETUP {

enum class KEntryKind : std::uint8_t { Nothing, File, Directory, Link, Other };

struct KPlannedEntry {
    KEntryKind kind = KEntryKind::Nothing;
    std::uint64_t bytes = 0;
    unsigned mode = 0;
    std::string target; ///< of a link
    /// Of a directory that others than root may change: a run follows no link out of it.
    bool isShared = false;
    /// Of a file that a plan made: where its bytes lie now; empty for one that begins empty.
    std::string content;
    bool isOurUnit = false; ///< a unit file that a plan made of a service rule
};

/// What is on the disk, as it was when it was first asked for: the looks at a kit before a run go
/// over the same thousands of files several times, and the disk is asked once.
///
/// Paths are absolute and normal. Not for use once something is changed.
///
/// Thread   one at a time
class KDiskView {
  public:
    struct Name {
        std::string name;
        bool isDirectory; ///< a link to one is none
    };

    /// Nothing is what cannot be looked at, too. Valid as long as this.
    const KPlannedEntry& Look(const std::string& path);
    /// What is in a directory, sorted by byte; nothing where it is missing or cannot be read.
    /// Valid as long as this.
    ///
    /// Throws   KSetupFailure when it cannot be read to its end
    const std::vector<Name>& List(const std::string& directory);

  private:
    std::unordered_map<std::string, KPlannedEntry> entries;
    std::unordered_map<std::string, std::vector<Name>> listings;
};

} // namespace KSETUP
