// SPDX-License-Identifier: MIT
#include <sup++/KErrorSource.h>
#include <sup++/KFileEnum.h>
#include <sup++/KUtil.h>
#include <sup++/Txt.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace KSUP {

namespace {

constexpr KErrorSource source{"sup++/KFileEnum"};

struct DirectoryCloser {
    void operator()(DIR* directory) const noexcept { ::closedir(directory); }
};

bool IsDirectory(DIR* directory, const dirent& entry) noexcept {
    if (entry.d_type != DT_UNKNOWN) {
        return entry.d_type == DT_DIR;
    }
    struct stat status {}; // some file systems do not say
    return ::fstatat(::dirfd(directory), entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISDIR(status.st_mode);
}

std::vector<std::string> List(const char* directoryPath, const char* pattern) {
    std::vector<std::string> names;
    const std::unique_ptr<DIR, DirectoryCloser> directory(::opendir(directoryPath));
    if (directory == nullptr) {
        // Missing or not to be read is as good as empty. Anything else, such as a process without
        // descriptors left, would be half a listing that looks whole.
        if (errno != ENOENT && errno != ENOTDIR && errno != EACCES) {
            source.RaiseSystem(static_cast<unsigned>(errno), directoryPath);
        }
        return names;
    }
    errno = 0;
    for (const dirent* entry = nullptr; (entry = ::readdir(directory.get())) != nullptr;
         errno = 0) {
        if (!IsDirectory(directory.get(), *entry) && KFileEnum::Matches(entry->d_name, pattern)) {
            names.emplace_back(entry->d_name);
        }
    }
    if (errno != 0) {
        source.RaiseSystem(static_cast<unsigned>(errno), directoryPath);
    }
    std::sort(names.begin(), names.end()); // by unsigned byte, as char_traits compares
    return names;
}

} // namespace

KFileEnum::KFileEnum() : KBase("KFileEnum", true) {}

KFileEnum::KFileEnum(const KString& pathWithPattern, bool recursive, bool directories)
    : KFileEnum() {
    const KString pattern = KUtil::GetFileFromPath(pathWithPattern, "/");
    KString directoryPath = KUtil::RemoveFileFromPath(pathWithPattern, "/");
    if (directoryPath.IsEmpty()) {
        directoryPath = ".";
    }
    Start(directoryPath, pattern, recursive, directories);
}

KFileEnum::KFileEnum(
    const KString& directoryPath, const KString& pattern, bool recursive, bool directories
)
    : KFileEnum() {
    Start(directoryPath, pattern, recursive, directories);
}

KFileEnum::~KFileEnum() = default;

void KFileEnum::Start(
    const KString& directoryPath, const KString& pattern, bool recursive, bool directories
) {
    if (recursive || directories) {
        source.Raise(TraceLevel::support, ErrorCode::invalidArgument);
    }
    directory = KUtil::AppendPathSep(directoryPath, "/");
    // No directory is not the root directory, which the separator alone would name.
    names = directoryPath.IsEmpty() ? std::vector<std::string>()
                                    : List(directory.c_str(), pattern.c_str());
    next = 0;
}

bool KFileEnum::Enum() noexcept {
    next = std::min(next + 1, names.size() + 1);
    return next <= names.size();
}

KString KFileEnum::GetPath() const {
    if (next == 0 || next > names.size()) {
        return {};
    }
    return directory + names[next - 1].c_str();
}

bool KFileEnum::Matches(const char* name, const char* pattern) noexcept {
    // On a mismatch the last "*" takes one character more. That is all the going back there is to do,
    // so the time stays within pattern times name.
    const char* afterStar = nullptr;
    const char* resume = nullptr;
    while (*name != '\0') {
        const std::size_t size = Txtchrsize(name);
        if (*pattern == '*') {
            afterStar = ++pattern;
            resume = name;
        } else if (*pattern == '?') {
            ++pattern;
            name += size;
        } else if (Txtchrsize(pattern) == size && std::memcmp(name, pattern, size) == 0) {
            pattern += size;
            name += size;
        } else if (afterStar != nullptr) {
            pattern = afterStar;
            resume = Txtnext(resume);
            name = resume;
        } else {
            return false;
        }
    }
    while (*pattern == '*') {
        ++pattern;
    }
    return *pattern == '\0';
}

} // namespace KSUP
