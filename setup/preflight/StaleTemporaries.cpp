// SPDX-License-Identifier: MIT
#include <setup/preflight/StaleTemporaries.h>

#include <memory>
#include <string_view>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace KSETUP {

namespace {

constexpr std::string_view prefix = ".inspp-";
constexpr std::size_t mostDigits = 20; // of 64 bits

bool IsTemporary(std::string_view name) {
    if (!name.starts_with(prefix)) {
        return false;
    }
    const std::string_view digits = name.substr(prefix.size());
    return !digits.empty() && digits.size() <= mostDigits &&
           digits.find_first_not_of("0123456789") == std::string_view::npos;
}

} // namespace

void DeleteStaleTemporaries(const std::vector<std::string>& directories) {
    for (const std::string& path : directories) {
        const int opened =
            ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC); // NOLINT
        DIR* const stream = opened >= 0 ? ::fdopendir(opened) : nullptr;
        const std::unique_ptr<DIR, int (*)(DIR*)> entries(stream, ::closedir);
        while (const dirent* entry = entries ? ::readdir(entries.get()) : nullptr) {
            struct stat status {};
            const bool isOurs =
                IsTemporary(entry->d_name) &&
                ::fstatat(opened, entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                (S_ISREG(status.st_mode) || S_ISLNK(status.st_mode)) &&
                status.st_uid == ::geteuid();
            if (isOurs) {
                ::unlinkat(opened, entry->d_name, 0); // one that stays is in nobody's way
            }
        }
    }
}

} // namespace KSETUP
