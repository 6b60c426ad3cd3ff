// SPDX-License-Identifier: MIT
#include <setup/state/KFilePlace.h>

#include <cerrno>
#include <climits>
#include <deque>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>

namespace KSETUP {

namespace {

constexpr int linksFollowed = 40; // as the kernel does

std::deque<std::string> Components(std::string_view path) {
    std::deque<std::string> components;
    while (!path.empty()) {
        const std::size_t end = std::min(path.find('/'), path.size());
        if (end > 0) {
            components.emplace_back(path.substr(0, end));
        }
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return components;
}

KFileHandle OpenRoot() {
    return KFileHandle(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
}

bool IsOursAlone(const KFileHandle& directory) {
    struct stat status {};
    return ::fstat(directory.Get(), &status) == 0 && status.st_uid == ::geteuid() &&
           (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

} // namespace

int FindFilePlace(const std::string& path, KFilePlace& place) {
    std::deque<std::string> ahead = Components(path);
    if (path.empty() || path.front() != '/' || ahead.empty()) {
        return EINVAL;
    }
    KFileHandle at = OpenRoot();
    const std::string last = ahead.back();
    ahead.pop_back();
    for (int links = 0; !ahead.empty();) {
        KFileHandle next(::openat(at.Get(), ahead.front().c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC)
        );
        struct stat status {};
        if (!next.IsOpen() || ::fstat(next.Get(), &status) != 0) {
            return errno;
        }
        ahead.pop_front();
        if (S_ISLNK(status.st_mode)) {
            std::string target(PATH_MAX, '\0');
            const ssize_t count = ::readlinkat(next.Get(), "", target.data(), target.size());
            if (++links > linksFollowed || count <= 0 || !IsOursAlone(at)) {
                return ELOOP;
            }
            target.resize(static_cast<std::size_t>(count));
            const std::deque<std::string> detour = Components(target);
            ahead.insert(ahead.begin(), detour.begin(), detour.end());
            if (target.front() == '/') {
                at = OpenRoot();
            }
        } else if (S_ISDIR(status.st_mode)) {
            at = std::move(next);
        } else {
            return ENOTDIR;
        }
    }
    place.directory = std::move(at);
    place.name = last;
    return 0;
}

} // namespace KSETUP
