// SPDX-License-Identifier: MIT
#include <setup/files/PathText.h>
#include <setup/plan/KPlanner.h>

#include <cerrno>
#include <climits>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

#include <sys/files/DirectoryEntry.h>

namespace KSETUP {

namespace {

using Kind = KPlannedAction::Kind;
using Fields = std::vector<std::string>;
using KINS::KRuleOperation;

constexpr const char* keptForeign = TextFormat("it is not the product's");
constexpr const char* keptEdited = TextFormat("it was edited");
constexpr const char* keptWithNew = TextFormat("it was edited; the kit's is put beside it");

/// "PATH is missing", or why that is not known.
KText WhyNothing(const std::string& path) {
    struct stat status {};
    const unsigned failed = KSYS::ReadStatus(path, KSYS::LastLink::Follow, status);
    return failed == 0 || failed == ENOENT || failed == ENOTDIR
               ? Text("%s is missing", path)
               : Text(
                     "%s cannot be looked at: %s",
                     path,
                     std::generic_category().message(static_cast<int>(failed))
                 );
}

bool NamesDirectory(const std::string& path) {
    return path.ends_with('/');
}

} // namespace

void KPlanner::PlanFile(KRuleOperation operation, const Fields& fields) {
    const std::string& name = fields[1];
    const std::string& directory = fields[2];
    const std::string target = fields.size() > 3 ? fields[3] : "";
    const std::string& targetName = fields.size() == 5 ? fields[4] : name;
    const std::string path = JoinPath(directory, name);
    if (operation == KRuleOperation::Copy && IsPattern(name)) {
        CopyMatches(path, target);
    } else if (operation == KRuleOperation::Copy) {
        Copy(path, JoinPath(target, targetName));
    } else if (operation == KRuleOperation::Delete && IsPattern(name)) {
        for (const std::string_view one : tree.List(directory, name)) {
            Delete(JoinPath(directory, one), KChangePolicy::Named::BySweep);
        }
    } else if (operation == KRuleOperation::Delete) {
        Delete(path, KChangePolicy::Named::ByScript);
    } else if (operation == KRuleOperation::Symlink) {
        Link(path, JoinPath(target, targetName));
    }
}

void KPlanner::CopyMatches(
    const std::string& pattern, const std::string& target, KChangePolicy::Treatment treatment
) {
    const std::string directory = pattern.substr(0, pattern.rfind('/') + 1);
    const KPlannedPlace place =
        tree.Resolve(directory, KPlannedTree::Last::Follow, KPlannedTree::Links::Any);
    if (place.problem == KPathProblem::Link || place.problem == KPathProblem::TooLong) {
        KPlannedAction action = ActionOf(tree, Kind::CopyFile, target, pattern);
        action.lacks = true;
        action.obstacle = KSETUP::WhyNoPlace(place, directory);
        actions.push_back(std::move(action));
        return;
    }
    const std::vector<std::string_view> names =
        tree.ListSources(directory, std::string(NameOfPath(pattern)));
    actions.reserve(names.size()); // mostly the rule does nothing else, and has that many
    for (const std::string_view one : names) {
        Copy(std::string(directory).append(one), JoinPath(target, one), treatment);
    }
}

bool KPlanner::WasMadeByPlan(const std::string& path) const {
    return tree.HasChanged(NormalPath(path));
}

bool KPlanner::WasMadeByPlan(const std::string& path, const KPlannedPlace& place) const {
    return path == place.GetPath() ? tree.HasChangedAt(place) : WasMadeByPlan(path);
}

bool KPlanner::MakeWay(const std::string& path) {
    const auto all = WasMadeByPlan(path) ? std::nullopt : policy.FindWhatGivesWay(path);
    if (!all) {
        return false;
    }
    for (const std::string& one : *all) {
        const KPlannedEntry former = tree.Find(one);
        const bool isDirectory = former.kind == KEntryKind::Directory;
        NoteChange(one, former);
        actions.push_back(
            ActionOf(tree, isDirectory ? Kind::DeleteDirectory : Kind::DeleteFile, one)
        );
        tree.Remove(one);
    }
    return true;
}

bool KPlanner::Keeps(const KPlannedAction& copy) {
    const auto treatment = copy.isConfiguration ? KChangePolicy::Treatment::Configuration
                                                : KChangePolicy::Treatment::Program;
    const auto decided = policy.DecideCopy(tree.GetContent(*copy.source), *copy.path, treatment);
    if (decided == KChangePolicy::Copy::Write) {
        return false;
    }
    const bool isOffered = decided == KChangePolicy::Copy::Offer;
    actions.push_back(KeepOf(
        tree,
        *copy.path,
        isOffered ? Text(keptWithNew) : Text("it was edited; the kit's is no newer")
    ));
    if (isOffered) {
        KPlannedAction beside = copy;
        beside.path = &tree.Keep(KChangePolicy::OfferedPath(*copy.path));
        beside.replaces = tree.Exists(*beside.path);
        NoteChange(*beside.path, tree.Find(*beside.path));
        beside.conflict = policy.WhyNotReplace(*beside.path, *copy.source);
        const auto from =
            tree.Resolve(*copy.source, KPlannedTree::Last::Follow, KPlannedTree::Links::Any);
        const auto to =
            tree.Resolve(*beside.path, KPlannedTree::Last::Keep, KPlannedTree::Links::Any);
        tree.PutCopy(to, tree.FindAt(from), from);
        actions.push_back(std::move(beside));
    }
    return true;
}

void KPlanner::Copy(
    const std::string& source, const std::string& target, KChangePolicy::Treatment treatment
) {
    const KPlannedPlace from =
        tree.Resolve(source, KPlannedTree::Last::Follow, KPlannedTree::Links::Any);
    // A link that is there is replaced itself: what it leads to is not the product's. One that the
    // script made is written through.
    KPlannedPlace place =
        tree.Resolve(target, KPlannedTree::Last::Keep, KPlannedTree::Links::Trusted);
    const bool isOurs = WasMadeByPlan(target, place);
    if (isOurs) {
        place = tree.Resolve(target, KPlannedTree::Last::Follow, KPlannedTree::Links::Trusted);
    }
    KPlannedAction action;
    action.kind = Kind::CopyFile;
    action.path = &tree.Keep(target, place);
    action.source = &tree.Keep(source, from);
    const KPlannedEntry& found = tree.FindAt(from);
    action.bytes = found.bytes;
    action.mode = found.mode;
    action.lacks = found.kind != KEntryKind::File;
    action.isConfiguration = policy.IsConfiguration(target, treatment);
    const KPlannedEntry& standing = tree.FindAt(place);
    KEntryKind former = standing.kind;
    action.replacesLink = former == KEntryKind::Link;
    if (!action.lacks && !isOurs && former != KEntryKind::Nothing &&
        former != KEntryKind::Directory) {
        if (Keeps(action)) {
            return;
        }
        action.conflict = policy.WhyNotReplace(target, tree.GetContent(source));
    }
    if (!action.lacks && former == KEntryKind::Directory && !NamesDirectory(target) &&
        MakeWay(target)) {
        former = KEntryKind::Nothing;
    }
    action.replaces = former != KEntryKind::Nothing;
    if (action.lacks) {
        action.obstacle = found.kind == KEntryKind::Nothing ? WhyNothing(source)
                                                            : Text("%s is no regular file", source);
    } else if (former == KEntryKind::Directory || NamesDirectory(target)) {
        action.obstacle = Text("%s is a directory", target);
    } else if (former == KEntryKind::Other) {
        action.obstacle = Text("%s is no regular file", target);
    } else {
        action.obstacle = KSETUP::WhyNoPlace(place, target);
    }
    action.lacksDirectory = place.problem == KPathProblem::Missing;
    // Also where its directory is missing: that is told once, not for all that follows.
    if (!action.lacks && former != KEntryKind::Directory) {
        if (former != KEntryKind::Nothing) {
            NoteChange(target, standing);
        }
        tree.PutCopy(place, found, from);
    }
    actions.push_back(std::move(action));
}

void KPlanner::Delete(const std::string& path, KChangePolicy::Named named) {
    const KPlannedPlace place =
        tree.Resolve(path, KPlannedTree::Last::Keep, KPlannedTree::Links::Trusted);
    KPlannedAction action;
    action.kind = Kind::DeleteFile;
    action.path = &tree.Keep(path, place);
    const bool isPlace =
        place.problem == KPathProblem::None || place.problem == KPathProblem::Missing;
    const KPlannedEntry found = isPlace ? tree.FindAt(place) : KPlannedEntry();
    action.bytes = found.bytes;
    action.lacks = found.kind == KEntryKind::Nothing || found.kind == KEntryKind::Directory;
    if (found.kind == KEntryKind::Directory || NamesDirectory(path)) {
        action.lacks = true;
        action.obstacle = Text("%s is a directory", path);
    } else if (place.problem != KPathProblem::Missing) {
        action.obstacle = KSETUP::WhyNoPlace(place, path);
    }
    if (!action.lacks && !WasMadeByPlan(path, place)) {
        if (!policy.MayDelete(path, named)) {
            actions.push_back(
                KeepOf(tree, path, Text(policy.IsEdited(path) ? keptEdited : keptForeign))
            );
            return;
        }
        action.conflict = policy.WhyNotDelete(path);
    }
    if (!action.lacks) {
        NoteChange(path, found);
        tree.RemoveAt(place);
    }
    actions.push_back(std::move(action));
}

void KPlanner::DeleteIfPossible(const std::string& path, KChangePolicy::Named named) {
    Delete(path, named);
    actions.back().obstacle = {};
}

void KPlanner::Link(const std::string& target, const std::string& path) {
    KPlannedAction action = ActionOf(tree, Kind::MakeLink, path, target);
    KPlannedEntry former = tree.Find(path);
    const bool isInTheWay = former.kind == KEntryKind::File || former.kind == KEntryKind::Directory;
    if (isInTheWay && !NamesDirectory(path) && MakeWay(path)) {
        former = KPlannedEntry();
    }
    action.replaces = former.kind != KEntryKind::Nothing;
    if (action.replaces && former.kind != KEntryKind::Link) {
        action.obstacle = Text("%s is no link, and a link replaces nothing else", path);
    } else if (target.size() >= PATH_MAX) {
        action.obstacle = Text("a link cannot lead to so long a path: %s", target);
    } else if (NamesDirectory(path)) {
        action.obstacle = Text("%s names a directory", path);
    } else {
        action.obstacle = WhyNoPlace(path, KPlannedTree::Last::Keep);
    }
    if (action.obstacle.empty() && action.replaces && former.GetTarget() != target &&
        !WasMadeByPlan(path)) {
        action.conflict = policy.WhyNotReplace(path);
    }
    action.lacksDirectory =
        tree.Resolve(path, KPlannedTree::Last::Keep, KPlannedTree::Links::Trusted).problem ==
        KPathProblem::Missing;
    KPlannedEntry entry;
    entry.kind = KEntryKind::Link;
    entry.origin = &tree.Keep(target);
    tree.Put(path, entry);
    actions.push_back(std::move(action));
}

void KPlanner::PlanDirectory(KRuleOperation operation, const std::string& path) {
    if (operation == KRuleOperation::Create) {
        const KEntryKind former = tree.FindTarget(path).kind;
        if (former != KEntryKind::Directory && tree.Exists(path)) {
            MakeWay(path);
        }
        for (const std::string& made : tree.MakeDirectory(path)) {
            actions.push_back(ActionOf(tree, Kind::CreateDirectory, made));
        }
        if (IsBlockedByDisk(path)) { // the run is refused for it, so it is told
            actions.push_back(ActionOf(tree, Kind::CreateDirectory, path));
        }
    } else if (operation == KRuleOperation::Delete) {
        for (const std::string_view name : tree.List(path, "*")) {
            DeleteIfPossible(JoinPath(path, name), KChangePolicy::Named::BySweep);
        }
        DeleteEmptyDirectory(path);
    }
}

void KPlanner::DeleteEmptyDirectory(const std::string& path) {
    KPlannedAction action = ActionOf(tree, Kind::DeleteDirectory, path);
    const KPlannedPlace place =
        tree.Resolve(path, KPlannedTree::Last::Keep, KPlannedTree::Links::Trusted);
    const KPlannedEntry found = tree.Find(path);
    action.lacks = place.problem != KPathProblem::None || found.kind != KEntryKind::Directory ||
                   !tree.IsEmpty(path);
    if (!action.lacks) {
        NoteChange(path, found);
        tree.Remove(path);
    }
    actions.push_back(std::move(action));
}

bool KPlanner::IsBlockedByDisk(const std::string& path) const {
    std::string at = ParentPath(NormalPath(path));
    while (!at.empty() && at != "/" && !tree.Exists(at)) {
        at = ParentPath(at);
    }
    const KEntryKind kind = tree.FindTarget(at).kind;
    return (kind == KEntryKind::File || kind == KEntryKind::Other) && !tree.HasChanged(at);
}

} // namespace KSETUP
