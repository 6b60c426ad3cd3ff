// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/Export.h>
#include <sup++/KBase.h>
#include <sup++/KString.h>

namespace KSUP {

class KDirectory;

/// A regular file, open for reading or newly made. Anything else at the path (a directory, a FIFO,
/// a device) is an error at once.
///
/// Where something is made or deleted, a symbolic link on the way is followed only where root alone
/// could have laid it: in a directory that is root's and that nobody else may write. Any other is
/// refused with ELOOP. A file that is read is found as usual.
///
/// Throws   KError with errno as code and the path and the system's text as information
/// Thread   one at a time
class SUP_EXPORT KFileBase : public KBase {
  public:
    /// For the class derived from it; see KBase.
    explicit KFileBase(const char* classTag) noexcept;
    /// Closes; what the disk reports is lost, so call Close first where it matters.
    ~KFileBase() override;
    KFileBase(const KFileBase&) = delete;
    KFileBase& operator=(const KFileBase&) = delete;

    /// `held`, here and below: the file's directory, where it is held open, or null.
    void OpenForRead(const KString& filePath, KDirectory* held = nullptr);

    /// Makes the file for writing, with mode 0600. A file that stands there is unlinked and made
    /// anew, never emptied: programs that run from it or have it mapped keep theirs. It keeps its
    /// owner in a directory in which only root and this process's user may make files; in any other
    /// it becomes this process's, for nobody knows who laid the former one there.
    void Create(const KString& filePath, KDirectory* held = nullptr);

    /// Appends `byteCount` bytes of `from`, from `offset` on, to what was written to this file so
    /// far. Holes of `from` (lseek(2)) become holes.
    ///
    /// Throws   also when the source ends before that (EIO); part of it may then be written
    void Copy(const KFileBase& from, const unsigned long long& offset, unsigned int byteCount);

    /// Appends a text to what was written to this file so far.
    void Write(const KString& text);

    /// Throws   what the disk reports at the end; the file is closed all the same
    void Close();

    /// Bytes, as they were when the file was opened. 0 for a file that is not open.
    unsigned long long GetLength() const noexcept { return length; }
    /// The permission bits (07777), as they were when the file was opened.
    unsigned int GetModeFlags() const noexcept { return modeFlags; }
    /// Sets the permission bits of this open file, whatever its path names by now.
    void SetModeFlags(unsigned int flags);

    /// Gives a file a second name, where none stands: no byte of it is written again, and what is
    /// written to it by the one name is read by the other. For files that are as they are to stay.
    ///
    /// Returns  0 or errno, with nothing made; EXDEV on another file system
    [[nodiscard]] static unsigned Link(
        const KString& file, KDirectory* fileHeld, const KString& secondName, KDirectory* nameHeld
    ) noexcept;

    /// Unlinks a file or a link, never a directory. A missing one is an error here.
    static void DeleteFile(const KString& filePath);
    /// True for anything that stands at the path, a directory too; links are followed.
    static bool DoesFileExist(const KString& filePath) noexcept;

  private:
    int descriptor = -1;
    unsigned int modeFlags = 0;
    unsigned long long length = 0;
    bool kernelCopies = true;  // until the file systems refuse copy_file_range
    bool mayHaveHoles = false; // of one that is read, as it was when it was opened
    KString path;
};

} // namespace KSUP
