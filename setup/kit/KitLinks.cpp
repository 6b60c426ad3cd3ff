// SPDX-License-Identifier: MIT
#include <setup/files/PathText.h>
#include <setup/kit/KitLinks.h>

#include <algorithm>

#include <sys/files/DirectoryEntry.h>
#include <sys/files/KPendingPath.h>

namespace KSETUP {

namespace {

constexpr unsigned mostLinks = 40; // as the kernel's own limit

} // namespace

bool KLinkWay::StaysIn(const std::string& kit) const {
    return IsAtOrBelow(end, kit) &&
           std::all_of(passed.begin(), passed.end(), [&](const std::string& path) {
               return IsAtOrBelow(path, kit) || IsAtOrBelow(kit, path);
           });
}

KLinkWay FollowLink(const std::string& link) {
    KLinkWay way;
    KSYS::KPendingPath pending;
    pending.PushFront(NameOfPath(link));
    way.end = ParentPath(link);
    unsigned linksLeft = mostLinks;
    while (!pending.IsEmpty()) {
        const std::string name = pending.Pop();
        way.passed.push_back(way.end);
        const std::string path = name == ".." ? ParentPath(way.end) : JoinPath(way.end, name);
        struct stat status {};
        way.isThere = KSYS::ReadStatus(path, KSYS::LastLink::Keep, status) == 0;
        std::string target;
        if (way.isThere && S_ISLNK(status.st_mode)) {
            way.passed.push_back(path);
            way.isThere = linksLeft-- > 0 && KSYS::ReadLink(path, target) == 0;
        }
        if (!way.isThere) {
            return way;
        }
        if (target.empty()) {
            way.end = path;
        } else {
            pending.PushFront(target);
            way.end = target.front() == '/' ? "/" : way.end;
        }
    }
    return way;
}

} // namespace KSETUP
