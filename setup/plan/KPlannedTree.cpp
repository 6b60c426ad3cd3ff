// SPDX-License-Identifier: MIT
#include <setup/files/PathText.h>
#include <setup/plan/KPlannedTree.h>
#include <sup++/KError.h>
#include <sup++/KFileEnum.h>
#include <sup++/KProfile.h>

#include <algorithm>
#include <climits>
#include <string_view>
#include <utility>

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

KPlannedTree::KPlannedTree(const KPlannedTree& other)
    : below(other.below),
      kit(other.kit),
      belowKit(other.belowKit),
      disk(other.disk),
      changes(other.changes, &memory),
      changedBelow(other.changedBelow, &memory),
      options(other.options) {}

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
        return At(*place.at);
    }
    const KPlannedEntry* change = FindChange(*place.at);
    return change != nullptr ? *change : noEntry;
}

const KPlannedEntry& KPlannedTree::Find(const std::string& path) const {
    return AtPlace(Resolve(path, Last::Keep, Links::Any));
}

const KPlannedEntry& KPlannedTree::FindTarget(const std::string& path) const {
    return AtPlace(Resolve(path, Last::Follow, Links::Any));
}

const KPlannedEntry& KPlannedTree::FindAt(const KPlannedPlace& place) const {
    return place.problem == KPathProblem::None ? At(*place.at) : Find(place.GetPath());
}

std::vector<std::string_view>
KPlannedTree::List(const std::string& directory, const std::string& pattern) const {
    return ListBy(&KDiskView::List, directory, pattern);
}

std::vector<std::string_view>
KPlannedTree::ListSources(const std::string& directory, const std::string& pattern) const {
    return ListBy(&KDiskView::ListSources, directory, pattern);
}

