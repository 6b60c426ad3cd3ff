// SPDX-License-Identifier: MIT
#include <setup/files/AccountNames.h>
#include <setup/files/PathText.h>
#include <setup/files/TrustedPath.h>
#include <setup/rules/KModeRule.h>
#include <setup/text/NotedText.h>
#include <sup++/KErrorKind.h>
#include <sup++/KErrorSource.h>

#include <cerrno>

#include <sys/files/FileContent.h>
#include <sys/files/FileStatus.h>

namespace KSETUP {

namespace {

constexpr KSUP::KErrorSource modeRule{"setup/KModeRule"};

/// Opens what the mode is of: by its place, so that nobody leads to another file. EMLINK for a file
/// to which others may have given its name here, to get at it.
unsigned Open(const char* path, KSYS::KDescriptor& opened) {
    KSYS::Place place;
    if (const unsigned failed = KSYS::FindPlace(path, KSYS::LastLink::Keep, place); failed != 0) {
        return failed;
    }
    struct stat status {};
    if (const unsigned failed = KSYS::OpenEntry(place, O_RDONLY, opened); failed != 0) {
        return failed;
    }
    if (const unsigned failed = KSYS::ReadStatus(opened.Get(), status); failed != 0) {
        return failed;
    }
    if (S_ISREG(status.st_mode) && status.st_nlink > 1) {
        bool isClosed = false;
        const unsigned failed = KSYS::ReadClosedToOthers(place.directory.Get(), isClosed);
        return failed != 0 || isClosed ? failed : EMLINK;
    }
    return S_ISREG(status.st_mode) || S_ISDIR(status.st_mode) ? 0 : EINVAL;
}

[[noreturn]] void RaiseInWords(unsigned failed, const KSUP::KString& path, const KText& reason) {
    modeRule.RaiseAs(
        {KSUP::KErrorKind::System, KSUP::KOperation::Write, path, reason.English()},
        KSUP::TraceLevel::rule,
        failed,
        path + NoteText(": " + reason)
    );
}

[[noreturn]] void RaiseFailure(unsigned failed, const KSUP::KString& path) {
    if (failed != EMLINK) {
        modeRule.RaiseSystem(failed, KSUP::KOperation::Write, path);
    }
    RaiseInWords(
        failed,
        path,
        Text("the file has another name (a hard link), and others may write in its directory. "
             "Delete it there, or copy it")
    );
}

/// Who can lay a program of their own there would have it run as another user.
void RequireNoSetIdForOthers(int file, const KSUP::KString& path, unsigned mode) {
    struct stat status {};
    if ((mode & (S_ISUID | S_ISGID)) == 0 ||
        (KSYS::ReadStatus(file, status) == 0 && S_ISDIR(status.st_mode))) {
        return;
    }
    // Its owner may be the product's own user; the way to it counts.
    const KText why = WhyOthersCanExchange(NormalPath(path.c_str()), KPathEnd::IsOthersBusiness);
    if (!why.empty()) {
        RaiseInWords(
            EPERM,
            path,
            Text(
                "it would become set-id, and others than root can exchange it (%s). Install it "
                "below a directory of root's",
                why
            )
        );
    }
}

template <class Id>
Id Require(const std::optional<Id>& found, const char* missing, const KSUP::KString& name) {
    if (!found) {
        modeRule.Raise(
            KSUP::TraceLevel::rule,
            KSUP::ErrorCode::notFound,
            KSUP::KString(NoteText(Text(missing, name.c_str())))
        );
    }
    return *found;
}

} // namespace

void KModeRule::Execute() {
    constexpr unsigned same = -1U; // to fchown(2)
    const KSUP::KString path = Get(KSetupField::Path);
    const std::string& user = GetLine().Get(KSetupField::Owner);
    const std::string& group = GetLine().Get(KSetupField::Group);
    Tell(path, "Setting mode of " + path);
    const uid_t owner =
        user.empty() ? same : Require(FindUser(user), TextFormat("there is no user %s"), user);
    const gid_t owningGroup =
        group.empty() ? same : Require(FindGroup(group), TextFormat("there is no group %s"), group);
    KSYS::KDescriptor opened;
    unsigned failed = Open(path.c_str(), opened);
    if (failed == 0) {
        RequireNoSetIdForOthers(opened.Get(), path, GetLine().GetMode());
    }
    // The owner first: a change of it takes set-id bits away.
    if (failed == 0 && (owner != same || owningGroup != same)) {
        failed = KSYS::SetOwner(opened.Get(), owner, owningGroup);
    }
    if (failed == 0) {
        failed = KSYS::SetMode(opened.Get(), GetLine().GetMode());
    }
    if (failed != 0) {
        RaiseFailure(failed, path);
    }
    changes.rights.insert(NormalPath(path.c_str()));
}

} // namespace KSETUP
