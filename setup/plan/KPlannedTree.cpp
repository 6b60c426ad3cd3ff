// SPDX-License-Identifier: MIT
#include <setup/files/PathText.h>
#include <setup/plan/KPlannedTree.h>
#include <sup++/KError.h>
#include <sup++/KFileEnum.h>
#include <sup++/KProfile.h>

#include <algorithm>
#include <climits>
#include <set>
#include <string_view>
#include <utility>

#include <sys/files/KPendingPath.h>

namespace KSETUP {

namespace {

const KPlannedEntry noEntry;
const KPlannedEntry wayToKit = [] {
    KPlannedEntry directory;
    directory.kind = KEntryKind::Directory;
    return directory;
}();

} // namespace

bool IsPattern(const std::string& name) noexcept {
    return name.find_first_of("*?") != std::string::npos;
}

KPlannedTree::KPlannedTree(
    Below base, const std::string& kitDirectory, std::shared_ptr<KDiskView> view
)
    : below(base),
      kit(Normal(kitDirectory)),
      belowKit(kit == "/" ? kit : kit + "/"),
      disk(std::move(view)) {}

std::string KPlannedTree::Normal(const std::string& path) {
    return NormalPath(path);
}

bool KPlannedTree::Counts(const std::string& path) const {
    return below == Below::Disk || path == "/" || path == kit || path.starts_with(belowKit);
}

const KPlannedEntry* KPlannedTree::FindChange(const std::string& normal) const {
    const Kept* kept = changes.empty() ? nullptr : disk->FindKept(normal);
    return kept != nullptr ? FindChange(*kept) : nullptr;
}

const KPlannedEntry* KPlannedTree::FindChange(const Kept& kept) const {
    const auto change = changes.find(&kept);
    return change != changes.end() ? &change->second : nullptr;
}

/// On an empty machine the way to the kit is there, and nothing beside it.
const KPlannedEntry& KPlannedTree::At(const std::string& normal) const {
    if (Kept* kept = disk->FindKept(normal)) {
        return At(*kept);
    }
    if (Counts(normal)) {
        return disk->Look(normal);
    }
    return IsAtOrBelow(kit, normal) ? wayToKit : noEntry;
}

const KPlannedEntry& KPlannedTree::At(Kept& kept) const {
    if (const KPlannedEntry* change = FindChange(kept)) {
        return *change;
    }
    if (Counts(kept.first)) {
        return disk->Look(kept);
    }
    return IsAtOrBelow(kit, kept.first) ? wayToKit : noEntry;
}

/// Where a path leads to no place the disk has nothing. But rules may have gone on as if a missing
/// directory were there, which is told once.
const KPlannedEntry& KPlannedTree::AtPlace(const KPlannedPlace& place) const {
    if (place.problem == KPathProblem::None) {
        return At(place.path);
    }
    const KPlannedEntry* change = FindChange(place.path);
    return change != nullptr ? *change : noEntry;
}

const KPlannedEntry& KPlannedTree::Find(const std::string& path) const {
    return AtPlace(Resolve(path, Last::Keep, Links::Any));
}

const KPlannedEntry& KPlannedTree::FindTarget(const std::string& path) const {
    return AtPlace(Resolve(path, Last::Follow, Links::Any));
}

const KPlannedEntry& KPlannedTree::FindAt(const KPlannedPlace& place) const {
    return place.problem == KPathProblem::None ? At(place.path) : Find(place.path);
}

std::vector<std::string>
KPlannedTree::List(const std::string& directory, const std::string& pattern) const {
    return ListBy(&KDiskView::List, directory, pattern);
}

std::vector<std::string>
KPlannedTree::ListSources(const std::string& directory, const std::string& pattern) const {
    return ListBy(&KDiskView::ListSources, directory, pattern);
}

std::vector<std::string> KPlannedTree::ListBy(
    Lister lister, const std::string& directory, const std::string& pattern
) const {
    const KPlannedPlace place = Resolve(directory, Last::Follow, Links::Any);
    if (place.problem == KPathProblem::Link || place.problem == KPathProblem::TooLong) {
        return {};
    }
    const auto matches = [&](const std::string& name) {
        return KSUP::KFileEnum::Matches(name.c_str(), pattern.c_str());
    };
    const std::string& normal = place.path;
    std::vector<std::string> names; // sorted by byte, as the engine sorts
    if (Counts(normal)) {
        for (const KDiskView::Name& one : (disk.get()->*lister)(normal)) {
            if (std::string name(one.Get()); !one.isDirectory && matches(name)) {
                names.push_back(std::move(name));
            }
        }
    }
    const Kept* kept = disk->FindKept(normal);
    const auto changed = kept != nullptr ? changedBelow.find(kept) : changedBelow.end();
    if (changed == changedBelow.end()) {
        return names;
    }
    std::set<std::string> all(names.begin(), names.end());
    for (const Kept* path : changed->second.paths) {
        const auto change = changes.find(path);
        if (change == changes.end()) { // it is on the way to one
            continue;
        }
        const std::string name(NameOfPath(path->first));
        const KEntryKind kind = change->second.kind;
        if (kind != KEntryKind::Nothing && kind != KEntryKind::Directory && matches(name)) {
            all.insert(name);
        } else {
            all.erase(name);
        }
    }
    return {all.begin(), all.end()};
}

std::vector<std::string>
KPlannedTree::ListDirectories(const std::string& directory, const std::string& pattern) const {
    std::vector<std::string> names;
    const KPlannedPlace place = Resolve(directory, Last::Follow, Links::Any);
    if (place.problem != KPathProblem::None) {
        return {};
    }
    for (const KDiskView::Name& one : disk->List(place.path)) {
        std::string name(one.Get());
        if (one.isDirectory && KSUP::KFileEnum::Matches(name.c_str(), pattern.c_str())) {
            names.push_back(std::move(name));
        }
    }
    return names;
}

bool KPlannedTree::IsEmpty(const std::string& directory) const {
    const std::string normal = Resolve(directory, Last::Follow, Links::Any).path;
    if (HasMadeBelow(disk->FindKept(normal))) {
        return false;
    }
    if (!Counts(normal)) {
        return true;
    }
    const std::vector<KDiskView::Name>& all = disk->List(normal);
    return std::all_of(all.begin(), all.end(), [&](const KDiskView::Name& one) {
        const auto change = changes.find(one.path);
        return change != changes.end() && change->second.kind == KEntryKind::Nothing;
    });
}

bool KPlannedTree::IsMade(const std::string& normal) const {
    const KPlannedEntry* change = FindChange(normal);
    return change != nullptr && change->kind != KEntryKind::Nothing;
}

bool KPlannedTree::HasMadeBelow(const Kept* directory) const {
    const auto changed = directory != nullptr ? changedBelow.find(directory) : changedBelow.end();
    return changed != changedBelow.end() && changed->second.madeCount != 0;
}

/// What a path was found to lead to stays so, whatever is made where nothing was. A directory goes
/// when it is empty, and who finds it resolved looks whether it is there.
void KPlannedTree::Set(const std::string& normal, KPlannedEntry entry) {
    entry.attribute = KSYS::ProtectingAttribute::None;
    Kept& kept = disk->KeepPath(normal);
    const KEntryKind former = At(kept).kind;
    const bool stays = entry.kind == KEntryKind::Directory || entry.kind == KEntryKind::Nothing;
    if (former == KEntryKind::Link || (former == KEntryKind::Directory && !stays)) {
        resolved = {};
    }
    const KPlannedEntry* change = FindChange(kept);
    const bool wasMade = change != nullptr && change->kind != KEntryKind::Nothing;
    const bool isMade = entry.kind != KEntryKind::Nothing;
    if (changes.insert_or_assign(&kept, entry).second) {
        NoteAbove(&kept);
    }
    NoteMade(kept, wasMade, isMade);
    if (options.empty()) {
        return;
    }
    const auto begin = options.lower_bound({normal, ""});
    auto end = begin;
    while (end != options.end() && end->first.first == normal) {
        ++end;
    }
    options.erase(begin, end);
}

/// Of a new change. What is on the way to an earlier one is noted already.
void KPlannedTree::NoteAbove(const Kept* path) {
    if (changedBelow.contains(path)) {
        return;
    }
    while (path->first.size() > 1) {
        const Kept* parent = &disk->KeepPath(ParentPath(path->first));
        const auto [changed, isNew] = changedBelow.try_emplace(parent);
        changed->second.paths.push_back(path);
        if (!isNew || changes.contains(parent)) {
            return;
        }
        path = parent;
    }
}

/// Tells the directories above, as far up as it is news: mostly one, which is made itself.
void KPlannedTree::NoteMade(const Kept& kept, bool wasMade, bool isMade) {
    if (wasMade == isMade || HasMadeBelow(&kept)) {
        return;
    }
    const Kept* at = &kept;
    while (at->first.size() > 1) {
        const Kept& parent = disk->KeepPath(ParentPath(at->first));
        std::size_t& count = changedBelow.at(&parent).madeCount;
        const bool isAlone = (isMade ? count++ : --count) == 0;
        const KPlannedEntry* change = FindChange(parent);
        if (!isAlone || (change != nullptr && change->kind != KEntryKind::Nothing)) {
            return;
        }
        at = &parent;
    }
}

void KPlannedTree::Put(const std::string& path, KPlannedEntry entry) {
    Set(Resolve(path, Last::Keep, Links::Any).path, entry);
}

void KPlannedTree::PutCopy(
    const KPlannedPlace& toPlace, KPlannedEntry entry, const KPlannedPlace& fromPlace
) {
    const std::string& from = fromPlace.path;
    const std::string to = toPlace.problem == KPathProblem::None
                               ? toPlace.path
                               : Resolve(toPlace.path, Last::Keep, Links::Any).path;
    if (from == to) {
        return;
    }
    entry.origin = &ContentAt(from);
    Set(to, entry);
    if (options.empty()) {
        return;
    }
    std::vector<std::pair<Section, std::vector<Option>>> copied;
    for (auto at = options.lower_bound({from, ""}); at != options.end() && at->first.first == from;
         ++at) {
        copied.push_back({{to, at->first.second}, at->second});
    }
    options.insert(copied.begin(), copied.end());
}

/// Goes on as far as it can, as a run does, which does not tell where it could not.
std::vector<std::string> KPlannedTree::MakeDirectory(const std::string& path) {
    std::vector<std::string> made;
    // As long as the way to the last name is short enough, a run makes it and fails only then.
    const std::size_t end = path.find_last_not_of('/');
    if (end != std::string::npos && ParentPath(path.substr(0, end + 1)).size() >= PATH_MAX) {
        return made;
    }
    std::string at = "/";
    KSYS::KPendingPath names;
    const std::string_view whole = std::string_view(path).substr(0, end + 1);
    const KPlannedPlace* above = nullptr; // mostly it is there, and only the last one is to be made
    if (const std::string parent = ParentPath(whole); !parent.empty() && !HasParentStep(path)) {
        above = &ResolveDirectory(parent, Links::Trusted);
    }
    if (above != nullptr && above->problem == KPathProblem::None) {
        at = above->path;
        names.PushFront(NameOfPath(whole));
    } else {
        names.PushFront(path);
    }
    while (!names.IsEmpty()) {
        const std::string name = names.Pop();
        const std::string child = name == ".." ? ParentPath(at) : ChildPath(at, name);
        const KPlannedPlace place = Resolve(child, Last::Follow, Links::Trusted);
        const KEntryKind kind = At(place.path).kind;
        if (place.problem != KPathProblem::None ||
            (kind != KEntryKind::Directory && Exists(child))) {
            break;
        }
        if (kind == KEntryKind::Nothing) {
            KPlannedEntry entry;
            entry.kind = KEntryKind::Directory;
            entry.mode = 0755;
            Set(place.path, entry);
            made.push_back(place.path);
        }
        at = place.path;
    }
    return made;
}

void KPlannedTree::Remove(const std::string& path) {
    Set(Resolve(path, Last::Keep, Links::Any).path, KPlannedEntry());
}

const std::string& KPlannedTree::GetContent(const std::string& path) const {
    return ContentAt(Resolve(path, Last::Follow, Links::Any).path);
}

const std::string& KPlannedTree::ContentAt(const std::string& normal) const {
    const Kept& kept = disk->KeepPath(normal);
    const KPlannedEntry* change = FindChange(kept);
    return change != nullptr ? change->GetContent() : Counts(normal) ? kept.first : noText;
}

/// Only a section that somebody asks for is read.
std::vector<KPlannedTree::Option>&
KPlannedTree::LoadOptions(const std::string& profile, const std::string& section) const {
    const std::string path = Resolve(profile, Last::Follow, Links::Any).path;
    const auto [at, isNew] = options.try_emplace({path, section});
    std::vector<Option>& all = at->second;
    const std::string content = isNew ? GetContent(path) : "";
    if (content.empty() || disk->Look(content).kind == KEntryKind::Nothing) {
        return all;
    }
    try {
        KSUP::KProfile file;
        file.Open(content);
        file.BeginKeyEnum(section, nullptr);
        while (file.EnumKey(nullptr, false)) {
            all.push_back({section, file.GetKeyName().c_str(), file.GetKeyValue().c_str()});
        }
    } catch (const KSUP::KError&) {
        all.clear(); // not to be read: the run will tell
    }
    return all;
}

void KPlannedTree::PutOption(const std::string& profile, const Option& option) {
    std::vector<Option>& all = LoadOptions(profile, option.section);
    const auto known = std::find_if(all.begin(), all.end(), [&](const Option& one) {
        return one.key == option.key;
    });
    if (known != all.end()) {
        known->value = option.value;
    } else {
        all.push_back(option);
    }
}

void KPlannedTree::RemoveOption(const std::string& profile, const Option& option) {
    std::vector<Option>& all = LoadOptions(profile, option.section);
    const auto known = std::find_if(all.begin(), all.end(), [&](const Option& one) {
        return one.key == option.key && one.value == option.value;
    });
    if (known != all.end()) {
        all.erase(known);
    }
}

const std::vector<KPlannedTree::Option>&
KPlannedTree::ReadOptions(const std::string& profile, const std::string& section) const {
    return LoadOptions(profile, section);
}

} // namespace KSETUP
