// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KFileRule.h>
#include <setup/plan/KChangePolicy.h>
#include <setup/rules/KRunChanges.h>

#include <string>

namespace KSETUP {

/// A file rule that minds who owns what: an edited configuration stays, a link that is replaced is
/// replaced itself, a sweep deletes what is the product's.
///
/// Borrows policy and changes for as long as it lives.
/// Thread   as KINS::KFileRule
class KOwnedFileRule : public KINS::KFileRule {
  public:
    KOwnedFileRule(
        KINS::KInstallRuleManagerBase& owner,
        const KSUP::KString& line,
        const KChangePolicy& changePolicy,
        KRunChanges& runChanges
    );
    ~KOwnedFileRule() override;

    void Execute() override;

  protected:
    /// How what is copied is to be taken.
    virtual KChangePolicy::Treatment GetTreatment() const;

    /// Copies what matches the file name, or one file. For derived rules.
    void CopyMatches();
    void Copy(const KSUP::KString& source, const KSUP::KString& target);

  private:
    /// Null for a directory that is not held open.
    void Copy(
        const KSUP::KString& source,
        KSUP::KDirectory* fromDirectory,
        const KSUP::KString& target,
        KSUP::KDirectory* toDirectory,
        KEntryLook& look
    );
    void CopyAndTell(
        const KSUP::KString& source,
        KSUP::KDirectory* fromDirectory,
        const KSUP::KString& target,
        KSUP::KDirectory* toDirectory
    );
    bool Share(
        const KSUP::KString& source,
        KSUP::KDirectory* fromDirectory,
        const KSUP::KString& target,
        KSUP::KDirectory* toDirectory
    );
    void Tell(const KSUP::KString& source, const KSUP::KString& target, const KFileDigest& known);
    void NoteConfiguration(const KSUP::KString& source, const std::string& target);
    bool Keeps(const std::string& source, const std::string& target);
    void DeleteMatches();
    void Lay();

    const KChangePolicy& policy;
    KRunChanges& changes;
};

/// Deletes what is in the way of something of another kind, where all of it is the product's.
void MakeWay(const KChangePolicy& policy, const std::string& path);
/// The same for a link that is to be laid, which replaces a link that is the product's.
///
/// Throws   KSUP::KError 17 (EEXIST) for another's link
void MakeWayForLink(
    const KChangePolicy& policy, const KSUP::KString& link, const KSUP::KString& target
);
/// Whether a rule deletes the path; notes it where not.
bool MayDelete(
    const KChangePolicy& policy,
    const std::string& path,
    KChangePolicy::Named named,
    KRunChanges& changes
);

} // namespace KSETUP
