// SPDX-License-Identifier: MIT
#include <setup/files/AccountNames.h>
#include <setup/files/PathText.h>
#include <setup/files/TrustedPath.h>

#include <sys/files/DirectoryEntry.h>
#include <sys/files/KPendingPath.h>

namespace KSETUP {

namespace {

constexpr int mostLinks = 40; // as the kernel's own limit

bool OthersMayWrite(const struct stat& status) noexcept {
    return !S_ISLNK(status.st_mode) && (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

/// `isLast` says that what is in the directory counts, not only that it stays what it is.
KText WhyNotRoots(const std::string& path, const struct stat& status, bool isLast) {
    const KText name = S_ISLNK(status.st_mode) ? Text("the link %s", path) : KText(path);
    if (status.st_uid != 0) {
        return Text("%s belongs to the user %s", name, UserName(status.st_uid));
    }
    const bool isSticky = S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX) != 0;
    return OthersMayWrite(status) && (isLast || !isSticky)
               ? Text("%s can be written to by others than root", name)
               : "";
}

} // namespace

KText WhyOthersCanExchange(const std::string& path, KPathEnd end) {
    KSYS::KPendingPath pending;
    pending.PushFront(path);
    int linksLeft = mostLinks;
    bool anybodyMayLay = false; // in the directory that was entered last
    std::string at = "/";
    while (!pending.IsEmpty()) {
        const std::string name = pending.Pop();
        if (name == "..") {
            at = ParentPath(at);
            continue;
        }
        const std::string child = JoinPath(at, name);
        struct stat status {};
        if (KSYS::ReadStatus(child, KSYS::LastLink::Keep, status) != 0) {
            return anybodyMayLay ? Text("anybody can lay %s", child) : "";
        }
        const bool isLast = pending.IsEmpty();
        const bool counts = !isLast || end == KPathEnd::Counts || S_ISLNK(status.st_mode);
        if (KText why = WhyNotRoots(child, status, isLast); counts && !why.empty()) {
            return why;
        }
        std::string target;
        if (S_ISLNK(status.st_mode) && linksLeft-- > 0 && KSYS::ReadLink(child, target) == 0) {
            pending.PushFront(target);
            at = target.starts_with('/') ? "/" : at;
            continue;
        }
        anybodyMayLay = OthersMayWrite(status);
        at = child;
    }
    return {};
}

} // namespace KSETUP
