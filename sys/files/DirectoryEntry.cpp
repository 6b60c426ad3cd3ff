// SPDX-License-Identifier: MIT
#include <cerrno>
#include <climits>
#include <cstdio>
#include <memory>

#include <dirent.h>
#include <sys/Retry.h>
#include <sys/files/CallStatus.h>
#include <sys/files/DirectoryEntry.h>
#include <sys/files/FileCalls.h>
#include <sys/files/FileContent.h>

namespace KSYS {

namespace {

constexpr int always = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;

unsigned Open(const Entry& entry, int flags, unsigned mode, KDescriptor& opened) noexcept {
    const int result =
        Retry([&] { return ::openat(entry.GetDirectory(), entry.GetName(), flags, mode); });
    const unsigned status = StatusOf(result);
    opened.Reset(result);
    return status;
}

int Flags(LastLink last) noexcept {
    return last == LastLink::Follow ? 0 : AT_SYMLINK_NOFOLLOW;
}

unsigned WriteNew(const Entry& entry, const PieceSource& next, unsigned mode) {
    KDescriptor file;
    unsigned status = MakeFile(entry, file);
    for (std::string_view piece; status == 0 && !(piece = next()).empty();) {
        status = WriteAll(file.Get(), piece.data(), piece.size());
    }
    if (status == 0) {
        status = SetMode(file.Get(), mode);
    }
    if (status == 0) {
        status = Flush(file.Get());
    }
    const unsigned closing = file.IsOpen() ? CloseReporting(file) : 0;
    return status != 0 ? status : closing;
}

} // namespace

unsigned ReadStatus(const Entry& entry, LastLink last, struct stat& status) noexcept {
    return StatusOf(::fstatat(entry.GetDirectory(), entry.GetName(), &status, Flags(last)));
}

unsigned ReadStatus(int file, struct stat& status) noexcept {
    return StatusOf(::fstat(file, &status));
}

unsigned ReadLink(const Entry& link, std::string& target) {
    target.resize(PATH_MAX);
    const ssize_t bytes =
        ::readlinkat(link.GetDirectory(), link.GetName(), target.data(), target.size());
    const unsigned status = StatusOf(bytes);
    target.resize(status == 0 ? static_cast<std::size_t>(bytes) : 0);
    return status;
}

unsigned OpenEntry(const Entry& entry, int flags, KDescriptor& opened) noexcept {
    return Open(entry, flags | always, 0, opened);
}

unsigned
OpenRegularEntry(const Entry& entry, int flags, KDescriptor& file, struct stat& status) noexcept {
    unsigned error = OpenEntry(entry, flags, file);
    if (error == 0) {
        error = ReadStatus(file.Get(), status);
    }
    if (error == 0 && !S_ISREG(status.st_mode)) {
        error = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    }
    if (error != 0) {
        file.Reset();
    }
    return error;
}

unsigned OpenDirectoryEntry(const Entry& entry, KDescriptor& directory) noexcept {
    return OpenEntry(entry, O_RDONLY | O_DIRECTORY, directory);
}

unsigned MakeFile(const Entry& entry, KDescriptor& file, int flags) noexcept {
    return Open(entry, flags | O_CREAT | O_EXCL | always, S_IRUSR | S_IWUSR, file);
}

unsigned MakeDirectoryEntry(const Entry& entry, unsigned mode) noexcept {
    return StatusOf(::mkdirat(entry.GetDirectory(), entry.GetName(), mode));
}

unsigned MakeLinkEntry(const char* target, const Entry& entry) noexcept {
    return StatusOf(::symlinkat(target, entry.GetDirectory(), entry.GetName()));
}

unsigned MakeHardLink(const Entry& former, const Entry& added) noexcept {
    return StatusOf(
        ::linkat(former.GetDirectory(), former.GetName(), added.GetDirectory(), added.GetName(), 0)
    );
}

unsigned UnlinkEntry(const Entry& entry) noexcept {
    return StatusOf(::unlinkat(entry.GetDirectory(), entry.GetName(), 0));
}

unsigned RemoveDirectoryEntry(const Entry& entry) noexcept {
    return StatusOf(::unlinkat(entry.GetDirectory(), entry.GetName(), AT_REMOVEDIR));
}

unsigned RenameEntry(int directory, const char* from, const char* to) noexcept {
    return StatusOf(::renameat(directory, from, directory, to));
}

unsigned ExchangeEntries(int directory, const char* one, const char* other) noexcept {
    return StatusOf(::renameat2(directory, one, directory, other, RENAME_EXCHANGE));
}

unsigned ReplaceEntry(
    int directory,
    const std::string& temporary,
    const std::string& name,
    std::string_view bytes,
    unsigned mode
) {
    const PieceSource next = [&] { return std::exchange(bytes, {}); };
    return ReplaceEntry(directory, temporary, name, next, mode);
}

unsigned ReplaceEntry(
    int directory,
    const std::string& temporary,
    const std::string& name,
    const PieceSource& next,
    unsigned mode
) {
    const Entry beside(directory, temporary.c_str());
    unsigned status = UnlinkEntry(beside); // left by a process that was killed
    if (status == 0 || status == ENOENT) {
        try {
            status = WriteNew(beside, next, mode);
        } catch (...) {
            static_cast<void>(UnlinkEntry(beside)); // what was thrown is what counts
            throw;
        }
    }
    if (status == 0) {
        status = RenameEntry(directory, temporary.c_str(), name.c_str());
    }
    if (status != 0) {
        static_cast<void>(UnlinkEntry(beside)); // the first failure is what counts
    }
    return status;
}

unsigned ListEntries(const Entry& directory, std::vector<std::string>& names) {
    KDescriptor opened;
    if (const unsigned status = OpenDirectoryEntry(directory, opened); status != 0) {
        return status;
    }
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(::fdopendir(opened.Get()), ::closedir);
    if (stream == nullptr) {
        return static_cast<unsigned>(errno);
    }
    static_cast<void>(opened.Release()); // the stream's by now
    while (true) {
        errno = 0;
        const dirent* entry = ::readdir(stream.get());
        if (entry == nullptr) {
            return static_cast<unsigned>(errno);
        }
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") {
            names.emplace_back(name);
        }
    }
}

} // namespace KSYS
