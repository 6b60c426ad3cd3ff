// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/Export.h>
#include <sup++/KString.h>

namespace KSUP {

/// What is done to files by path. Links on the way are followed as KFileBase says.
///
/// Throws   KError with errno as code and the path and the system's text as information
/// Thread   any
class SUP_EXPORT KFileUtil {
  public:
    KFileUtil() = delete;

    /// Makes a symbolic link to `existingPath` at `linkPath`; a link that stands there is replaced
    /// in one step, anything else is refused with EEXIST.
    static void CreateSymbolicLink(const KString& existingPath, const KString& linkPath);

    /// Unlinks a file or a link, never a directory.
    ///
    /// Returns  0 or errno; ENOENT when there was nothing
    [[nodiscard]] static unsigned DeleteFile(const KString& path) noexcept;

    /// The permission bits with set-id and sticky bits (07777); links are followed.
    static unsigned int GetModeFlags(const KString& path);
    /// Sets these bits. Throws KError with errno and the path.
    static void SetModeFlags(const KString& path, unsigned int flags);
};

} // namespace KSUP
