// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/PathText.h>
#include <setup/kit/KitLinks.h>
#include <setup/preflight/TrustedPlaces.h>

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <sys/files/DirectoryEntry.h>

namespace KSETUP {

namespace {

/// Whether others could change what is there. `isAbove` says that only what is below it counts.
bool IsOpenToOthers(unsigned mode, uid_t owner, bool isAbove) {
    const bool othersMayWrite = (mode & (S_IWGRP | S_IWOTH)) != 0;
    // In a directory with the sticky bit nobody takes another's entry away.
    const bool isSticky = (mode & S_ISVTX) != 0 && isAbove;
    const bool isTrusted = owner == 0 || owner == CallingUser();
    return !isTrusted || (othersMayWrite && !isSticky && !S_ISLNK(mode));
}

[[noreturn]] void RefuseOpen(const std::string& path, bool isAbove) {
    // What is above the kit may be somebody's home, whose owner and rights are to stay.
    throw KSetupFailure(
        ExitCode::noKit,
        Text(
            "%s: others than root can change it, and root would run that. Nothing was changed. "
            "Copy the kit to a directory of root's (cp -R KIT /root/)%s",
            path,
            (isAbove ? "." : Text(", or take the right away (chown -R root, chmod -R go-w)."))
        )
    );
}

/// Looks at all of a kit, and at what links in it lead to.
class PrivateKit {
  public:
    explicit PrivateKit(const KKitLook& itsLook) : look(itsLook), kit(itsLook.GetDirectory()) {}

    void Require() {
        RequirePrivateWay(kit);
        RequireAbove(kit, false);
        RequireEntries(look);
    }

  private:
    void RequireEntries(const KKitLook& tree) {
        for (const KKitLook::Entry& entry : tree.GetEntries()) {
            const KSYS::EntryStatus& status = entry.status;
            // A device has no content that somebody could put there; as /dev/null, which masks a unit.
            const bool isDevice = S_ISCHR(status.mode);
            if (!isDevice && IsOpenToOthers(status.mode, status.owner, false)) {
                RefuseEntry(JoinPath(tree.GetDirectory(), tree.PathOf(entry)));
            }
            if (S_ISLNK(status.mode)) {
                RequireTarget(JoinPath(tree.GetDirectory(), tree.PathOf(entry)));
            }
        }
    }

    /// What a link out of the kit leads to is as good as in it, and so is all that decides about it.
    void RequireTarget(const std::string& link) {
        const KLinkWay way = FollowLink(link);
        if (way.StaysIn(kit)) {
            return;
        }
        const std::string former = std::exchange(through, through.empty() ? link : through);
        for (const std::string& at : way.passed) {
            RequireAbove(at, true);
        }
        if (!way.isThere) { // where others may make it, it will be theirs
            RequireAbove(way.end, false);
        } else if (!IsAtOrBelow(way.end, kit) && seen.insert(way.end).second) {
            RequireTree(way.end);
        }
        through = former;
    }

    void RequireTree(const std::string& path) {
        struct stat status {};
        const unsigned failed = KSYS::ReadStatus(path, KSYS::LastLink::Keep, status);
        if (failed != 0 || !S_ISCHR(status.st_mode)) {
            RequireAbove(path, false);
        }
        if (failed == 0 && S_ISDIR(status.st_mode)) {
            RequireEntries(KKitLook(path));
        }
    }

    void RequireAbove(const std::string& path, bool isAbove) const {
        struct stat status {};
        if (KSYS::ReadStatus(path, KSYS::LastLink::Keep, status) != 0 ||
            IsOpenToOthers(status.st_mode, status.st_uid, isAbove)) {
            RefuseEntry(path);
        }
    }

    [[noreturn]] void RefuseEntry(const std::string& path) const {
        if (through.empty()) {
            RefuseOpen(path, false);
        }
        throw KSetupFailure(
            ExitCode::noKit,
            Text(
                "%s: this link leads out of the kit, and others than root can change %s there; "
                "root would run that. Nothing was changed. Copy the kit with what its links lead "
                "to to a directory of root's (cp -RL KIT /root/).",
                through,
                path
            )
        );
    }

    const KKitLook& look;
    const std::string& kit;
    std::string through;        // the link by which the walk left the kit; empty within
    std::set<std::string> seen; // where links led to
};

} // namespace

uid_t CallingUser() {
    const char* text = std::getenv("SUDO_UID"); // NOLINT: nobody changes the environment
    uid_t user = 0;
    if (text != nullptr) {
        std::from_chars(text, text + std::strlen(text), user);
    }
    return user;
}

std::string FindOpenWay(const std::string& path) {
    for (std::string at = ParentPath(path); !at.empty(); at = at == "/" ? "" : ParentPath(at)) {
        struct stat status {};
        if (KSYS::ReadStatus(at, KSYS::LastLink::Keep, status) == 0 &&
            IsOpenToOthers(status.st_mode, status.st_uid, true)) {
            return at;
        }
    }
    return {};
}

void RequirePrivateWay(const std::string& directory) {
    if (const std::string open = FindOpenWay(directory); !open.empty()) {
        RefuseOpen(open, true);
    }
}

void RequirePrivate(const KKitLook& kit) {
    PrivateKit(kit).Require();
}

void RequireSafeLog(const std::string& file) {
    const std::string directory = ParentPath(file);
    struct stat status {};
    if (const unsigned missing = KSYS::ReadStatus(directory, KSYS::LastLink::Follow, status)) {
        throw KSetupFailure(
            ExitCode::cannotWrite,
            Text(
                "%s: %s. Logs go there. Nothing was changed. Make the directory (mkdir -p).",
                directory,
                std::generic_category().message(static_cast<int>(missing))
            )
        );
    }
    const bool anybodyMay = (status.st_mode & S_IWOTH) != 0 && (status.st_mode & S_ISVTX) == 0;
    if (status.st_uid != 0 || anybodyMay) {
        throw KSetupFailure(
            ExitCode::cannotWrite,
            Text(
                "%s: the directory of logs can be changed by others than root. Nothing was "
                "changed. Make it root's (chown root, chmod o-w).",
                directory
            )
        );
    }
    if (KSYS::ReadStatus(file, KSYS::LastLink::Keep, status) == 0 && !S_ISREG(status.st_mode)) {
        throw KSetupFailure(
            ExitCode::cannotWrite,
            Text(
                "%s: is no regular file, and a log is to be written there. Nothing was changed. "
                "Take it away.",
                file
            )
        );
    }
}

} // namespace KSETUP
