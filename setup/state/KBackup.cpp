// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupStop.h>
#include <setup/files/PathText.h>
#include <setup/state/CopyFile.h>
#include <setup/state/KBackup.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <optional>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>

namespace KSETUP {

namespace {

using Kind = KBackupEntry::Kind;
constexpr const char* directoryName = "backup";
constexpr const char* newName = "backup.new";
constexpr const char* indexName = "index";
constexpr off_t smallBytes = 65536;

KSetupFailure CannotKeep(const std::string& path, int errorNumber) {
    return SystemFailure(
        ExitCode::cannotWrite,
        "cannot keep a copy of",
        path,
        errorNumber,
        "Nothing was changed. Mend the cause, or install without --backup."
    );
}

bool IsMissing(int errorNumber) {
    return errorNumber == ENOENT || errorNumber == ENOTDIR;
}

/// Makes `stored` a second name of the file that is open; false when that cannot be.
bool HardLink(const KFilePlace& place, const struct stat& opened, int store, const char* stored) {
    struct stat linked {};
    if (::linkat(place.directory.Get(), place.name.c_str(), store, stored, 0) != 0) {
        return false; // another file system, or one without hard links
    }
    if (::fstatat(store, stored, &linked, AT_SYMLINK_NOFOLLOW) == 0 &&
        linked.st_dev == opened.st_dev && linked.st_ino == opened.st_ino) {
        return true;
    }
    ::unlinkat(store, stored, 0); // it was replaced meanwhile: copy what is open
    return false;
}

KFileHandle MakeFile(int store, const char* stored) {
    return KFileHandle(::openat(
        store, stored, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR
    ));
}

/// Returns 0 or errno.
int KeepFile(const KFilePlace& place, int store, const char* stored) {
    const KFileHandle source(::openat(
        place.directory.Get(), place.name.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK
    ));
    struct stat status {};
    if (!source.IsOpen() || ::fstat(source.Get(), &status) != 0) {
        return errno;
    }
    KFileHandle target = MakeFile(store, stored);
    if (!target.IsOpen()) {
        return errno;
    }
    if (CopyContent(source.Get(), target.Get(), CopyWay::ReflinkOnly) != 0) {
        if (status.st_size > smallBytes) {
            ::unlinkat(store, stored, 0);
            if (HardLink(place, status, store, stored)) {
                return 0; // and so are its attributes
            }
            target = MakeFile(store, stored);
        }
        const int failed = CopyContent(source.Get(), target.Get(), CopyWay::Any);
        if (failed != 0) {
            return failed;
        }
    }
    return CopyExtendedAttributes(source.Get(), target.Get());
}

/// Looks at a path; nothing (and errno) for one that is not there.
std::optional<KBackupEntry> Look(const std::string& path, KFilePlace& place, mode_t& type) {
    struct stat status {};
    if (const int missing = FindFilePlace(path, place); missing != 0) {
        errno = missing;
        return std::nullopt;
    }
    if (::fstatat(place.directory.Get(), place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return std::nullopt;
    }
    KBackupEntry entry;
    entry.mode = status.st_mode & 07777U;
    entry.owner = status.st_uid;
    entry.group = status.st_gid;
    entry.changed = status.st_mtim;
    type = status.st_mode & S_IFMT;
    return entry;
}

void NoteMissing(const std::string& path, int errorNumber, KBackupIndex& index) {
    if (!IsMissing(errorNumber)) {
        throw CannotKeep(path, errorNumber);
    }
    index[path] = KBackupEntry();
}

/// A link above a path is the machine's own affair: only directories are made and taken away.
void NoteParent(const std::string& path, KBackupIndex& index) {
    if (index.contains(path)) {
        return;
    }
    KFilePlace place;
    mode_t type = 0;
    std::optional<KBackupEntry> entry = Look(path, place, type);
    if (!entry) {
        NoteMissing(path, errno, index);
    } else if (type == S_IFDIR) {
        entry->kind = Kind::Directory;
        index[path] = std::move(*entry);
    }
}

void Note(const KPrivateDirectory& store, const std::string& path, KBackupIndex& index) {
    if (index.contains(path)) {
        return;
    }
    KFilePlace place;
    mode_t type = 0;
    std::optional<KBackupEntry> entry = Look(path, place, type);
    if (!entry) {
        NoteMissing(path, errno, index);
        return;
    }
    if (type == S_IFREG) {
        entry->kind = Kind::File;
        entry->stored = std::to_string(index.size());
        if (const int failed = KeepFile(place, store.Get(), entry->stored.c_str()); failed != 0) {
            throw CannotKeep(path, failed);
        }
    } else if (type == S_IFDIR) {
        entry->kind = Kind::Directory;
    } else if (type == S_IFLNK) {
        std::array<char, PATH_MAX> target{};
        const ssize_t count =
            ::readlinkat(place.directory.Get(), place.name.c_str(), target.data(), target.size());
        if (count < 0) {
            throw CannotKeep(path, errno);
        }
        entry->kind = Kind::Link;
        entry->target.assign(target.data(), static_cast<std::size_t>(count));
    } else {
        return; // the engine refuses to replace devices, queues and sockets
    }
    index[path] = std::move(*entry);
}

} // namespace

KBackup::KBackup(std::string serviceName, std::string itsBase)
    : name(std::move(serviceName)),
      base(std::move(itsBase)) {}

void KBackup::Save(const std::vector<std::string>& paths, const std::function<bool()>& shallStop) {
    const KPrivateDirectory product(base, name);
    product.DeleteDirectory(newName);
    try {
        const KPrivateDirectory store = product.Below(newName);
        KBackupIndex index;
        for (const std::string& written : paths) {
            const std::string path = NormalPath(written);
            if (shallStop && shallStop()) {
                throw KSetupStop(
                    "stopped on request while keeping what would be replaced. Nothing was changed."
                );
            }
            for (std::size_t end = path.find('/', 1); end != std::string::npos;
                 end = path.find('/', end + 1)) {
                NoteParent(path.substr(0, end), index);
            }
            Note(store, path, index);
        }
        if (::syncfs(store.Get()) != 0) {
            throw CannotKeep(store.GetPath(), errno);
        }
        store.WriteDurably(indexName, ToText(index));
        Replace(product);
    } catch (...) { // also when it was stopped
        try {
            product.DeleteDirectory(newName);
        } catch (const KSetupFailure&) {
            // The next backup deletes it; what went wrong first is what counts.
        }
        throw;
    }
}

void KBackup::Replace(const KPrivateDirectory& product) const {
    const int at = product.Get();
    if (::renameat2(at, newName, at, directoryName, RENAME_EXCHANGE) != 0) {
        // No former one; or no such exchange here, and then a crash in between costs the former.
        if (errno != ENOENT) {
            product.DeleteDirectory(directoryName);
        }
        if (::renameat(at, newName, at, directoryName) != 0) {
            throw CannotKeep(product.GetPath(), errno);
        }
    }
    product.Flush();
    product.DeleteDirectory(newName); // the former one by now
}

bool KBackup::Exists() const {
    const auto product = KPrivateDirectory::OpenExisting(base, name);
    const auto store = product ? product->ExistingBelow(directoryName) : std::nullopt;
    return store && ::faccessat(store->Get(), indexName, F_OK, AT_SYMLINK_NOFOLLOW) == 0;
}

void KBackup::Discard() {
    if (const auto product = KPrivateDirectory::OpenExisting(base, name)) {
        product->DeleteDirectory(newName);
        product->DeleteDirectory(directoryName);
        product->Flush();
    }
}

} // namespace KSETUP
