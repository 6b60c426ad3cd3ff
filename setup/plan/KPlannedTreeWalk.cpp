// SPDX-License-Identifier: MIT
//
// How the planned tree follows a path: with the links that a run would follow, and no others.
#include <setup/files/PathText.h>
#include <setup/plan/KPlannedTree.h>

#include <climits>
#include <string_view>

#include <sys/files/KPendingPath.h>

namespace KSETUP {

namespace {

constexpr int mostLinks = 40; // as the kernel's own limit

std::string Child(const std::string& directory, const std::string& name) {
    return directory == "/" ? "/" + name : directory + "/" + name;
}

/// By its letters from where the walk ended.
KPlannedPlace EndedAt(std::string at, KSYS::KPendingPath& pending, KPathProblem problem) {
    while (!pending.IsEmpty()) {
        at = Child(at, pending.Pop());
    }
    return {NormalPath(at), problem};
}

} // namespace

bool KPlannedTree::Follows(const std::string& directory, Links links) const {
    return links == Links::Any || below == Below::Kit || !At(directory).isShared;
}

KPlannedPlace KPlannedTree::Walk(const std::string& path, Last lastLink, Links links) const {
    KSYS::KPendingPath pending;
    pending.PushFront(path);
    int linksLeft = mostLinks;
    std::string at = "/";
    while (!pending.IsEmpty()) {
        const std::string name = pending.Pop();
        if (name == "..") {
            at = ParentPath(at);
            continue;
        }
        std::string child = Child(at, name);
        if (name.size() > NAME_MAX) {
            return EndedAt(std::move(child), pending, KPathProblem::TooLong);
        }
        const KPlannedEntry entry = At(child);
        const bool isLast = pending.IsEmpty();
        if (entry.kind == KEntryKind::Link && !(isLast && lastLink == Last::Keep)) {
            if (linksLeft-- == 0 || !Follows(at, links)) {
                return EndedAt(std::move(child), pending, KPathProblem::Link);
            }
            pending.PushFront(entry.target);
            at = entry.target.starts_with('/') ? "/" : at;
            continue;
        }
        at = std::move(child);
        if (!isLast && entry.kind != KEntryKind::Directory) {
            return EndedAt(
                std::move(at),
                pending,
                entry.kind == KEntryKind::Nothing ? KPathProblem::Missing
                                                  : KPathProblem::NoDirectory
            );
        }
    }
    return {std::move(at), KPathProblem::None};
}

const KPlannedPlace& KPlannedTree::ResolveDirectory(const std::string& path, Links links) const {
    if (lastDirectory.path != path || lastDirectory.links != links) {
        KPlannedPlace place = Walk(path, Last::Follow, links);
        if (place.problem == KPathProblem::None) {
            const KEntryKind kind = At(place.path).kind;
            place.problem = kind == KEntryKind::Directory ? KPathProblem::None
                            : kind == KEntryKind::Nothing ? KPathProblem::Missing
                                                          : KPathProblem::NoDirectory;
        }
        lastDirectory = {path, links, std::move(place)};
    }
    return lastDirectory.place;
}

KPlannedPlace KPlannedTree::Resolve(const std::string& path, Last lastLink, Links links) const {
    if ((lastLink == Last::Keep ? ParentPath(path) : path).size() >= PATH_MAX) {
        return {NormalPath(path), KPathProblem::TooLong};
    }
    const std::string name(NameOfPath(path));
    if (name.size() + 1 >= path.size() || name.empty() || name == "." || name == "..") {
        return Walk(path, lastLink, links);
    }
    const KPlannedPlace& directory = ResolveDirectory(ParentPath(path), links);
    std::string child = Child(directory.path, name);
    if (directory.problem != KPathProblem::None) {
        return {std::move(child), directory.problem};
    }
    if (name.size() > NAME_MAX) {
        return {std::move(child), KPathProblem::TooLong};
    }
    return lastLink == Last::Follow && At(child).kind == KEntryKind::Link
               ? Walk(path, lastLink, links)
               : KPlannedPlace{std::move(child), KPathProblem::None};
}

} // namespace KSETUP
