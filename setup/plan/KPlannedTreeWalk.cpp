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

/// By its letters from where the walk ended.
KPlannedPlace EndedAt(std::string at, KSYS::KPendingPath& pending, KPathProblem problem) {
    while (!pending.IsEmpty()) {
        at = ChildPath(at, pending.Pop());
    }
    return {NormalPath(at), problem};
}

/// Of what is to be a directory.
KPathProblem ProblemOf(KEntryKind kind) {
    return kind == KEntryKind::Directory ? KPathProblem::None
           : kind == KEntryKind::Nothing ? KPathProblem::Missing
                                         : KPathProblem::NoDirectory;
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
        std::string child = ChildPath(at, name);
        if (name.size() > NAME_MAX) {
            return EndedAt(std::move(child), pending, KPathProblem::TooLong);
        }
        const KPlannedEntry& entry = At(child);
        const bool isLast = pending.IsEmpty();
        if (entry.kind == KEntryKind::Link && !(isLast && lastLink == Last::Keep)) {
            if (linksLeft-- == 0 || !Follows(at, links)) {
                return EndedAt(std::move(child), pending, KPathProblem::Link);
            }
            pending.PushFront(entry.GetTarget());
            if (entry.GetTarget().starts_with('/')) {
                at = "/";
            }
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

KPlannedPlace KPlannedTree::WalkToDirectory(const std::string& path, Links links) const {
    const std::string name(NameOfPath(path));
    const bool isPlain =
        name.size() + 1 < path.size() && !name.empty() && name != "." && name != "..";
    if (isPlain && name.size() <= NAME_MAX) {
        const KPlannedPlace& above = ResolveDirectory(ParentPath(path), links);
        KPlannedPlace place{ChildPath(above.path, name), above.problem};
        const bool isFound = place.problem == KPathProblem::None;
        const KEntryKind kind = isFound ? At(place.path).kind : KEntryKind::Nothing;
        if (kind != KEntryKind::Link) { // which may lead anywhere
            place.problem = isFound ? ProblemOf(kind) : place.problem;
            return place;
        }
    }
    KPlannedPlace place = Walk(path, Last::Follow, links);
    if (place.problem == KPathProblem::None) {
        place.problem = ProblemOf(At(place.path).kind);
    }
    return place;
}

/// Only what leads to a directory is kept: it is so until a link or a directory changes. With ".." it
/// may also hang on another directory.
const KPlannedPlace& KPlannedTree::ResolveDirectory(const std::string& path, Links links) const {
    auto& known = resolved[links == Links::Any ? 0 : 1];
    const auto found = known.find(path);
    if (found != known.end() && At(found->second.path).kind == KEntryKind::Directory) {
        return found->second;
    }
    KPlannedPlace place = WalkToDirectory(path, links);
    if (place.problem != KPathProblem::None || HasParentStep(path)) {
        unresolved = std::move(place);
        return unresolved;
    }
    return known.insert_or_assign(path, std::move(place)).first->second;
}

KPlannedPlace KPlannedTree::Resolve(const std::string& path, Last lastLink, Links links) const {
    if ((lastLink == Last::Keep ? ParentPath(path) : path).size() >= PATH_MAX) {
        return {NormalPath(path), KPathProblem::TooLong};
    }
    const std::size_t end = path.find_last_not_of('/');
    const std::string_view whole = std::string_view(path).substr(0, end + 1); // 0 for "/" alone
    const std::string name(NameOfPath(whole));
    if (name.size() + 1 >= whole.size() || name.empty() || name == "." || name == "..") {
        return Walk(path, lastLink, links);
    }
    const KPlannedPlace& directory = ResolveDirectory(ParentPath(whole), links);
    std::string child = ChildPath(directory.path, name);
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
