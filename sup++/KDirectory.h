// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/Export.h>
#include <sup++/KBase.h>
#include <sup++/KString.h>

namespace KSUP {

/// A directory that is held open while many of its files are read or made, so that each is found by
/// its name alone: walking a long path again for every file costs as much as making a small one.
///
/// It is opened by the first file that asks for it. Where it cannot be, files are found by their
/// whole paths, which then tells what is wrong.
///
/// Lifetime keeps one descriptor until it is destroyed
/// Thread   one at a time
class SUP_EXPORT KDirectory : public KBase {
  public:
    /// What the directory is held open for.
    enum class Purpose { Read, Write };

    /// `Write` finds the directory as KFileBase does for a file that is made: without symbolic links
    /// that others than root could have laid.
    KDirectory(const KString& path, Purpose use);
    ~KDirectory() override;
    KDirectory(const KDirectory&) = delete;
    KDirectory& operator=(const KDirectory&) = delete;

    /// The path with a separator at its end.
    const KString& GetPath() const noexcept { return path; }

  private:
    friend class KFileBase;
    /// The name of `filePath` in this directory and the open directory, or null where the file is
    /// not directly in it or it cannot be opened.
    const char* FindName(const KString& filePath, int& directory) noexcept;

    KString path;
    Purpose purpose;
    bool wasTried = false;
    int descriptor = -1;
};

} // namespace KSUP
