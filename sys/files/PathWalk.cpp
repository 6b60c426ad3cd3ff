// SPDX-License-Identifier: MIT
#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/Retry.h>
#include <sys/auxv.h>
#include <sys/files/KPendingPath.h>
#include <sys/files/PathWalk.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/syscall.h>

namespace KSYS {

namespace {

constexpr int pathOnly = O_PATH | O_CLOEXEC;
constexpr std::string_view temporaryPrefix = ".inspp-";
constexpr int mostLinks = 40; // as the kernel's own limit

/// 0 for a link that may be followed out of a directory, ELOOP for another, errno when unknown. A
/// directory that became root's may still hold links that its former owner laid.
unsigned CheckTrust(int directory, const struct stat& link) noexcept {
    struct stat status {};
    if (::fstat(directory, &status) != 0) {
        return static_cast<unsigned>(errno);
    }
    const bool trusted = status.st_uid == 0 && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
    return trusted && link.st_uid == 0 ? 0 : ELOOP;
}

unsigned ReadOpenLink(int link, std::string& target) {
    std::string buffer(PATH_MAX, '\0');
    const ssize_t bytes = ::readlinkat(link, "", buffer.data(), buffer.size());
    if (bytes < 0) {
        return static_cast<unsigned>(errno);
    }
    buffer.resize(static_cast<std::size_t>(bytes));
    target = std::move(buffer);
    return 0;
}

class Walk {
  public:
    unsigned Run(const char* path, LastLink last, Place& place);

  private:
    unsigned StartAt(const char* directory);
    unsigned Enter(std::string name, bool isLast, Place& place);
    unsigned Follow(int link, const struct stat& linkStatus);

