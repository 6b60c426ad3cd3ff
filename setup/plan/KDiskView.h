// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include <sys/files/FileStatus.h>

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
    /// Of what is on the disk: what a plan made has none.
    KSYS::ProtectingAttribute attribute = KSYS::ProtectingAttribute::None;
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
    /// What is in a directory, sorted by byte; nothing where it is missing, and for who may not look
    /// into it. Valid as long as this.
    ///
    /// Throws   KSetupFailure when it cannot be read to its end, by root not at all
    const std::vector<Name>& List(const std::string& directory);
    /// The same of a directory that is copied from: who may not look into it cannot say what is.
    ///
    /// Throws   KSetupFailure when it cannot be read to its end
    const std::vector<Name>& ListSources(const std::string& directory);

  private:
    struct Listing {
        std::vector<Name> names;
        unsigned whyUnread = 0; ///< errno
    };
    Listing Read(const std::string& directory);
    const Listing& Find(const std::string& directory);

    std::unordered_map<std::string, KPlannedEntry> entries;
    std::unordered_map<std::string, Listing> listings;
};

} // namespace KSETUP
