// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/KProfileText.h>
#include <sup++/KProfileWalks.h>
#include <sup++/KString.h>
#include <sup++/ThreadSafety.h>

#include <mutex>
#include <string_view>

#include <sys/KAnnotatedMutex.h>
#include <sys/files/KFileReplacement.h>

namespace KSUP {

struct KProfileKey {
    std::string_view name;
    std::string_view value;
};

/// What the copies of a profile share: the file's text and how it is written back.
///
/// Thread   any; locks itself. Changes of a user's processes take turns (KSYS::KDirectoryLock), and
///          each begins with what the file holds by then
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
    /// The same of two keys, with one write of the file.
    unsigned PutBoth(std::string_view section, const KProfileKey& first, const KProfileKey& second);
    /// Removes the line at `position` if that is one of `key`, and then sets `position` to 0;
    /// nothing if it was one (`keyThere`) and others have removed it; else the first line of `key`.
    /// A file that is gone is not made again; the text alone changes then. Returns 0 or errno, as
    /// above
    unsigned Delete(
        std::string_view section, std::string_view key, unsigned& position, const KString& keyThere
    );
    /// The position before the first key of a section.
    unsigned Begin(std::string_view section);
    /// The position of the next key in the section of `position`, with its key and value; 0 at the
    /// end. Positions stay good whatever becomes of the file: see KProfileWalks.
    unsigned Next(unsigned position, KString& keyName, KString& keyValue);

    const KString& GetPath() const noexcept { return path; }

  private:
    enum class GoneFile { IsMade, StaysGone };
    template <class Change>
    unsigned Apply(GoneFile gone, std::string_view section, Change change);

    void ReadAgain(std::string bytes) SUP_REQUIRES(guard);

    KSYS::KAnnotatedMutex<std::mutex> guard;
    KString path; // fixed once opened
    KProfileText text SUP_GUARDED_BY(guard);
    KProfileWalks walks SUP_GUARDED_BY(guard);
    KSYS::FileIdentity onDisk SUP_GUARDED_BY(guard); // what text was read from or written to
};

} // namespace KSUP
