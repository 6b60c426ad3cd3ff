// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include <sys/files/FileStatus.h>

namespace KSETUP {

/// What is in a kit's directory and below it, as it was at one moment. Who else could change it, whether it
/// is another kit than before and what a plan finds there are told by this look: thousands of files are
/// looked at once.
///
/// Threads  any, once it is made
class KKitLook {
  public:
    struct Entry {
        KSYS::EntryStatus status;
        std::size_t text = 0; ///< where its texts begin
    };

    /// Looks at every entry. A link that the directory's own path names is followed, none below it.
    ///
    /// Throws   KSetupFailure with ExitCode::noKit for what cannot be looked at
    explicit KKitLook(const std::string& itsDirectory);

    const std::string& GetDirectory() const noexcept { return directory; }
    /// Those of a directory stand together, each directory's before those of the directories in it.
    const std::vector<Entry>& GetEntries() const noexcept { return entries; }
    /// Its path below the directory.
    const char* PathOf(const Entry& entry) const noexcept { return texts.data() + entry.text; }
    /// Where a link leads to; empty for anything else.
    const char* TargetOf(const Entry& entry) const noexcept;
    /// What is in a directory, by its path below the kit's, empty for that one; nothing where no directory
    /// is.
    std::optional<std::span<const Entry>> Find(const std::string& below) const;

  private:
    void Add(const std::string& below);

    std::string directory;
    std::string texts; // each with a null byte at its end: no path has one
    std::vector<Entry> entries;
    struct Range {
        std::size_t first = 0;
        std::size_t count = 0;
    };
    std::unordered_map<std::string, Range> directories; // by path below the kit's
};

/// Refuses a kit of which the path cannot be read, for a reason that is errno; nothing happens for 0.
///
/// Throws   KSetupFailure with ExitCode::noKit
void RequireReadableKit(unsigned failed, const std::string& path);

} // namespace KSETUP
