// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/Export.h>
#include <sup++/KBase.h>
#include <sup++/KString.h>

#include <cstddef>
#include <string>
#include <vector>

namespace KSUP {

/// Lists what stands in one directory and matches a pattern: everything that is not a directory,
/// hidden names and dangling links included, sorted by byte, as it was when the listing began. "*"
/// is any number of characters, "?" is one; nothing else is special. A directory that is missing or
/// cannot be read yields nothing.
///
/// Both flags are reserved and must be false: KError 36 otherwise. A listing that breaks off for
/// another reason raises KError with errno and the path.
///
/// Thread   one at a time
///
///     KFileEnum files("/opt/p/lib/*.so", false, false);
///     while (files.Enum()) { … files.GetPath() … }
class SUP_EXPORT KFileEnum : public KBase {
  public:
    KFileEnum();
    /// Starts with a directory and a pattern in one path; without a directory, in the current one.
    KFileEnum(const KString& pathWithPattern, bool recursive, bool directories);
    /// Starts, as Start does.
    KFileEnum(
        const KString& directoryPath, const KString& pattern, bool recursive, bool directories
    );
    ~KFileEnum() override;

    /// Begins anew.
    void
    Start(const KString& directoryPath, const KString& pattern, bool recursive, bool directories);
    /// Steps to the next match, false when there is none left.
    bool Enum() noexcept;
    /// The full path of the current match; empty when there is none.
    KString GetPath() const;

    /// Whether a listing with this pattern would have such a name, for names that are in no
    /// directory. A pattern of many "*" takes no longer than the name's size times its own.
    ///
    /// Thread   any
    static bool Matches(const char* name, const char* pattern) noexcept;

  private:
    KString directory; // with its separator
    std::vector<std::string> names;
    std::size_t next = 0;
};

} // namespace KSUP
