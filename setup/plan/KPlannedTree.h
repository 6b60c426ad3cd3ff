// SPDX-License-Identifier: MIT
#pragma once

#include <setup/plan/KDiskView.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <memory_resource>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include <sys/files/KPendingPath.h>

namespace KSETUP {

/// Why a path leads to no place.
enum class KPathProblem : std::uint8_t {
    None,
    Missing,     ///< a directory on the way is not there
    NoDirectory, ///< something else stands in its place
    Link,        ///< a link that is not followed: one of a circle, or of a stranger's
    TooLong,     ///< a name, or all of it
};

/// What a path stands for once its links are followed.
struct KPlannedPlace {
    KDiskView::Kept* at = nullptr; ///< valid as long as the view
    KPathProblem problem = KPathProblem::None;

    /// Normal, without links on the way as far as there are any.
    const std::string& GetPath() const noexcept { return at->first; }
};

/// The file system as rules would leave it, while nothing is changed: what they made and deleted so
/// far over what is on the disk. It also keeps the profile options that they put.
///
/// Links in paths are followed as a run follows them. A relative path begins at "/", where a run
/// works.
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

    /// What rules go on from that have left what the other has.
    KPlannedTree(const KPlannedTree& other);
    KPlannedTree& operator=(const KPlannedTree&) = delete;
    ~KPlannedTree() = default;

    enum class Last { Keep, Follow };  ///< a link that the path itself names
    enum class Links { Any, Trusted }; ///< Trusted: as where something is made or deleted
    KPlannedPlace Resolve(const std::string& path, Last last, Links links) const;

    /// What stands at the path, which may be a link. Valid until something else is there.
    const KPlannedEntry& Find(const std::string& path) const;
    /// What stands where the path leads to. Valid as above.
    const KPlannedEntry& FindTarget(const std::string& path) const;
    /// What stands at a place that a path was resolved to. Valid as above.
    const KPlannedEntry& FindAt(const KPlannedPlace& place) const;
    bool Exists(const std::string& path) const { return Find(path).kind != KEntryKind::Nothing; }
    /// The names in a directory that are no directories and match the pattern, sorted, as the
    /// engine enumerates them. Valid as long as the view.
    std::vector<std::string_view>
    List(const std::string& directory, const std::string& pattern) const;
    /// The same in a directory that is copied from.
    ///
    /// Throws   KSetupFailure when it cannot be read: that is not to be taken for empty
    std::vector<std::string_view>
    ListSources(const std::string& directory, const std::string& pattern) const;
    /// The directories in a directory of the disk that match the pattern, sorted. Valid as above.
    std::vector<std::string_view>
    ListDirectories(const std::string& directory, const std::string& pattern) const;
    /// Whether anything is in the directory.
    bool IsEmpty(const std::string& directory) const;

    /// Replaces a link at the path itself.
    void Put(const std::string& path, KPlannedEntry entry);
    /// A file with the bytes of another: resolved up to the last name, and with it.
    void PutCopy(const KPlannedPlace& toPlace, KPlannedEntry entry, const KPlannedPlace& fromPlace);
    /// With missing parents, as far as they can be made; those that were are in the result, the
    /// uppermost first.
    std::vector<std::string> MakeDirectory(const std::string& path);
    void Remove(const std::string& path);
    /// Of what stands at a place that a path was resolved to.
    void RemoveAt(const KPlannedPlace& place);

    /// The file on the disk that holds what a planned file would hold before options are put into
    /// it; empty for none.
    const std::string& GetContent(const std::string& path) const;

    struct Option {
        std::string section;
        std::string key;
        std::string value;
    };
    void PutOption(const std::string& profile, const Option& option);
    void RemoveOption(const std::string& profile, const Option& option);
    /// The options of a section, in their order: those on the disk and those that were put.
    const std::vector<Option>&
    ReadOptions(const std::string& profile, const std::string& section) const;

    /// Whether something was made or deleted at the normal path.
    bool HasChanged(const std::string& normal) const { return FindChange(normal) != nullptr; }
    bool HasChangedAt(const KPlannedPlace& place) const { return FindChange(*place.at) != nullptr; }
    /// Whether something was made at the normal path, and still stands.
    bool IsMade(const std::string& normal) const;

    /// A text of a plan; valid as long as the view, which GetView shares.
    const std::string& Keep(const std::string& text) const { return disk->Keep(text); }
    /// Of a path that leads to the place: mostly the place is named by it.
    const std::string& Keep(const std::string& path, const KPlannedPlace& place) const {
        return path == place.GetPath() ? place.GetPath() : disk->Keep(path);
    }
    const std::shared_ptr<KDiskView>& GetView() const noexcept { return disk; }

    /// Without separators at the end, "." and "..".
    static std::string Normal(const std::string& path);

  private:
    using Kept = KDiskView::Kept;
    using Section = std::pair<std::string, std::string>; ///< profile and section

    bool Counts(const std::string& path) const;
    using Lister = const std::vector<KDiskView::Name>& (KDiskView::*)(const std::string&);
    std::vector<std::string_view>
    ListBy(Lister lister, const std::string& directory, const std::string& pattern) const;
    const KPlannedEntry* FindChange(const std::string& normal) const;
    const KPlannedEntry* FindChange(const Kept& kept) const;
    const KPlannedEntry& At(const std::string& normal) const;
    const KPlannedEntry& At(Kept& kept) const;
    const KPlannedEntry& AtPlace(const KPlannedPlace& place) const;
    KPlannedPlace Walk(const std::string& path, Last last, Links links) const;
    KPlannedPlace EndedAt(std::string at, KSYS::KPendingPath& pending, KPathProblem problem) const;
    KPlannedPlace WalkToDirectory(std::string_view path, Links links) const;
    KPlannedPlace ResolveDirectory(std::string_view path, Links links) const;
    bool Follows(const std::string& directory, Links links) const;
    Kept& ToSet(const KPlannedPlace& place) const;
    void Set(Kept& kept, KPlannedEntry entry);
    void NoteAbove(Kept* path);
    void NoteMade(Kept& kept, bool wasMade, bool isMade);
    bool HasMadeBelow(const Kept* directory) const;
    const std::string& ContentAt(const Kept& kept) const;
    std::vector<Option>& LoadOptions(const std::string& profile, const std::string& section) const;

    Below below;
    std::string kit;
    std::string belowKit; // how the paths in it begin
    std::shared_ptr<KDiskView> disk;
    std::pmr::monotonic_buffer_resource memory; // of what only grows
    /// What was made and still stands, and what was deleted (kind Nothing).
    std::pmr::unordered_map<const Kept*, KPlannedEntry> changes{&memory};
    struct Changed {
        std::vector<Kept*> paths;  ///< in it, at or below which something changed
        std::size_t madeCount = 0; ///< of those at or below which something is made
    };
    std::pmr::unordered_map<const Kept*, Changed> changedBelow{&memory}; // by directory
    mutable std::map<Section, std::vector<Option>> options; // of sections that were asked for

    /// Directories that paths led to, by the path: rules have many files in few of them.
    struct Resolved {
        std::unordered_map<std::string, Kept*> directories;
        const std::pair<const std::string, Kept*>* last = nullptr; ///< that was asked for
        /// The last path that led to none, as those of a removed product do for thousands of files.
        std::string none;
        KPlannedPlace whereNone; ///< nothing once something changed
    };
    mutable std::array<Resolved, 2> resolved; // with links of anybody's, and with trusted ones
};

/// Whether rules take a name for a pattern, which KSUP::KFileEnum::Matches compares names with.
bool IsPattern(const std::string& name) noexcept;

} // namespace KSETUP
