// SPDX-License-Identifier: MIT
#pragma once

#include <setup/files/PathText.h>
#include <setup/state/KKitLook.h>

#include <cstdint>
#include <memory>
#include <memory_resource>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include <sys/files/DirectoryEntry.h>
#include <sys/files/FileStatus.h>

namespace KSETUP {

enum class KEntryKind : std::uint8_t { Nothing, File, Directory, Link, Other };

/// What a pointer to a text of a plan leads to where there is none.
inline const std::string noText;

/// Small: a plan of a product has several for each of its files.
struct KPlannedEntry {
    KEntryKind kind = KEntryKind::Nothing;
    /// Of a directory that others than root may change: a run follows no link out of it.
    bool isShared = false;
    bool isOurUnit = false; ///< a unit file that a plan made of a service rule
    /// Of what is on the disk: what a plan made has none.
    KSYS::ProtectingAttribute attribute = KSYS::ProtectingAttribute::None;
    unsigned mode = 0;
    std::uint64_t bytes = 0;
    /// Of a link: where it leads to. Of a file that a plan made: where its bytes lie now; empty for
    /// one that begins empty. Never null, and valid as long as the view.
    const std::string* origin = &noText;

    const std::string& GetTarget() const noexcept {
        return kind == KEntryKind::Link ? *origin : noText;
    }
    const std::string& GetContent() const noexcept {
        return kind == KEntryKind::File ? *origin : noText;
    }
};

/// What is on the disk, as it was when it was first asked for: the looks at a kit before a run go
/// over the same thousands of files several times, and the disk is asked once. It keeps the paths that
/// they have in common, too.
///
/// Paths are absolute and normal. Not for use once something is changed.
///
/// Thread   one at a time
class KDiskView {
  public:
    /// With a look at a kit, what is there is not looked at again.
    explicit KDiskView(std::shared_ptr<const KKitLook> itsKit = nullptr);

    struct OnDisk;
    /// A path, or another text of a plan, that is kept, and what is there. Who has it need not look for
    /// the text again. Valid as long as the view.
    using Kept = std::pair<const std::string, OnDisk>;
    struct OnDisk {
        KPlannedEntry entry;
        bool wasAsked = false;
        Kept* above = nullptr; ///< the directory, once it was asked for
    };

    struct Name {
        Kept* path;       ///< whole
        bool isDirectory; ///< a link to one is none

        std::string_view Get() const noexcept { return NameOfPath(path->first); }
    };

    /// Nothing is what cannot be looked at, too. Valid as long as this.
    const KPlannedEntry& Look(const std::string& path);
    const KPlannedEntry& Look(Kept& kept);
    /// What is in a directory, sorted by byte; nothing where it is missing, and for who may not look
    /// into it. Valid as long as this.
    ///
    /// Throws   KSetupFailure when it cannot be read to its end, by root not at all
    const std::vector<Name>& List(const std::string& directory);
    /// The same of a directory that is copied from: who may not look into it cannot say what is.
    ///
    /// Throws   KSetupFailure when it cannot be read to its end
    const std::vector<Name>& ListSources(const std::string& directory);

    /// A path, or another text of a plan, which is there once however many things name it. Valid as
    /// long as this.
    const std::string& Keep(const std::string& text) { return KeepPath(text).first; }
    Kept& KeepPath(const std::string& text) { return *known.try_emplace(text).first; }
    /// Of a name in a directory that is kept.
    Kept& KeepChild(Kept& directory, std::string_view name);
    /// The directory of a path, that of "/" itself.
    Kept& KeepParent(Kept& path);
    /// Null for what was never kept.
    Kept* FindKept(const std::string& text) {
        const auto found = known.find(text);
        return found != known.end() ? &*found : nullptr;
    }

  private:
    struct Listing {
        std::vector<Name> names;
        unsigned whyUnread = 0; ///< errno
    };
    Listing Read(const std::string& directory);
    const Listing& Find(const std::string& directory);
    KPlannedEntry LookAtDisk(const KSYS::Entry& at, const std::string& path);
    KPlannedEntry EntryOf(const KSYS::EntryStatus& status, const std::string& target);
    bool ReadKit(const std::string& directory, Listing& listing);
    void Add(Kept& path, const KPlannedEntry& entry, Listing& listing);

    std::shared_ptr<const KKitLook> kit;
    std::pmr::monotonic_buffer_resource memory; // of what only grows
    /// By path; also those that were only kept.
    std::pmr::unordered_map<std::string, OnDisk> known{&memory};
    std::string child; // that is looked for
    std::unordered_map<std::string, Listing> listings;
};

} // namespace KSETUP
