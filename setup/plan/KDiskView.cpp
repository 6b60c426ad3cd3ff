// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/PathText.h>
#include <setup/plan/KDiskView.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include <sys/processes/ProcessIsolation.h>

namespace KSETUP {

namespace {

const KPlannedEntry nothing;

/// Half a listing, or none for want of descriptors, is not to be taken for a whole one.
[[noreturn]] void RefuseUnread(const std::string& directory, unsigned error) {
    throw KSetupFailure(
        ExitCode::noKit,
        Text(
            "cannot read %s: %s. Nothing was changed.",
            directory,
            std::generic_category().message(static_cast<int>(error))
        )
    );
}

/// Of "/" none is above, and a kept text may be no path.
bool HasDirectory(const std::string& path) noexcept {
    return path.size() > 1 && path.front() == '/';
}

/// Of what is no directory, nor may be one by a link.
bool HoldsNothing(const KPlannedEntry& entry) noexcept {
    return entry.kind != KEntryKind::Directory && entry.kind != KEntryKind::Link;
}

/// Whether nothing is there that a run could meet, rather than that it is not known.
bool IsNothing(unsigned error) {
    return error == ENOENT || error == ENOTDIR || error == ELOOP || error == ENAMETOOLONG ||
           (error == EACCES && !KSYS::IsRoot());
}

void Sort(std::vector<KDiskView::Name>& names) {
    std::sort(names.begin(), names.end(), [](const auto& left, const auto& right) {
        return left.Get() < right.Get();
    });
}

} // namespace

KDiskView::KDiskView(std::shared_ptr<const KKitLook> itsKit) : kit(std::move(itsKit)) {
    if (kit != nullptr) { // each of its paths, and mostly where it is copied to
        known.reserve(2 * kit->GetEntries().size());
    }
}

KPlannedEntry KDiskView::LookAtDisk(const KSYS::Entry& at, const std::string& path) {
    KSYS::EntryStatus status;
    std::string target;
    unsigned failed = KSYS::ReadEntryStatus(at, KSYS::LastLink::Keep, status);
    if (failed == 0 && S_ISLNK(status.mode)) {
        failed = KSYS::ReadLink(at, target);
    }
    if (IsNothing(failed)) {
        return {};
    }
    if (failed != 0) {
        RefuseUnread(path, failed);
    }
    return EntryOf(status, target);
}

KPlannedEntry KDiskView::EntryOf(const KSYS::EntryStatus& status, const std::string& target) {
    KPlannedEntry entry;
    entry.mode = status.mode & 07777;
    entry.attribute = status.attribute;
    if (S_ISREG(status.mode)) {
        entry.kind = KEntryKind::File;
        entry.bytes = status.bytes;
    } else if (S_ISDIR(status.mode)) {
        entry.kind = KEntryKind::Directory;
        entry.isShared = status.owner != 0 || (status.mode & (S_IWGRP | S_IWOTH)) != 0;
    } else if (S_ISLNK(status.mode)) {
        entry.kind = KEntryKind::Link;
        entry.origin = &Keep(target);
    } else {
        entry.kind = KEntryKind::Other;
    }
    return entry;
}

KDiskView::Kept& KDiskView::KeepChild(Kept& directory, std::string_view name) {
    child.assign(directory.first);
    if (child.size() > 1) { // else it is "/"
        child += '/';
    }
    child += name;
    Kept& kept = KeepPath(child);
    kept.second.above = &directory;
    return kept;
}

KDiskView::Kept& KDiskView::KeepParent(Kept& path) {
    Kept*& above = path.second.above;
    if (above == nullptr) {
        above = &KeepPath(ParentPath(path.first));
    }
    return *above;
}

const KPlannedEntry& KDiskView::Look(const std::string& path) {
    if (Kept* kept = FindKept(path)) {
        return Look(*kept);
    }
    return HasDirectory(path) && HoldsNothing(Look(ParentPath(path))) ? nothing
                                                                      : Look(KeepPath(path));
}

/// A product's new directories hold nothing yet, for thousands of files.
const KPlannedEntry& KDiskView::Look(Kept& kept) {
    auto& [path, onDisk] = kept;
    if (!onDisk.wasAsked) {
        const bool isNothing = HasDirectory(path) && HoldsNothing(Look(KeepParent(kept)));
        onDisk.entry = isNothing ? nothing : LookAtDisk(path, path);
        onDisk.wasAsked = true;
    }
    return onDisk.entry;
}

const std::vector<KDiskView::Name>& KDiskView::List(const std::string& directory) {
    const Listing& listing = Find(directory);
    if (listing.whyUnread != 0 && (listing.whyUnread != EACCES || KSYS::IsRoot())) {
        RefuseUnread(directory, listing.whyUnread);
    }
    return listing.names;
}

const std::vector<KDiskView::Name>& KDiskView::ListSources(const std::string& directory) {
    const Listing& listing = Find(directory);
    if (listing.whyUnread != 0) {
        RefuseUnread(directory, listing.whyUnread);
    }
    return listing.names;
}

const KDiskView::Listing& KDiskView::Find(const std::string& directory) {
    const auto found = listings.find(directory);
    return found != listings.end() ? found->second
                                   : listings.emplace(directory, Read(directory)).first->second;
}

/// What is missing or no directory holds nothing.
KDiskView::Listing KDiskView::Read(const std::string& directory) {
    Listing listing;
    if (ReadKit(directory, listing)) {
        return listing;
    }
    std::vector<std::string> found;
    KSYS::KDescriptor open;
    // With "/." also a directory that a link leads to.
    unsigned failed = KSYS::OpenDirectoryEntry(directory + "/.", open);
    if (failed == 0) {
        failed = KSYS::ListEntries({open.Get(), "."}, found);
    }
    if (failed != 0) {
        listing.whyUnread = failed == ENOENT || failed == ENOTDIR ? 0 : failed;
        return listing;
    }
    listing.names.reserve(found.size());
    Kept& above = KeepPath(directory);
    for (const std::string& name : found) {
        // By the open directory that costs a fraction, and who lists files looks at them too.
        Kept& path = KeepChild(above, name);
        Add(path,
            path.second.wasAsked ? path.second.entry : LookAtDisk({open, name}, path.first),
            listing);
    }
    Sort(listing.names);
    return listing;
}

/// Whether the look at the kit has seen the directory.
bool KDiskView::ReadKit(const std::string& directory, Listing& listing) {
    if (kit == nullptr || !IsAtOrBelow(directory, kit->GetDirectory())) {
        return false;
    }
    const std::size_t begin = kit->GetDirectory().size() + 1;
    const auto found = kit->Find(directory.size() < begin ? "" : directory.substr(begin));
    if (!found) {
        return false;
    }
    listing.names.reserve(found->size());
    Kept& above = KeepPath(directory);
    for (const KKitLook::Entry& entry : *found) {
        Kept& path = KeepChild(above, NameOfPath(kit->PathOf(entry)));
        Add(path,
            path.second.wasAsked ? path.second.entry : EntryOf(entry.status, kit->TargetOf(entry)),
            listing);
    }
    Sort(listing.names);
    return true;
}

/// The path stays where it is when more become known.
void KDiskView::Add(Kept& path, const KPlannedEntry& entry, Listing& listing) {
    path.second.entry = entry;
    path.second.wasAsked = true;
    listing.names.push_back({&path, entry.kind == KEntryKind::Directory});
}

} // namespace KSETUP
