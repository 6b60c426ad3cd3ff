// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/KProfileText.h>
#include <sup++/KString.h>
#include <sys/files/KFileReplacement.h>

#include <mutex>
#include <string_view>

namespace KSUP {

/// What the copies of a profile share: the file's text and how it is written back.
///
/// Thread   any; locks itself. Changes of several processes take turns by a lock on the directory,
///          and each begins with what the file holds by then
class KProfileContent {
  public:
    /// Reads the file. `mayBeMissing` makes a missing one empty content.
    ///
    /// Returns  0 or errno
    unsigned Open(const KString& filePath, bool mayBeMissing);
    /// Makes or empties the file. Returns 0 or errno
    unsigned Create(const KString& filePath);

    bool Find(std::string_view section, std::string_view key, KString& value);
    /// Returns 0 or errno; on a failure the text is as it was.
    unsigned Put(std::string_view section, std::string_view key, std::string_view value);
    /// Removes the line at `position` (KProfileText::Next) if it is one of `key`, else the first
    /// line of `key`. A file that is gone is not made again; the text alone changes then. Returns 0
    /// or errno, as above
    unsigned Delete(std::string_view section, std::string_view key, unsigned position);
    /// As KProfileText::Next.
    unsigned Next(std::string_view section, unsigned position, KString& keyName, KString& keyValue);

    const KString& GetPath() const noexcept { return path; }

  private:
    enum class GoneFile { IsMade, StaysGone };
    template <class Change>
    unsigned Apply(GoneFile gone, Change change);

    std::mutex guard;
    KString path;             // fixed once opened
    KProfileText text;        // guarded by guard
    KSYS::FileIdentity onDisk; // guarded by guard; what text was read from or written to
};

} // namespace KSUP
