// SPDX-License-Identifier: MIT
#include "TemporaryTree.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include <dirent.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace KTEST {

namespace {

constexpr std::size_t longestShownContents = 80;

[[noreturn]] void Fail(const std::string& path) {
    throw std::system_error(errno, std::generic_category(), TemporaryTree::Escaped(path));
}

void Check(int result, const std::string& path) {
    if (result < 0) {
        Fail(path);
    }
}

class Descriptor {
  public:
    Descriptor(int opened, const std::string& path) : value(opened) { Check(opened, path); }
    ~Descriptor() { ::close(value); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int Get() const { return value; }

  private:
    int value;
};

std::vector<std::string> NamesIn(int directory, const std::string& path) {
    // A descriptor of its own: closedir closes what fdopendir was given.
    const int own = ::openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    Check(own, path);
    DIR* stream = ::fdopendir(own);
    if (stream == nullptr) {
        ::close(own);
        Fail(path);
    }
    std::vector<std::string> names;
    while (const dirent* entry = ::readdir(stream)) {
        const std::string name = static_cast<const char*>(entry->d_name);
        if (name != "." && name != "..") {
            names.push_back(name);
        }
    }
    ::closedir(stream);
    std::sort(names.begin(), names.end());
    return names;
}

/// Step by step by descriptor, so that neither depth nor mode nor length of the path matters.
void RemoveEntry(int parent, const std::string& name) noexcept {
    if (::unlinkat(parent, name.c_str(), 0) == 0 || errno == ENOENT) {
        return;
    }
    // Only a directory resists (or an entry in a directory that was made writable before).
    ::fchmodat(parent, name.c_str(), 0700, 0);
    const int directory =
        ::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (directory >= 0) {
        for (const std::string& child : NamesIn(directory, name)) {
            RemoveEntry(directory, child);
        }
        ::close(directory);
    }
    if (::unlinkat(parent, name.c_str(), AT_REMOVEDIR) != 0) {
        std::fprintf(stderr, "left behind: %s: %s\n", name.c_str(), std::strerror(errno));
    }
}

std::string ReadAll(int file, const std::string& path) {
    std::string bytes;
    std::array<char, 65536> piece{};
    while (true) {
        const ssize_t got = ::read(file, piece.data(), piece.size());
        Check(static_cast<int>(got), path);
        if (got == 0) {
            return bytes;
        }
        bytes.append(piece.data(), static_cast<std::size_t>(got));
    }
}

std::string Octal(mode_t mode) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%04o", mode & 07777U);
    return text.data();
}

std::string ContentsOf(int parent, const std::string& name, const struct stat& status) {
    const Descriptor file(
        ::openat(parent, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC), name
    );
    const std::string bytes = ReadAll(file.Get(), name);
    if (bytes.size() <= longestShownContents) {
        return "\"" + TemporaryTree::Escaped(bytes) + "\"";
    }
    return std::to_string(status.st_size) + " bytes " + TemporaryTree::DigestOf(bytes);
}

std::string TargetOf(int parent, const std::string& name) {
    std::array<char, 4097> target{};
    const ssize_t size = ::readlinkat(parent, name.c_str(), target.data(), target.size() - 1);
    Check(static_cast<int>(size), name);
    return target.data();
}

std::string LineOf(int parent, const std::string& name, const std::string& shown) {
    struct stat status {};
    Check(::fstatat(parent, name.c_str(), &status, AT_SYMLINK_NOFOLLOW), shown);
    const std::string end = Octal(status.st_mode) + " " + TemporaryTree::Escaped(shown);
    switch (status.st_mode & S_IFMT) {
    case S_IFDIR:
        return "d " + end;
    case S_IFREG:
        return "f " + end + " " + ContentsOf(parent, name, status);
    case S_IFLNK:
        return "l " + TemporaryTree::Escaped(shown) + " -> " +
               TemporaryTree::Escaped(TargetOf(parent, name));
    case S_IFIFO:
        return "p " + end;
    case S_IFSOCK:
        return "s " + end;
    default:
        return "? " + end;
    }
}

void ListBelow(int directory, const std::string& shownPath, std::vector<std::string>& lines) {
    for (const std::string& name : NamesIn(directory, shownPath)) {
        const std::string shown = shownPath.empty() ? name : shownPath + "/" + name;
        lines.push_back(LineOf(directory, name, shown));
        if (lines.back().front() == 'd') {
            const Descriptor child(
                ::openat(directory, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC), shown
            );
            ListBelow(child.Get(), shown, lines);
        }
    }
}

} // namespace

TemporaryTree::TemporaryTree() {
    const char* place = std::getenv("TMPDIR");
    std::string pattern = place != nullptr && *place != '\0' ? place : "/tmp";
    // Without links in the path: a test that lays its own wants to meet only those.
    if (char* resolved = ::realpath(pattern.c_str(), nullptr)) {
        pattern = resolved;
        std::free(resolved);
    }
    pattern += "/inspp-test-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
        Fail(pattern);
    }
    root = pattern;
    Check(::chmod(root.c_str(), 0755), root);
}