    KDescriptor current;
    KPendingPath pending;
    LastLink lastLink = LastLink::Keep;
    int linksLeft = mostLinks;
};

unsigned Walk::Run(const char* path, LastLink last, Place& place) {
    lastLink = last;
    if (const unsigned status = StartAt(*path == '/' ? "/" : "."); status != 0) {
        return status;
    }
    pending.PushFront(path);
    place.name = "."; // of a path without components
    while (!pending.IsEmpty()) {
        std::string name = pending.Pop();
        if (const unsigned status = Enter(std::move(name), pending.IsEmpty(), place); status != 0) {
            return status;
        }
    }
    place.directory = std::move(current);
    return 0;
}

unsigned Walk::StartAt(const char* directory) {
    current.Reset(Retry([&] { return ::open(directory, pathOnly | O_DIRECTORY); }));
    return current.IsOpen() ? 0 : static_cast<unsigned>(errno);
}

unsigned Walk::Enter(std::string name, bool isLast, Place& place) {
    if (isLast && lastLink == LastLink::Keep && name != "..") {
        place.name = std::move(name);
        return 0;
    }
    KDescriptor entry(Retry([&] {
        return ::openat(current.Get(), name.c_str(), pathOnly | O_NOFOLLOW);
    }));
    if (!entry.IsOpen()) {
        const auto status = static_cast<unsigned>(errno);
        if (isLast && status == ENOENT) {
            place.name = std::move(name);
            return 0;
        }
        return status;
    }
    struct stat status {};
    if (::fstat(entry.Get(), &status) != 0) {
        return static_cast<unsigned>(errno);
    }
    if (S_ISLNK(status.st_mode)) {
        return Follow(entry.Get(), status);
    }
    if (isLast && name != "..") {
        place.name = std::move(name);
        return 0;
    }
    if (!S_ISDIR(status.st_mode)) {
        return ENOTDIR;
    }
    current = std::move(entry);
    place.name = ".";
    return 0;
}

unsigned Walk::Follow(int link, const struct stat& linkStatus) {
    std::string target;
    unsigned status = linksLeft-- > 0 ? CheckTrust(current.Get(), linkStatus) : ELOOP;
    if (status == 0) {
        status = ReadOpenLink(link, target);
    }
    if (status != 0) {
        return status;
    }
    pending.PushFront(target);
    return target.starts_with('/') ? StartAt("/") : 0;
}

} // namespace

unsigned
OpenWithoutLinks(const char* path, int flags, unsigned mode, KDescriptor& opened) noexcept {
    static std::atomic<bool> available{true};
    if (!available.load(std::memory_order_relaxed)) {
        return ELOOP;
    }
    open_how how{};
    // openat(2) adds it by itself, and takes it back where it means nothing; this call refuses it.
    how.flags = static_cast<unsigned>((flags & O_PATH) != 0 ? flags : flags | O_LARGEFILE);
    how.mode = mode;
    how.resolve = RESOLVE_NO_SYMLINKS;
    const long result = Retry([&] { // glibc 2.36 has no wrapper
        return ::syscall(SYS_openat2, AT_FDCWD, path, &how, sizeof(how));
    });
    if (result >= 0) {
        opened.Reset(static_cast<int>(result));
        return 0;
    }
    if (errno == ENOSYS) { // a kernel before 5.6; walking step by step is as safe
        available.store(false, std::memory_order_relaxed);
        return ELOOP;
    }
    // A seccomp filter that does not know the call answers EPERM.
    return errno == EPERM || errno == EAGAIN ? ELOOP : static_cast<unsigned>(errno);
}

bool IsLoop(const char* path) noexcept {
    struct stat status {};
    return ::stat(path, &status) != 0 && errno == ELOOP;
}

unsigned FindPlace(const char* path, LastLink last, Place& place) {
    if (path == nullptr || *path == '\0') {
        return ENOENT;
    }
    const char* slash = std::strrchr(path, '/');
    const char* name = slash != nullptr ? slash + 1 : path;
    const bool plainName =
        *name != '\0' && std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0;
    if (last == LastLink::Keep && plainName) {
        const std::string parent = slash == nullptr ? "."
                                   : slash == path  ? "/"
                                                    : std::string(path, slash);
        const unsigned status =
            OpenWithoutLinks(parent.c_str(), pathOnly | O_DIRECTORY, 0, place.directory);
        if (status != ELOOP) {
            place.name = name;
            return status;
        }
    }
    return Walk().Run(path, last, place);
}

namespace {

constexpr unsigned keyShift = 32; // the key above, what tells its names apart below

/// Random: a killed run leaves its files, and process ids come again.
std::uint32_t RandomBits() noexcept {
    std::uint32_t bits = 0;
    if (::getrandom(&bits, sizeof(bits), 0) != sizeof(bits)) {
        static std::atomic<std::uint32_t> counter{0};
        bits = (static_cast<std::uint32_t>(::getpid()) << 16U) + ++counter;
    }
    return bits;
}

/// 0 for a name that TemporaryName did not make.
std::uint32_t KeyOf(std::string_view name) noexcept {
    if (!name.starts_with(temporaryPrefix)) {
        return 0;
    }
    name.remove_prefix(temporaryPrefix.size());
    std::uint64_t number = 0;
    const auto read = std::from_chars(name.data(), name.data() + name.size(), number);
    const bool isNumber = read.ec == std::errc() && read.ptr == name.data() + name.size();
    return isNumber ? static_cast<std::uint32_t>(number >> keyShift) : 0;
}

} // namespace

/// The same in each library that this code is linked into: of the bytes that the kernel gives a
/// program at its start (getauxval(3)). They guard its stack too, so what is made of them must not
/// tell them.
std::uint32_t TemporaryKey() noexcept {
    std::array<std::uint64_t, 2> words{};
    // NOLINTNEXTLINE(performance-no-int-to-ptr): as getauxval(3) has it
    if (const auto* bytes = reinterpret_cast<const void*>(::getauxval(AT_RANDOM))) {
        std::memcpy(words.data(), bytes, sizeof(words));
    }
    constexpr std::uint64_t odd = 0x9E3779B97F4A7C15; // mixes: 2^64 by the golden ratio
    const std::uint64_t mixed = (words[0] * odd ^ words[1]) * odd;
    return std::max(static_cast<std::uint32_t>(mixed >> keyShift), std::uint32_t{1});
}

std::string TemporaryName() {
    const std::uint64_t key = TemporaryKey();
    return std::string(temporaryPrefix) + std::to_string(key << keyShift | RandomBits());
}

bool IsTemporaryName(std::string_view name, std::uint32_t key) noexcept {
    return key != 0 && KeyOf(name) == key;
}

bool IsTemporaryName(std::string_view name) noexcept {
    return KeyOf(name) != 0;
}

} // namespace KSYS
