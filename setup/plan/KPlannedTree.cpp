// SPDX-License-Identifier: MIT
#include <setup/files/PathText.h>
#include <setup/plan/KPlannedTree.h>
#include <sup++/KError.h>
#include <sup++/KFileEnum.h>
#include <sup++/KProfile.h>

#include <algorithm>
#include <climits>
#include <filesystem>
#include <set>
#include <utility>

namespace KSETUP {

namespace {

std::string Child(const std::string& directory, const std::string& name) {
    return directory == "/" ? "/" + name : directory + "/" + name;
}

} // namespace

bool IsPattern(const std::string& name) noexcept {
    return name.find_first_of("*?") != std::string::npos;
}

KPlannedTree::KPlannedTree(
    Below base, const std::string& kitDirectory, std::shared_ptr<KDiskView> view
)
    : below(base),
      kit(Normal(kitDirectory)),
      disk(std::move(view)) {}

std::string KPlannedTree::Normal(const std::string& path) {
    return NormalPath(path);
}

bool KPlannedTree::Counts(const std::string& path) const {
    return below == Below::Disk || path == "/" || path == kit ||
           path.starts_with(kit == "/" ? kit : kit + "/");
}

/// On an empty machine the way to the kit is there, and nothing beside it.
KPlannedEntry KPlannedTree::At(const std::string& normal) const {
    const auto change = changes.find(normal);
    if (change != changes.end()) {
        return change->second;
    }
    if (Counts(normal)) {
        return disk->Look(normal);
    }
    KPlannedEntry entry;
    entry.kind = IsAtOrBelow(kit, normal) ? KEntryKind::Directory : KEntryKind::Nothing;
    return entry;
}

/// Where a path leads to no place the disk has nothing. But rules may have gone on as if a missing
/// directory were there, which is told once.
KPlannedEntry KPlannedTree::AtPlace(const KPlannedPlace& place) const {
    if (place.problem == KPathProblem::None) {
        return At(place.path);
    }
    const auto change = changes.find(place.path);
    return change != changes.end() ? change->second : KPlannedEntry();
}

KPlannedEntry KPlannedTree::Find(const std::string& path) const {
    return AtPlace(Resolve(path, Last::Keep, Links::Any));
}

KPlannedEntry KPlannedTree::FindTarget(const std::string& path) const {
    return AtPlace(Resolve(path, Last::Follow, Links::Any));
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
    std::set<std::string> names; // sorted by byte, as the engine sorts
    const KPlannedPlace place = Resolve(directory, Last::Follow, Links::Any);
    if (place.problem == KPathProblem::Link || place.problem == KPathProblem::TooLong) {
        return {};
    }
    const std::string& normal = place.path;
    if (Counts(normal)) {
        for (const KDiskView::Name& one : (disk.get()->*lister)(normal)) {
            if (!one.isDirectory && KSUP::KFileEnum::Matches(one.name.c_str(), pattern.c_str())) {
                names.insert(names.end(), one.name);
            }
        }
    }
    const std::string prefix = Child(normal, "");
    for (auto at = changes.lower_bound(prefix); at != changes.end(); ++at) {
        const auto& [path, entry] = *at;
        if (!path.starts_with(prefix)) {
            break;
        }
        const std::string name = path.substr(prefix.size());
        if (name.empty() || name.find('/') != std::string::npos) {
            continue;
        }
        const bool isListed =
            entry.kind != KEntryKind::Nothing && entry.kind != KEntryKind::Directory;
        if (isListed && KSUP::KFileEnum::Matches(name.c_str(), pattern.c_str())) {
            names.insert(name);
        } else {
            names.erase(name);
        }
    }
    return {names.begin(), names.end()};
}

std::vector<std::string>
KPlannedTree::ListDirectories(const std::string& directory, const std::string& pattern) const {
    std::vector<std::string> names;
    const KPlannedPlace place = Resolve(directory, Last::Follow, Links::Any);
    if (place.problem != KPathProblem::None) {
        return {};
    }
    for (const KDiskView::Name& one : disk->List(place.path)) {
        if (one.isDirectory && KSUP::KFileEnum::Matches(one.name.c_str(), pattern.c_str())) {
            names.push_back(one.name);
        }
    }
    return names;
}

bool KPlannedTree::IsEmpty(const std::string& directory) const {
    const std::string normal = Resolve(directory, Last::Follow, Links::Any).path;
    const std::string prefix = Child(normal, "");
    for (auto at = changes.lower_bound(prefix); at != changes.end(); ++at) {
        if (!at->first.starts_with(prefix)) {
            break;
        }
        if (at->second.kind != KEntryKind::Nothing) {
            return false;
        }
    }
    if (!Counts(normal)) {
        return true;
    }
    const std::vector<KDiskView::Name>& all = disk->List(normal);
    return std::all_of(all.begin(), all.end(), [&](const KDiskView::Name& one) {
        const auto change = changes.find(Child(normal, one.name));
        return change != changes.end() && change->second.kind == KEntryKind::Nothing;
    });
}

void KPlannedTree::Set(const std::string& normal, KPlannedEntry entry) {
    entry.attribute = KSYS::ProtectingAttribute::None;
    const KEntryKind former = At(normal).kind;
    const auto isOnTheWay = [](KEntryKind kind) {
        return kind == KEntryKind::Directory || kind == KEntryKind::Link;
    };
    if (isOnTheWay(former) || isOnTheWay(entry.kind)) {
        lastDirectory = {};
    }
    changes.insert_or_assign(normal, std::move(entry));
    const auto begin = options.lower_bound({normal, ""});
    auto end = begin;
    while (end != options.end() && end->first.first == normal) {
        ++end;
    }
    options.erase(begin, end);
}

void KPlannedTree::Put(const std::string& path, KPlannedEntry entry) {
    Set(Resolve(path, Last::Keep, Links::Any).path, std::move(entry));
}

void KPlannedTree::PutCopy(
    const std::string& path, KPlannedEntry entry, const std::string& source
) {
    const std::string from = Resolve(source, Last::Follow, Links::Any).path;
    const std::string to = Resolve(path, Last::Keep, Links::Any).path;
    if (from == to) {
        return;
    }
    entry.content = GetContent(from);
    Put(path, std::move(entry));
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
    for (const std::filesystem::path& part : std::filesystem::path(path)) {
        const std::string name = part.string();
        if (name.empty() || name == "/" || name == ".") {
            continue;
        }
        const std::string child = name == ".." ? ParentPath(at) : Child(at, name);
        const KPlannedPlace place = Resolve(child, Last::Follow, Links::Trusted);
        KPlannedEntry entry = At(place.path);
        if (place.problem != KPathProblem::None ||
            (entry.kind != KEntryKind::Directory && Exists(child))) {
            break;
        }
        if (entry.kind == KEntryKind::Nothing) {
            entry = KPlannedEntry();
            entry.kind = KEntryKind::Directory;
            entry.mode = 0755;
            Set(place.path, std::move(entry));
            made.push_back(place.path);
        }
        at = place.path;
    }
    return made;
}

void KPlannedTree::Remove(const std::string& path) {
    Set(Resolve(path, Last::Keep, Links::Any).path, KPlannedEntry());
}

std::string KPlannedTree::GetContent(const std::string& path) const {
    const std::string normal = Resolve(path, Last::Follow, Links::Any).path;
    const auto change = changes.find(normal);
    return change != changes.end() ? change->second.content : Counts(normal) ? normal : "";
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
