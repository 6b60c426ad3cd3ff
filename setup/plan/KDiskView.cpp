// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/PathText.h>
#include <setup/plan/KDiskView.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace KSETUP {

namespace {

const KPlannedEntry nothing;

KPlannedEntry LookAtDisk(int directory, const char* name) {
    struct stat status {};
    if (::fstatat(directory, name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
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
        std::array<char, PATH_MAX> target{};
        const ssize_t size = ::readlinkat(directory, name, target.data(), target.size());
        // Empty where the link is gone by now.
        entry.target.assign(target.data(), static_cast<std::size_t>(std::max<ssize_t>(size, 0)));
    } else {
        entry.kind = KEntryKind::Other;
    }
    return entry;
}

struct DirectoryCloser {
    void operator()(DIR* directory) const noexcept { ::closedir(directory); }
};

/// Missing or not to be read is as good as empty. Anything else, as a process without descriptors
/// left, would be half a listing.
void RequireWhole(const std::string& directory, int error) {
    if (error != 0 && error != ENOENT && error != ENOTDIR && error != EACCES) {
        throw KSetupFailure(
            ExitCode::noKit,
            "cannot read " + directory + ": " + std::generic_category().message(error) +
                ". Nothing was changed."
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
    return entries.emplace(path, LookAtDisk(AT_FDCWD, path.c_str())).first->second;
}

const std::vector<KDiskView::Name>& KDiskView::List(const std::string& directory) {
    if (const auto known = listings.find(directory); known != listings.end()) {
        return known->second;
    }
    std::vector<Name> names;
    const std::unique_ptr<DIR, DirectoryCloser> open(::opendir(directory.c_str()));
    if (open == nullptr) {
        RequireWhole(directory, errno);
        return listings.emplace(directory, std::move(names)).first->second;
    }
    errno = 0;
    while (const dirent* one = ::readdir(open.get())) {
        const std::string_view name = one->d_name;
        if (name != "." && name != "..") {
            // By the open directory that costs a fraction, and who lists files looks at them too.
            std::string path = directory == "/" ? "/" : directory + "/";
            const auto [entry, isNew] = entries.try_emplace(path.append(name));
            if (isNew) {
                entry->second = LookAtDisk(::dirfd(open.get()), one->d_name);
            }
            names.push_back({std::string(name), entry->second.kind == KEntryKind::Directory});
        }
        errno = 0;
    }
    RequireWhole(directory, errno);
    std::sort(names.begin(), names.end(), [](const Name& left, const Name& right) {
        return left.name < right.name;
    });
    return listings.emplace(directory, std::move(names)).first->second;
}

} // namespace KSETUP
