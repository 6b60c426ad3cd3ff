// SPDX-License-Identifier: MIT
#include <setup/files/PathText.h>
#include <setup/plan/KPlannedTree.h>
#include <sup++/KError.h>
#include <sup++/KFileEnum.h>
#include <sup++/KProfile.h>

#include <algorithm>
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

KPlannedEntry KPlannedTree::Find(const std::string& path) const {
    const std::string normal = Normal(path);
    const auto change = changes.find(normal);
    if (change != changes.end()) {
        return change->second;
    }
    return Counts(normal) ? disk->Look(normal) : KPlannedEntry();
}

std::vector<std::string>
KPlannedTree::List(const std::string& directory, const std::string& pattern) const {
    const std::string normal = Normal(directory);
    std::set<std::string> names; // sorted by byte, as the engine sorts
    if (Counts(normal)) {
        for (const KDiskView::Name& one : disk->List(normal)) {
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
    for (const KDiskView::Name& one : disk->List(Normal(directory))) {
        if (one.isDirectory && KSUP::KFileEnum::Matches(one.name.c_str(), pattern.c_str())) {
            names.push_back(one.name);
        }
    }
    return names;
}

bool KPlannedTree::IsEmpty(const std::string& directory) const {
    const std::string normal = Normal(directory);
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

void KPlannedTree::Put(const std::string& path, KPlannedEntry entry) {
    changes.insert_or_assign(Normal(path), std::move(entry));
}

std::vector<std::string> KPlannedTree::MakeDirectory(const std::string& path) {
    std::vector<std::string> made;
    for (std::string at = Normal(path); at.size() > 1 && !Exists(at); at = ParentPath(at)) {
        made.insert(made.begin(), at);
        KPlannedEntry entry;
        entry.kind = KEntryKind::Directory;
        entry.mode = 0755;
        changes.insert_or_assign(at, entry);
    }
    return made;
}

void KPlannedTree::Remove(const std::string& path) {
    changes.insert_or_assign(Normal(path), KPlannedEntry());
}

void KPlannedTree::PutOption(const std::string& profile, const Option& option) {
    std::vector<Option>& all = options[Normal(profile)];
    const auto known = std::find_if(all.begin(), all.end(), [&](const Option& one) {
        return one.section == option.section && one.key == option.key;
    });
    if (known != all.end()) {
        known->value = option.value;
    } else {
        all.push_back(option);
    }
}

void KPlannedTree::RemoveOption(const std::string& profile, const Option& option) {
    removed.insert({Normal(profile), option.section, option.key, option.value});
    std::vector<Option>& all = options[Normal(profile)];
    std::erase_if(all, [&](const Option& one) {
        return one.section == option.section && one.key == option.key && one.value == option.value;
    });
}

std::vector<KPlannedTree::Option>
KPlannedTree::GetOptions(const std::string& profile, const std::string& section) const {
    const std::string path = Normal(profile);
    std::vector<Option> found;
    if (Counts(path) && disk->Look(path).kind != KEntryKind::Nothing) {
        try {
            KSUP::KProfile file;
            file.Open(path);
            file.BeginKeyEnum(section, nullptr);
            while (file.EnumKey(nullptr, false)) {
                Option option{section, file.GetKeyName().c_str(), file.GetKeyValue().c_str()};
                if (!removed.contains({path, section, option.key, option.value})) {
                    found.push_back(std::move(option));
                }
            }
        } catch (const KSUP::KError&) {
            found.clear(); // not to be read: the run will tell
        }
    }
    const auto put = options.find(path);
    if (put != options.end()) {
        for (const Option& option : put->second) {
            const auto known = std::find_if(found.begin(), found.end(), [&](const Option& one) {
                return one.key == option.key;
            });
            if (option.section != section) {
                continue;
            }
            if (known != found.end()) {
                known->value = option.value;
            } else {
                found.push_back(option);
            }
        }
    }
    return found;
}

} // namespace KSETUP
