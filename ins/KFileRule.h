// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KInstallRule.h>
#include <sup++/KDirectory.h>
#include <sup++/KFileBase.h>

namespace KINS {

/// `file=operation,fileName,sourceDirectory[,targetDirectory[,targetName]]`: copies or deletes one
/// file or those that a wildcard matches, or makes a symbolic link. The operation ("copy",
/// "delete", "symlink") is exact; any other does nothing, which is meant. Macros are expanded in
/// the fields behind it, once, while the script loads.
///
/// Thread   as KInstallRuleBase; a copy reports its progress and asks for cancellation every 64 KiB
class INS_EXPORT KFileRule : public KInstallRule {
  public:
    /// Copies the line; only Initialize reads it and can refuse it.
    KFileRule(KInstallRuleManagerBase* owner, const KSUP::KString& line);
    ~KFileRule() override;

    /// Throws   KSUP::KError of the file that failed; a partial target and files done before stay
    void Execute() override;
    KSUP::KString Description() const override;
    /// Throws   KSUP::KError 7000 with the line unless there are 3, 4 or 5 fields
    void ParseRule(const std::vector<KSUP::KString>& fields) override;

    /// Copies one file with its permission bits. A cancelled copy is deleted again and is no error:
    /// the manager reports the cancellation.
    void CopyFile(const KSUP::KString& source, const KSUP::KString& target);
    /// Copies what a path with a pattern matches, each file under its own name.
    void CopyWildcard(const KSUP::KString& sourcePattern, const KSUP::KString& directory);
    /// Throws   KSUP::KError with the status of the deletion
    void DeleteFile(const KSUP::KString& path);
    /// Deletes what matches; a missing directory is no error.
    void DeleteWildcard(const KSUP::KString& directory, const KSUP::KString& pattern);
    /// Reports how far the copy of `path` is: the text that CopyFile makes once and reports for
    /// each chunk. For derived rules.
    ///
    /// Units    `percent` from 0 to 100
    void UpdateStatus(const KSUP::KString& path, double percent);

    /// CopyFile with the files' directories, where these are held open. For derived rules.
    void CopyHeld(
        const KSUP::KString& source,
        KSUP::KDirectory* fromDirectory,
        const KSUP::KString& target,
        KSUP::KDirectory* toDirectory
    );

  private:
    void Link(const KSUP::KString& target, const KSUP::KString& link);
    void CopyChunks(const KSUP::KString& source, KSUP::KFileBase& to, const KSUP::KFileBase& from);

  protected:
    KSUP::KString operation;       ///< as the line has it
    KSUP::KString fileName;        ///< or a pattern
    KSUP::KString sourceDirectory; ///< of what is copied, deleted or linked to
    KSUP::KString targetDirectory; ///< empty for a deletion
    KSUP::KString targetName;      ///< the file's own where the line has none
};

} // namespace KINS
