// SPDX-License-Identifier: MIT
#include <ins/KInstallRuleManagerBase.h>
#include <setup/files/KFileDigest.h>
#include <setup/files/PathText.h>
#include <setup/plan/KPlannedTree.h>
#include <setup/rules/KFileSharing.h>
#include <setup/rules/KOwnedFileRule.h>
#include <setup/text/NotedText.h>
#include <sup++/KErrorKind.h>
#include <sup++/KErrorSource.h>
#include <sup++/KFileBase.h>
#include <sup++/KFileEnum.h>
#include <sup++/KUtil.h>
#include <sup++/SvcFile.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include <sys/files/DirectoryEntry.h>

namespace KSETUP {

namespace {

using KINS::KRuleOperation;
using KSUP::KString;
using Named = KChangePolicy::Named;
using Purpose = KSUP::KDirectory::Purpose;

constexpr KSUP::KErrorSource ownedFileRule{"setup/KOwnedFileRule"};

/// What the plan knew of was looked at before the run; a command may have made something since.
void RequireMayReplace(
    const KChangePolicy& policy, const std::string& path, const std::string& source
) {
    if (const KText why = policy.WhyNotReplace(path, source); !why.empty()) {
        NoteText(": " + why);
        ownedFileRule.RaiseAs(
            {KSUP::KErrorKind::System,
             KSUP::KOperation::Write,
             path.c_str(),
             why.English().c_str()},
            KSUP::TraceLevel::rule,
            EEXIST
        );
    }
}

/// What stands where something is to come. Without knowing it nothing is replaced.
std::optional<KManifestEntry> LookAtTarget(const std::string& path, KEntryLook& look) {
    unsigned whyMissing = 0;
    auto entry = look.At(path, whyMissing);
    if (!entry && !CountsAsMissing(whyMissing)) {
        ownedFileRule.RaiseSystem(whyMissing, KSUP::KOperation::Write, path);
    }
    return entry;
}

KString Join(const KString& directory, const KString& name) {
    return KSUP::KUtil::AppendPathSep(directory, "/") + name;
}

/// Why a directory cannot be read; 0 when it can.
unsigned WhyUnread(const std::string& directory) {
    KSYS::KDescriptor opened;
    std::vector<std::string> names;
    // With "/." also one that a link leads to.
    const unsigned failed = KSYS::OpenDirectoryEntry(directory + "/.", opened);
    return failed != 0 ? failed : KSYS::ListEntries({opened.Get(), "."}, names);
}

/// Refuses that planned files were not met. What a command took away was its affair.
void RequireNone(
    std::vector<std::string_view> missing, const std::string& directory, bool isBehindCommand
) {
    std::erase_if(missing, [&](std::string_view name) {
        unsigned whyMissing = 0;
        return isBehindCommand &&
               !LookAtEntry(JoinPath(directory, std::string(name)), &whyMissing) &&
               whyMissing == ENOENT;
    });
    if (missing.empty()) {
        return;
    }
    constexpr std::size_t namesShown = 5;
    std::string names;
    for (std::size_t at = 0; at < std::min(missing.size(), namesShown); ++at) {
        names += (at == 0 ? "" : ", ") + std::string(missing[at]);
    }
    if (missing.size() > namesShown) {
        names += " and " + std::to_string(missing.size() - namesShown) + " more";
    }
    const unsigned failed = WhyUnread(directory);
    const KString reason = std::generic_category().message(static_cast<int>(failed)).c_str();
    ownedFileRule.RaiseAs(
        {KSUP::KErrorKind::System, KSUP::KOperation::Read, directory.c_str(), reason},
        KSUP::TraceLevel::rule,
        failed != 0 ? failed : ENOENT,
        KString(
            directory + NoteText(
                            (failed != 0 ? ": " + KText(reason.c_str()) : KText()) +
                            Text(". What was to be copied from there was not found: %s", names)
                        )
        )
    );
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
    KEntryLook look;
    const auto former = LookAtTarget(path, look);
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
            Copy(source, Join(targetDirectory, targetName));
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

/// The engine takes a directory that cannot be read for one without matches. What the plan found
/// there has to be found again, or half a product would count as installed.
void KOwnedFileRule::CopyMatches() {
    const KString pattern = Join(sourceDirectory, fileName);
    std::optional<KRunChanges::Matches> planned;
    if (!changes.planned.empty()) {
        planned = std::move(changes.planned.front());
        changes.planned.pop_front();
    }
    KSUP::KFileEnum files(pattern, false, false);
    KSUP::KDirectory from(KSUP::KUtil::RemoveFileFromPath(pattern, "/"), Purpose::Read);
    KSUP::KDirectory to(targetDirectory, Purpose::Write);
    KEntryLook look;
    std::vector<std::string_view> missing;
    const std::vector<std::string_view> none;
    const std::vector<std::string_view>& names = planned ? planned->names : none;
    auto next = names.begin(); // as what is met, they are sorted
    while (files.Enum()) {
        const KString source = files.GetPath();
        const KString name = KSUP::KUtil::GetFileFromPath(source, "/");
        Copy(source, &from, to.GetPath() + name, &to, look);
        for (; next != names.end() && *next <= name.c_str(); ++next) {
            if (*next != name.c_str()) {
                missing.push_back(*next);
            }
        }
    }
    if (planned && planned->pattern == NormalPath(pattern.c_str()) && !manager->IsCancelled()) {
        missing.insert(missing.end(), next, names.end());
        RequireNone(missing, ParentPath(planned->pattern), planned->isBehindCommand);
    }
}

void KOwnedFileRule::Copy(const KString& source, const KString& target) {
    KEntryLook look;
    Copy(source, nullptr, target, nullptr, look);
}

void KOwnedFileRule::Copy(
    const KString& source,
    KSUP::KDirectory* fromDirectory,
    const KString& target,
    KSUP::KDirectory* toDirectory,
    KEntryLook& look
) {
    const std::string path = target.c_str();
    const auto former = LookAtTarget(path, look);
    // What this run made itself is its own affair, also a link that it writes through. A file that
    // the administrator edited is theirs, also when an option was put into it.
    const bool isTheirs =
        former && policy.IsConfiguration(path, GetTreatment()) && policy.IsAdministrators(path);
    if (!former || (policy.GetOwnership().WasMadeNow(path) && !isTheirs)) {
        NoteConfiguration(source, path);
        if (former || !Share(source, fromDirectory, target, toDirectory)) {
            CopyAndTell(source, fromDirectory, target, toDirectory);
        }
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
    Tell(source, target, {});
}

void KOwnedFileRule::Tell(const KString& source, const KString& target, const KFileDigest& known) {
    if (changes.copied && !manager->IsCancelled()) { // else it was taken away again
        changes.copied(source.c_str(), target.c_str(), known);
    }
}

/// To whoever looks on it is a copy that was fast.
bool KOwnedFileRule::Share(
    const KString& source,
    KSUP::KDirectory* fromDirectory,
    const KString& target,
    KSUP::KDirectory* toDirectory
) {
    KFileDigest known;
    if (changes.sharing == nullptr || manager->IsCancelled() ||
        !changes.sharing->Link(source, fromDirectory, target, toDirectory, known)) {
        return false;
    }
    constexpr double whole = 100;
    manager->SetCurrentTarget(KSUP::KOperation::Write, target);
    manager->SetCurrentRuleStatus("Copying file " + target);
    UpdateStatus(source, whole);
    Tell(source, target, known);
    return true;
}

/// So that the next run knows what the kit had, and an edit from an upgrade.
void KOwnedFileRule::NoteConfiguration(const KString& source, const std::string& target) {
    if (policy.IsConfiguration(target, GetTreatment())) {
        const KFileDigest digest = DigestFile(source.c_str());
        if (digest.errorNumber != 0 && digest.errorNumber != ELOOP) { // a link has none
            ownedFileRule.RaiseSystem(digest.errorNumber, KSUP::KOperation::Read, source);
        }
        changes.kitDigests[NormalPath(target)] = digest.sha256;
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
