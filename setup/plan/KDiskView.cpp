// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/PathText.h>
#include <setup/plan/KDiskView.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include <sys/files/DirectoryEntry.h>

namespace KSETUP {

namespace {

const KPlannedEntry nothing;

KPlannedEntry LookAtDisk(const KSYS::Entry& at) {
    struct stat status {};
    if (KSYS::ReadStatus(at, KSYS::LastLink::Keep, status) != 0) {
        return {};
    }
    KPlannedEntry entry;
    entry.mode = status.st_mode & 07777;
    if (S_ISREG(status.st_mode)) {
        entry.kind = KEntryKind::File;
        entry.bytes = static_cast<std::uint64_t>(status.st_size);
    } else if (S_ISDIR(status.st_mode)) {
        entry.kind = KEntryKind::Directory;
        entry.isShared = status.st_uid != 0 || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    } else if (S_ISLNK(status.st_mode)) {
        entry.kind = KEntryKind::Link;
        // Empty where the link is gone by now.
        static_cast<void>(KSYS::ReadLink(at, entry.target));
    } else {
        entry.kind = KEntryKind::Other;
    }
    return entry;
}

/// Missing or not to be read is as good as empty. Anything else, as a process without descriptors
/// left, would be half a listing.
void RequireWhole(const std::string& directory, unsigned error) {
    if (error != 0 && error != ENOENT && error != ENOTDIR && error != EACCES) {
        throw KSetupFailure(
            ExitCode::noKit,
            "cannot read " + directory + ": " +
                std::generic_category().message(static_cast<int>(error)) + ". Nothing was changed."
        );
    }
}

} // namespace

const KPlannedEntry& KDiskView::Look(const std::string& path) {
    if (const auto known = entries.find(path); known != entries.end()) {
        return known->second;
    }
    // A product's new directories hold nothing yet, for thousands of files.
    if (const std::string parent = ParentPath(path); !parent.empty() && path != "/") {
        const KEntryKind above = Look(parent).kind;
        if (above != KEntryKind::Directory && above != KEntryKind::Link) {
            return nothing;
        }
    }
    return entries.emplace(path, LookAtDisk(path)).first->second;
}

const std::vector<KDiskView::Name>& KDiskView::List(const std::string& directory) {
    if (const auto known = listings.find(directory); known != listings.end()) {
        return known->second;
    }
    std::vector<std::string> found;
    KSYS::KDescriptor open;
    // With "/." also a directory that a link leads to.
    unsigned failed = KSYS::OpenDirectoryEntry(directory + "/.", open);
    if (failed == 0) {
        failed = KSYS::ListEntries({open.Get(), "."}, found);
    }
    RequireWhole(directory, failed);
    std::vector<Name> names;
    for (std::string& name : found) {
        // By the open directory that costs a fraction, and who lists files looks at them too.
        std::string path = directory == "/" ? "/" : directory + "/";
        const auto [entry, isNew] = entries.try_emplace(path.append(name));
        if (isNew) {
            entry->second = LookAtDisk({open, name});
        }
        names.push_back({std::move(name), entry->second.kind == KEntryKind::Directory});
    }
    std::sort(names.begin(), names.end(), [](const Name& left, const Name& right) {
        return left.name < right.name;
    });
    return listings.emplace(directory, std::move(names)).first->second;
}

} // namespace KSETUP