std::vector<std::string_view> KPlannedTree::ListBy(
    Lister lister, const std::string& directory, const std::string& pattern
) const {
    const KPlannedPlace place = Resolve(directory, Last::Follow, Links::Any);
    if (place.problem == KPathProblem::Link || place.problem == KPathProblem::TooLong) {
        return {};
    }
    const auto matches = [&](std::string_view name) { // which its path ends with
        return KSUP::KFileEnum::Matches(name.data(), pattern.c_str());
    };
    const auto changed = changedBelow.find(place.at);
    const bool hasChanges = changed != changedBelow.end();
    std::vector<std::string_view> names; // sorted by byte, as the engine sorts
    if (Counts(place.GetPath())) {
        for (const KDiskView::Name& one : (disk.get()->*lister)(place.GetPath())) {
            if (!one.isDirectory && matches(one.Get()) &&
                !(hasChanges && FindChange(*one.path) != nullptr)) {
                names.push_back(one.Get());
            }
        }
    }
    if (!hasChanges) {
        return names;
    }
    for (const Kept* path : changed->second.paths) {
        const KPlannedEntry* change = FindChange(*path); // null on the way to one
        const std::string_view name = NameOfPath(path->first);
        if (change != nullptr && change->kind != KEntryKind::Nothing &&
            change->kind != KEntryKind::Directory && matches(name)) {
            names.push_back(name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string_view>
KPlannedTree::ListDirectories(const std::string& directory, const std::string& pattern) const {
    std::vector<std::string_view> names;
    const KPlannedPlace place = Resolve(directory, Last::Follow, Links::Any);
    if (place.problem != KPathProblem::None) {
        return {};
    }
    for (const KDiskView::Name& one : disk->List(place.GetPath())) {
        if (one.isDirectory && KSUP::KFileEnum::Matches(one.Get().data(), pattern.c_str())) {
            names.push_back(one.Get());
        }
    }
    return names;
}

bool KPlannedTree::IsEmpty(const std::string& directory) const {
    const KPlannedPlace place = Resolve(directory, Last::Follow, Links::Any);
    if (HasMadeBelow(place.at)) {
        return false;
    }
    if (!Counts(place.GetPath())) {
        return true;
    }
    const std::vector<KDiskView::Name>& all = disk->List(place.GetPath());
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
    const auto changed = changedBelow.find(directory);
    return changed != changedBelow.end() && changed->second.madeCount != 0;
}

/// What a path was found to lead to stays so, whatever is made where nothing was. A directory goes
/// when it is empty, and who finds it resolved looks whether it is there.
void KPlannedTree::Set(Kept& kept, KPlannedEntry entry) {
    entry.attribute = KSYS::ProtectingAttribute::None;
    for (Resolved& one : resolved) {
        one.whereNone = {};
    }
    const KEntryKind former = At(kept).kind;
    const bool stays = entry.kind == KEntryKind::Directory || entry.kind == KEntryKind::Nothing;
    if (former == KEntryKind::Link || (former == KEntryKind::Directory && !stays)) {
        resolved = {}; // the last ones too
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
    const auto begin = options.lower_bound({kept.first, ""});
    auto end = begin;
    while (end != options.end() && end->first.first == kept.first) {
        ++end;
    }
    options.erase(begin, end);
}

/// Of a new change. What is on the way to an earlier one is noted already.
void KPlannedTree::NoteAbove(Kept* path) {
    if (changedBelow.contains(path)) {
        return;
    }
    while (path->first.size() > 1) {
        Kept* parent = &disk->KeepParent(*path);
        const auto [changed, isNew] = changedBelow.try_emplace(parent);
        changed->second.paths.push_back(path);
        if (!isNew || changes.contains(parent)) {
            return;
        }
        path = parent;
    }
}

/// Tells the directories above, as far up as it is news: mostly one, which is made itself.
void KPlannedTree::NoteMade(Kept& kept, bool wasMade, bool isMade) {
    if (wasMade == isMade || HasMadeBelow(&kept)) {
        return;
    }
    Kept* at = &kept;
    while (at->first.size() > 1) {
        Kept& parent = disk->KeepParent(*at);
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
    Set(*Resolve(path, Last::Keep, Links::Any).at, entry);
}

/// A way that leads nowhere for who trusts few links may lead somewhere by the others.
KPlannedTree::Kept& KPlannedTree::ToSet(const KPlannedPlace& place) const {
    return place.problem == KPathProblem::None
               ? *place.at
               : *Resolve(place.GetPath(), Last::Keep, Links::Any).at;
}

void KPlannedTree::PutCopy(
    const KPlannedPlace& toPlace, KPlannedEntry entry, const KPlannedPlace& fromPlace
) {
    Kept& to = ToSet(toPlace);
    if (fromPlace.at == &to) {
        return;
    }
    entry.origin = &ContentAt(*fromPlace.at);
    Set(to, entry);
    if (options.empty()) {
        return;
    }
    std::vector<std::pair<Section, std::vector<Option>>> copied;
    const std::string& from = fromPlace.GetPath();
    for (auto at = options.lower_bound({from, ""}); at != options.end() && at->first.first == from;
         ++at) {
        copied.push_back({{to.first, at->first.second}, at->second});
    }
    options.insert(copied.begin(), copied.end());
}

/// Goes on as far as it can, as a run does, which does not tell where it could not.
std::vector<std::string> KPlannedTree::MakeDirectory(const std::string& path) {
    std::vector<std::string> made;
    // As long as the way to the last name is short enough, a run makes it and fails only then.
    const std::size_t end = path.find_last_not_of('/');
    const std::string_view whole = std::string_view(path).substr(0, end + 1);
    const std::string_view parent = DirectoryOfPath(whole);
    if (parent.size() >= PATH_MAX) {
        return made;
    }
    std::string at = "/";
    KSYS::KPendingPath names;
    KPlannedPlace above; // mostly it is there, and only the last one is to be made
    if (!parent.empty() && !HasParentStep(path)) {
        above = ResolveDirectory(parent, Links::Trusted);
    }
    if (above.at != nullptr && above.problem == KPathProblem::None) {
        at = above.GetPath();
        names.PushFront(NameOfPath(whole));
    } else {
        names.PushFront(path);
    }
    while (!names.IsEmpty()) {
        const std::string name = names.Pop();
        const std::string child = name == ".." ? ParentPath(at) : JoinPath(at, name);
        const KPlannedPlace place = Resolve(child, Last::Follow, Links::Trusted);
        const KEntryKind kind = At(*place.at).kind;
        if (place.problem != KPathProblem::None ||
            (kind != KEntryKind::Directory && Exists(child))) {
            break;
        }
        if (kind == KEntryKind::Nothing) {
            KPlannedEntry entry;
            entry.kind = KEntryKind::Directory;
            entry.mode = 0755;
            Set(*place.at, entry);
            made.push_back(place.GetPath());
        }
        at = place.GetPath();
    }
    return made;
}

void KPlannedTree::Remove(const std::string& path) {
    Set(*Resolve(path, Last::Keep, Links::Any).at, KPlannedEntry());
}

void KPlannedTree::RemoveAt(const KPlannedPlace& place) {
    Set(ToSet(place), KPlannedEntry());
}

const std::string& KPlannedTree::GetContent(const std::string& path) const {
    return ContentAt(*Resolve(path, Last::Follow, Links::Any).at);
}

const std::string& KPlannedTree::ContentAt(const Kept& kept) const {
    const KPlannedEntry* change = FindChange(kept);
    return change != nullptr ? change->GetContent() : Counts(kept.first) ? kept.first : noText;
}

/// Only a section that somebody asks for is read.
std::vector<KPlannedTree::Option>&
KPlannedTree::LoadOptions(const std::string& profile, const std::string& section) const {
    const std::string& path = Resolve(profile, Last::Follow, Links::Any).GetPath();
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