TemporaryTree::~TemporaryTree() {
    RemoveEntry(AT_FDCWD, root);
}

void TemporaryTree::Write(std::string_view relative, std::string_view bytes, mode_t mode) {
    const std::string path = Path(relative);
    if (const std::size_t end = relative.rfind('/'); end != std::string_view::npos) {
        if (!Exists(relative.substr(0, end))) {
            Directory(relative.substr(0, end));
        }
    }
    const Descriptor file(
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600), path
    );
    while (!bytes.empty()) {
        const ssize_t done = ::write(file.Get(), bytes.data(), bytes.size());
        Check(static_cast<int>(done), path);
        bytes.remove_prefix(static_cast<std::size_t>(done));
    }
    Check(::fchmod(file.Get(), mode), path);
}

void TemporaryTree::Directory(std::string_view relative, mode_t mode) {
    for (std::size_t end = relative.find('/'); end != std::string_view::npos;
         end = relative.find('/', end + 1)) {
        if (!Exists(relative.substr(0, end))) {
            Directory(relative.substr(0, end), 0755);
        }
    }
    const std::string path = Path(relative);
    if (::mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
        Fail(path);
    }
    Check(::chmod(path.c_str(), mode), path);
}

void TemporaryTree::Link(std::string_view relative, std::string_view target) {
    if (const std::size_t end = relative.rfind('/'); end != std::string_view::npos) {
        if (!Exists(relative.substr(0, end))) {
            Directory(relative.substr(0, end));
        }
    }
    const std::string path = Path(relative);
    Check(::symlink(std::string(target).c_str(), path.c_str()), path);
}

void TemporaryTree::Fifo(std::string_view relative, mode_t mode) {
    const std::string path = Path(relative);
    Check(::mkfifo(path.c_str(), 0600), path);
    Check(::chmod(path.c_str(), mode), path);
}

void TemporaryTree::Socket(std::string_view relative) {
    const std::string path = Path(relative);
    const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0), path);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(static_cast<char*>(address.sun_path), path.c_str(), sizeof address.sun_path - 1);
    Check(::bind(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), path);
}

void TemporaryTree::SetMode(std::string_view relative, mode_t mode) {
    Check(::chmod(Path(relative).c_str(), mode), Path(relative));
}

void TemporaryTree::SetOwner(std::string_view relative, uid_t owner, gid_t group) {
    Check(::lchown(Path(relative).c_str(), owner, group), Path(relative));
}

void TemporaryTree::Remove(std::string_view relative) {
    RemoveEntry(AT_FDCWD, Path(relative));
}

std::string TemporaryTree::Path(std::string_view relative) const {
    return relative.empty() ? root : root + "/" + std::string(relative);
}

std::string TemporaryTree::Read(std::string_view relative) const {
    const std::string path = Path(relative);
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC), path);
    return ReadAll(file.Get(), path);
}

bool TemporaryTree::Exists(std::string_view relative) const {
    struct stat status {};
    return ::lstat(Path(relative).c_str(), &status) == 0;
}

mode_t TemporaryTree::Mode(std::string_view relative) const {
    return Status(relative).st_mode & 07777U;
}

std::string TemporaryTree::LinkTarget(std::string_view relative) const {
    return TargetOf(AT_FDCWD, Path(relative));
}

struct stat TemporaryTree::Status(std::string_view relative) const {
    struct stat status {};
    Check(::lstat(Path(relative).c_str(), &status), Path(relative));
    return status;
}

std::vector<std::string> TemporaryTree::List(std::string_view relative) const {
    const std::string path = Path(relative);
    const Descriptor directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC), path);
    std::vector<std::string> lines;
    ListBelow(directory.Get(), "", lines);
    return lines;
}

std::string TemporaryTree::DigestOf(std::string_view bytes) {
    std::uint64_t digest = 0xcbf29ce484222325U; // FNV-1a
    for (const char byte : bytes) {
        digest = (digest ^ static_cast<unsigned char>(byte)) * 0x100000001b3U;
    }
    std::array<char, 17> text{};
    std::snprintf(text.data(), text.size(), "%016llx", static_cast<unsigned long long>(digest));
    return text.data();
}

std::string TemporaryTree::Escaped(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes) {
        if (byte == '\n') {
            text += "\\n";
        } else if (byte == '\t') {
            text += "\\t";
        } else if (byte == '"' || byte == '\\') {
            text += {'\\', byte};
        } else if (byte >= ' ' && byte <= '~') {
            text += byte;
        } else {
            std::array<char, 5> code{};
            std::snprintf(code.data(), code.size(), "\\x%02x", static_cast<unsigned char>(byte));
            text += code.data();
        }
    }
    return text;
}

std::string ArbitraryBytes(std::size_t count, std::uint64_t seed) {
    std::string bytes(count, '\0');
    std::uint64_t state = seed * 0x9e3779b97f4a7c15U + 1;
    for (char& byte : bytes) {
        state = state * 6364136223846793005U + 1442695040888963407U;
        byte = static_cast<char>(state >> 56U);
    }
    return bytes;
}

} // namespace KTEST
