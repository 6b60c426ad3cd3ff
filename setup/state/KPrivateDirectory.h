// SPDX-License-Identifier: MIT
#pragma once

#include <setup/KSetupFailure.h>
#include <setup/text/KText.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include <sys/files/DirectoryEntry.h>
#include <sys/files/KDescriptor.h>

namespace KSETUP {

/// A directory in which ins-setup keeps files for itself: made 0700, files in it 0600. It belongs
/// to who runs the program (root), and nobody else may write in it, or it is refused: what stands
/// there is believed later.
///
/// Threads  one at a time
class KPrivateDirectory {
  public:
    /// Opens BASE/NAME; makes both where they are missing.
    ///
    /// Throws   KSetupFailure when the name is no file name, a directory cannot be made, or one is
    ///          not ours alone; directories that were made stay
    KPrivateDirectory(const std::string& base, const std::string& name);
    /// Opens BASE/NAME, or returns nothing when it is not there.
    ///
    /// Throws   KSetupFailure as above, and with ExitCode::notRoot for a user who may not look
    static std::optional<KPrivateDirectory>
    OpenExisting(const std::string& base, const std::string& name);

    int Get() const noexcept { return directory.Get(); }
    const std::string& GetPath() const noexcept { return path; }

    /// Opens a directory in this one; makes it when it is missing.
    ///
    /// Throws   KSetupFailure
    KPrivateDirectory Below(const std::string& name) const;
    std::optional<KPrivateDirectory> ExistingBelow(const std::string& name) const;

    /// Replaces a file as a whole: what a crash leaves is the former one or the new one. When it
    /// returns, it is on the disk.
    ///
    /// Throws   KSetupFailure, the former file being there still
    void WriteDurably(const std::string& name, std::string_view bytes) const;
    /// The same with bytes that need not be in memory all at once.
    ///
    /// Throws   KSetupFailure as above, and what `next` throws
    void WriteDurably(const std::string& name, const KSYS::PieceSource& next) const;
    /// Whether something of that name stands there.
    ///
    /// Throws   KSetupFailure when that cannot be known
    bool Has(const std::string& name) const;
    /// A file's bytes, or nothing when it is not there.
    ///
    /// Throws   KSetupFailure when it cannot be read, or is no plain file of ours
    std::optional<std::string> Read(const std::string& name) const;
    /// The first line of a file, which may be long, without its end; of one without a line feed
    /// its first bytes. Nothing when it is not there.
    ///
    /// Throws   as Read
    std::optional<std::string> ReadFirstLine(const std::string& name) const;
    /// Opens a file that must be there. `flags` as open(2).
    ///
    /// Throws   KSetupFailure when it cannot be opened, or is no plain file of ours
    KSYS::KDescriptor Open(const std::string& name, int flags) const;
    /// Deletes a file, on the disk too. One that is not there is fine.
    ///
    /// Throws   KSetupFailure
    void Delete(const std::string& name) const;
    /// Deletes a directory with the files in it; it has no directories in it.
    ///
    /// Throws   KSetupFailure, some files being gone
    void DeleteDirectory(const std::string& name) const;
    /// Brings the entries of this directory to the disk.
    ///
    /// Throws   KSetupFailure
    void Flush() const;

  private:
    KPrivateDirectory(KSYS::KDescriptor opened, std::string itsPath);
    /// Throws what `failed`, 0 or errno, is in words: of `name` here, or of the directory.
    void Require(unsigned failed, const char* what, const std::string& name) const;
    static std::optional<KPrivateDirectory>
    OpenIn(int at, const std::string& name, const std::string& path, bool make);

    KSYS::KDescriptor directory;
    std::string path;
};

/// A failure of the system as its reader needs it: `what` is "cannot write PATH"; the system's reason
/// and the advice follow.
KSetupFailure
SystemFailure(int exitCode, const KText& what, unsigned errorNumber, const KText& advice);

} // namespace KSETUP
