// SPDX-License-Identifier: MIT
#pragma once

#include <setup/plan/KDiskView.h>

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace KSETUP {

/// The file system as rules would leave it, while nothing is changed: what they made and deleted so
/// far over what is on the disk. It also keeps the profile options that they put.
///
/// Paths are absolute; "." and ".." in them are taken by their letters.
///
/// Thread   one at a time
class KPlannedTree {
  public:
    enum class Below {
        Disk, ///< what is there counts
        Kit,  ///< only what is below one directory does: an empty machine with a kit
    };
    /// Over what the view shows, which trees may share; a new one by default.
    KPlannedTree(
        Below base,
        const std::string& kitDirectory,
        std::shared_ptr<KDiskView> view = std::make_shared<KDiskView>()
    );

    KPlannedEntry Find(const std::string& path) const;
    bool Exists(const std::string& path) const { return Find(path).kind != KEntryKind::Nothing; }
    /// The names in a directory that are no directories and match the pattern, sorted, as the
    /// engine enumerates them.
    std::vector<std::string> List(const std::string& directory, const std::string& pattern) const;
    /// The directories in a directory of the disk that match the pattern, sorted.
    std::vector<std::string>
    ListDirectories(const std::string& directory, const std::string& pattern) const;
    /// Whether anything is in the directory.
    bool IsEmpty(const std::string& directory) const;

    void Put(const std::string& path, KPlannedEntry entry);
    /// With missing parents; those that were made are in the result, the uppermost first.
    std::vector<std::string> MakeDirectory(const std::string& path);
    void Remove(const std::string& path);

    struct Option {
        std::string section;
        std::string key;
        std::string value;
    };
    void PutOption(const std::string& profile, const Option& option);
    void RemoveOption(const std::string& profile, const Option& option);
    /// The options of a section: those on the disk and those that were put.
    std::vector<Option> GetOptions(const std::string& profile, const std::string& section) const;

    /// What was made and still stands, and what was deleted (kind Nothing), by path.
    const std::map<std::string, KPlannedEntry>& GetChanges() const noexcept { return changes; }

    /// Without separators at the end, "." and "..".
    static std::string Normal(const std::string& path);

  private:
    bool Counts(const std::string& path) const;

    Below below;
    std::string kit;
    std::shared_ptr<KDiskView> disk;
    std::map<std::string, KPlannedEntry> changes;
    std::map<std::string, std::vector<Option>> options; // that were put, by profile
    /// Profile, section, key and value of what is on the disk and was removed.
    std::set<std::tuple<std::string, std::string, std::string, std::string>> removed;
};

/// Whether rules take a name for a pattern, which KSUP::KFileEnum::Matches compares names with.
bool IsPattern(const std::string& name) noexcept;

} // namespace KSETUP
