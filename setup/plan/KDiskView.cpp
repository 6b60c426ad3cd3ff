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

/// Whether nothing is there that a run could meet, rather than that it is not known.
bool IsNothing(unsigned error) {
    return error == ENOENT || error == ENOTDIR || error == ELOOP || error == ENAMETOOLONG ||
           (error == EACCES && !KSYS::IsRoot());
}

} // namespace

KPlannedEntry KDiskView::LookAtDisk(const KSYS::Entry& at, const std::string& path) {
    KSYS::EntryStatus status;
    KPlannedEntry entry;
    unsigned failed = KSYS::ReadEntryStatus(at, KSYS::LastLink::Keep, status);
    if (failed == 0 && S_ISLNK(status.mode)) {
        std::string target;
        failed = KSYS::ReadLink(at, target);
        entry.origin = &Keep(target);
    }
    if (IsNothing(failed)) {
        return {};
    }
    if (failed != 0) {
        RefuseUnread(path, failed);
    }
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
    } else {
        entry.kind = KEntryKind::Other;
    }
    return entry;
}

const std::string* KDiskView::FindKept(const std::string& text) const {
    const auto found = known.find(text);
    return found != known.end() ? &found->first : nullptr;
}

const KPlannedEntry& KDiskView::Look(const std::string& path) {
    if (const auto found = known.find(path); found != known.end() && found->second.wasAsked) {
        return found->second.entry;
    }
    // A product's new directories hold nothing yet, for thousands of files.
    if (const std::string parent = ParentPath(path); !parent.empty() && path != "/") {
        const KEntryKind above = Look(parent).kind;
        if (above != KEntryKind::Directory && above != KEntryKind::Link) {
            return nothing;
        }
    }
    const KPlannedEntry entry = LookAtDisk(path, path);
    return (known[path] = {entry, true}).entry;
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
    std::vector<std::string> found;
    KSYS::KDescriptor open;
    Listing listing;
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
    for (const std::string& name : found) {
        // By the open directory that costs a fraction, and who lists files looks at them too.
        const auto at = known.try_emplace(ChildPath(directory, name)).first;
        OnDisk& one = at->second; // stays where it is when more become known
        if (!one.wasAsked) {
            one = {LookAtDisk({open, name}, at->first), true};
        }
        listing.names.push_back({&at->first, one.entry.kind == KEntryKind::Directory});
    }
    std::sort(listing.names.begin(), listing.names.end(), [](const Name& left, const Name& right) {
        return *left.path < *right.path; // in one directory
    });
    return listing;
}

} // namespace KSETUP
