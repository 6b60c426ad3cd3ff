// SPDX-License-Identifier: MIT
#include <ins/KInstallRuleManagerBase.h>
#include <setup/files/KFileDigest.h>
#include <setup/files/PathText.h>
#include <setup/plan/KPlannedTree.h>
#include <setup/rules/KOwnedFileRule.h>
#include <sup++/KErrorKind.h>
#include <sup++/KErrorSource.h>
#include <sup++/KFileBase.h>
#include <sup++/KFileEnum.h>
#include <sup++/KUtil.h>
#include <sup++/SvcFile.h>

#include <cerrno>

namespace KSETUP {

namespace {

using KINS::KRuleOperation;
using KSUP::KString;
using Named = KChangePolicy::Named;
using Purpose = KSUP::KDirectory::Purpose;

constexpr KSUP::KErrorSource errorSource{"setup/KOwnedFileRule"};

/// What the plan knew of was looked at before the run; a command may have made something since.
void RequireMayReplace(
    const KChangePolicy& policy, const std::string& path, const std::string& source
) {
    if (const std::string why = policy.WhyNotReplace(path, source); !why.empty()) {
        errorSource.RaiseAs(
            {KSUP::KErrorKind::System, KSUP::KOperation::Write, path.c_str(), why.c_str()},
            KSUP::TraceLevel::rule,
            EEXIST
        );
    }
}

KString Join(const KString& directory, const KString& name) {
    return KSUP::KUtil::AppendPathSep(directory, "/") + name;
}

} // namespace

bool MayDelete(
    const KChangePolicy& policy, const std::string& path, Named named, KRunChanges& changes
) {
    if (policy.MayDelete(path, named)) {
        return true;
    }
    if (policy.IsEdited(path)) {
        changes.configuration.push_back({path, ""});
    } else {
        changes.foreign.push_back(path);
    }
    return false;
}

/// What cannot go keeps what is to come from being made, and that tells.
void MakeWay(const KChangePolicy& policy, const std::string& path) {
    const auto all = policy.FindWhatGivesWay(path);
    if (!all) {
        return;
    }
    for (const std::string& one : *all) {
        const auto entry = LookAtEntry(one);
        const bool isDirectory = entry && entry->kind == KManifestEntry::Kind::Directory;
        static_cast<void>(
            isDirectory ? SvcDeleteDirectory(0, one.c_str(), 0) : SvcDeleteFile(0, one.c_str())
        );
    }
}

void MakeWayForLink(const KChangePolicy& policy, const KString& link, const KString& target) {
    const std::string path = link.c_str();
    const auto former = LookAtEntry(path);
    if (former && former->kind != KManifestEntry::Kind::Link) {
        MakeWay(policy, path);
    } else if (former && !policy.GetOwnership().WasMadeNow(path) && former->target != target.c_str()) {
        RequireMayReplace(policy, path, "");
    }
}

KOwnedFileRule::KOwnedFileRule(
    KINS::KInstallRuleManagerBase& owner,
    const KString& line,
    const KChangePolicy& changePolicy,
    KRunChanges& runChanges
)
    : KFileRule(&owner, line),
      policy(changePolicy),
      changes(runChanges) {}

KOwnedFileRule::~KOwnedFileRule() = default;

KChangePolicy::Treatment KOwnedFileRule::GetTreatment() const {
    return KChangePolicy::Treatment::ByPlace;
}

void KOwnedFileRule::Execute() {
    const bool isPattern = IsPattern(fileName.c_str());
    const KString source = Join(sourceDirectory, fileName);
    switch (KINS::KRuleLine::FindOperation(KINS::KRuleType::File, operation)) {
    case KRuleOperation::Copy:
        if (isPattern) {
            CopyMatches();
        } else {
            Copy(source, nullptr, Join(targetDirectory, targetName), nullptr);
        }
        break;
    case KRuleOperation::Delete:
        if (isPattern) {
            DeleteMatches();
        } else if (MayDelete(policy, source.c_str(), Named::ByScript, changes)) {
            DeleteFile(source);
        }
        break;
    case KRuleOperation::Symlink:
        Lay();
        break;
    default:
        break; // any other operation does nothing, and is meant to
    }
}

void KOwnedFileRule::CopyMatches() {
    const KString pattern = Join(sourceDirectory, fileName);
    KSUP::KFileEnum files(pattern, false, false);
    KSUP::KDirectory from(KSUP::KUtil::RemoveFileFromPath(pattern, "/"), Purpose::Read);
    KSUP::KDirectory to(targetDirectory, Purpose::Write);
    while (files.Enum()) {
        const KString source = files.GetPath();
        Copy(source, &from, to.GetPath() + KSUP::KUtil::GetFileFromPath(source, "/"), &to);
    }
}

void KOwnedFileRule::Copy(
    const KString& source,
    KSUP::KDirectory* fromDirectory,
    const KString& target,
    KSUP::KDirectory* toDirectory
) {
    const std::string path = target.c_str();
    const auto former = LookAtEntry(path);
    // What this run made itself is its own affair, also a link that it writes through. A file that
    // the administrator edited is theirs, also when an option was put into it.
    const bool isTheirs =
        former && policy.IsConfiguration(path, GetTreatment()) && policy.IsAdministrators(path);
    if (!former || (policy.GetOwnership().WasMadeNow(path) && !isTheirs)) {
        NoteConfiguration(source, path);
        CopyAndTell(source, fromDirectory, target, toDirectory);
        return;
    }
    if (former->kind == KManifestEntry::Kind::Directory) {
        MakeWay(policy, path);
    } else {
        if (Keeps(source.c_str(), path)) {
            return;
        }
        RequireMayReplace(policy, path, source.c_str());
    }
    if (former->kind == KManifestEntry::Kind::File && former->owner != 0) {
        changes.formerOwners.emplace(NormalPath(path), former->owner);
    }
    if (former->kind == KManifestEntry::Kind::Link) {
        changes.replacedLinks.emplace_back(path, former->target);
        KSUP::KFileBase::DeleteFile(target);
    }
    CopyAndTell(source, fromDirectory, target, toDirectory);
}

void KOwnedFileRule::CopyAndTell(
    const KString& source,
    KSUP::KDirectory* fromDirectory,
    const KString& target,
    KSUP::KDirectory* toDirectory
) {
    CopyHeld(source, fromDirectory, target, toDirectory);
    if (changes.copied && !manager->IsCancelled()) { // else it was taken away again
        changes.copied(source.c_str(), target.c_str());
    }
}

/// So that the next run knows what the kit had, and an edit from an upgrade.
void KOwnedFileRule::NoteConfiguration(const KString& source, const std::string& target) {
    if (policy.IsConfiguration(target, GetTreatment())) {
        changes.kitDigests[NormalPath(target)] = DigestFile(source.c_str()).sha256;
    } else if (GetTreatment() == KChangePolicy::Treatment::Program) {
        changes.programs.insert(NormalPath(target));
    }
}

bool KOwnedFileRule::Keeps(const std::string& source, const std::string& target) {
    NoteConfiguration(source.c_str(), target);
    const auto decided = policy.DecideCopy(source, target, GetTreatment());
    if (decided == KChangePolicy::Copy::Write) {
        return false;
    }
    if (decided == KChangePolicy::Copy::Keep) {
        changes.configuration.push_back({target, ""});
        return true;
    }
    const std::string offered = KChangePolicy::OfferedPath(target);
    changes.configuration.push_back({target, offered});
    changes.kitDigests[NormalPath(offered)] = changes.kitDigests[NormalPath(target)];
    CopyAndTell(source.c_str(), nullptr, offered.c_str(), nullptr);
    return true;
}

void KOwnedFileRule::DeleteMatches() {
    if (!KSUP::KFileBase::DoesFileExist(sourceDirectory)) {
        return;
    }
    KSUP::KFileEnum files(sourceDirectory, fileName, false, false);
    while (files.Enum()) {
        if (MayDelete(policy, files.GetPath().c_str(), Named::BySweep, changes)) {
            DeleteFile(files.GetPath());
        }
    }
}

void KOwnedFileRule::Lay() {
    MakeWayForLink(policy, Join(targetDirectory, targetName), Join(sourceDirectory, fileName));
    KFileRule::Execute();
}

} // namespace KSETUP
