// SPDX-License-Identifier: MIT
//
// How the planned tree follows a path: with the links that a run would follow, and no others.
#include <setup/files/PathText.h>
#include <setup/plan/KPlannedTree.h>

#include <climits>
#include <string_view>
#include <utility>

namespace KSETUP {

namespace {

constexpr int mostLinks = 40; // as the kernel's own limit

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

/// By its letters from where the walk ended.
KPlannedPlace
KPlannedTree::EndedAt(std::string at, KSYS::KPendingPath& pending, KPathProblem problem) const {
    while (!pending.IsEmpty()) {
        at = JoinPath(at, pending.Pop());
    }
    return {&disk->KeepPath(NormalPath(at)), problem};
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
        std::string child = JoinPath(at, name);
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
    return {&disk->KeepPath(at), KPathProblem::None};
}

KPlannedPlace KPlannedTree::WalkToDirectory(std::string_view path, Links links) const {
    const std::string_view name = NameOfPath(path);
    const bool isPlain =
        name.size() + 1 < path.size() && !name.empty() && name != "." && name != "..";
    if (isPlain && name.size() <= NAME_MAX) {
        const KPlannedPlace above = ResolveDirectory(DirectoryOfPath(path), links);
        KPlannedPlace place{&disk->KeepChild(*above.at, name), above.problem};
        const bool isFound = place.problem == KPathProblem::None;
        const KEntryKind kind = isFound ? At(*place.at).kind : KEntryKind::Nothing;
        if (kind != KEntryKind::Link) { // which may lead anywhere
            place.problem = isFound ? ProblemOf(kind) : place.problem;
            return place;
        }
    }
    KPlannedPlace place = Walk(std::string(path), Last::Follow, links);
    if (place.problem == KPathProblem::None) {
        place.problem = ProblemOf(At(*place.at).kind);
    }
    return place;
}

/// What leads to a directory does so until a link or a directory changes; with ".." it may also hang on
/// another directory. What leads to none may at the next change.
KPlannedPlace KPlannedTree::ResolveDirectory(std::string_view path, Links links) const {
    Resolved& known = resolved[links == Links::Any ? 0 : 1];
    if (known.last == nullptr || known.last->first != path) {
        const auto found = known.directories.find(std::string(path));
        known.last = found != known.directories.end() ? &*found : nullptr;
    }
    if (known.last != nullptr && At(*known.last->second).kind == KEntryKind::Directory) {
        return {known.last->second, KPathProblem::None};
    }
    if (known.whereNone.at != nullptr && known.none == path) {
        return known.whereNone;
    }
    const KPlannedPlace place = WalkToDirectory(path, links);
    if (place.problem != KPathProblem::None) {
        known.none = path;
        known.whereNone = place;
    } else if (!HasParentStep(path)) {
        known.last = &*known.directories.insert_or_assign(std::string(path), place.at).first;
    }
    return place;
}

KPlannedPlace KPlannedTree::Resolve(const std::string& path, Last lastLink, Links links) const {
    if ((lastLink == Last::Keep ? DirectoryOfPath(path) : path).size() >= PATH_MAX) {
        return {&disk->KeepPath(NormalPath(path)), KPathProblem::TooLong};
    }
    const std::size_t end = path.find_last_not_of('/');
    const std::string_view whole = std::string_view(path).substr(0, end + 1); // 0 for "/" alone
    const std::string_view name = NameOfPath(whole);
    if (name.size() + 1 >= whole.size() || name.empty() || name == "." || name == "..") {
        return Walk(path, lastLink, links);
    }
    const KPlannedPlace directory = ResolveDirectory(DirectoryOfPath(whole), links);
    Kept& child = disk->KeepChild(*directory.at, name);
    if (directory.problem != KPathProblem::None) {
        return {&child, directory.problem};
    }
    if (name.size() > NAME_MAX) {
        return {&child, KPathProblem::TooLong};
    }
    return lastLink == Last::Follow && At(child).kind == KEntryKind::Link
               ? Walk(path, lastLink, links)
               : KPlannedPlace{&child, KPathProblem::None};
}

} // namespace KSETUP
