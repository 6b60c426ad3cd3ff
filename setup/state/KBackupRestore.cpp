// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/state/CopyFile.h>
#include <setup/state/KBackup.h>

#include <array>
#include <cerrno>
#include <climits>
#include <optional>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>

namespace KSETUP {

namespace {

using Kind = KBackupEntry::Kind;
/// Beside what it replaces. One restore runs at a time, so one name serves all.
constexpr const char* temporaryName = ".ins++-restore";

/// Puts back what a backup holds. Its steps return 0 or errno.
class Restoring {
  public:
    explicit Restoring(int storeToUse) : store(storeToUse) {}

    /// Deletes what was not there; directories are left for later.
    void DeleteNew(const std::string& path);
    void PutBack(const std::string& path, const KBackupEntry& entry);
    void DeleteNewDirectory(const std::string& path);
    void Flush();

    KRestored result;

  private:
    int PutBackFile(const KFilePlace& place, const KBackupEntry& entry);
    int PutBackLink(const KFilePlace& place, const KBackupEntry& entry);
    static int PutBackDirectory(const KFilePlace& place, const KBackupEntry& entry, bool& made);
    static int Rename(const KFilePlace& place);
    void Failed(const char* what, const std::string& path, int errorNumber);
    void RemainToFlush(const KFilePlace& place);

    int store;
    std::map<dev_t, KFileHandle> written; // one directory on each file system
};

void Restoring::Failed(const char* what, const std::string& path, int errorNumber) {
    result.failures.push_back(
        std::string("cannot ") + what + " " + path + ": " +
        std::generic_category().message(errorNumber)
    );
}

void Restoring::RemainToFlush(const KFilePlace& place) {
    struct stat status {};
    if (::fstat(place.directory.Get(), &status) == 0 && !written.contains(status.st_dev)) {
        // The place has it open by its path only, which is not enough to flush it.
        written[status.st_dev] =
            KFileHandle(::openat(place.directory.Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    }
}

void Restoring::Flush() {
    for (const auto& [device, directory] : written) {
        if (directory.IsOpen() && ::syncfs(directory.Get()) != 0) {
            Failed("flush", "what was put back", errno);
        }
    }
}

void Restoring::DeleteNew(const std::string& path) {
    KFilePlace place;
    struct stat status {};
    const int missing = FindFilePlace(path, place);
    if (missing == ENOENT || missing == ENOTDIR) {
        return;
    }
    if (missing != 0) {
        Failed("delete", path, missing);
        return;
    }
    const int at = place.directory.Get();
    if (::fstatat(at, place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 ||
        S_ISDIR(status.st_mode)) {
        return;
    }
    if (::unlinkat(at, place.name.c_str(), 0) != 0) {
        Failed("delete", path, errno);
        return;
    }
    ++result.deleted;
    RemainToFlush(place);
}

void Restoring::DeleteNewDirectory(const std::string& path) {
    KFilePlace place;
    if (FindFilePlace(path, place) != 0) {
        return;
    }
    if (::unlinkat(place.directory.Get(), place.name.c_str(), AT_REMOVEDIR) == 0) {
        ++result.deleted;
        RemainToFlush(place);
    } else if (errno == ENOTEMPTY || errno == EEXIST) {
        result.kept.push_back(path);
    } else if (errno != ENOENT && errno != ENOTDIR) { // a file there failed, and was told of
        Failed("delete", path, errno);
    }
}

void Restoring::PutBack(const std::string& path, const KBackupEntry& entry) {
    KFilePlace place;
    int failed = FindFilePlace(path, place);
    bool made = true;
    if (failed == 0) {
        failed = entry.kind == Kind::File   ? PutBackFile(place, entry)
                 : entry.kind == Kind::Link ? PutBackLink(place, entry)
                                            : PutBackDirectory(place, entry, made);
    }
    if (failed != 0) {
        Failed("put back", path, failed);
    } else if (made) {
        ++result.putBack;
        RemainToFlush(place);
    }
}

int Restoring::Rename(const KFilePlace& place) {
    const int at = place.directory.Get();
    int failed = ::renameat(at, temporaryName, at, place.name.c_str()) == 0 ? 0 : errno;
    // A directory that the run made in its place goes, if nothing is in it.
    if (failed == EISDIR && ::unlinkat(at, place.name.c_str(), AT_REMOVEDIR) == 0) {
        failed = ::renameat(at, temporaryName, at, place.name.c_str()) == 0 ? 0 : errno;
    }
    if (failed != 0) {
        ::unlinkat(at, temporaryName, 0);
    }
    return failed;
}

int Restoring::PutBackFile(const KFilePlace& place, const KBackupEntry& entry) {
    const int at = place.directory.Get();
    const KFileHandle source(
        ::openat(store, entry.stored.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK)
    );
    if (!source.IsOpen()) {
        return errno;
    }
    ::unlinkat(at, temporaryName, 0); // left by a restore that was killed
    const KFileHandle target(::openat(
        at, temporaryName, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR
    ));
    if (!target.IsOpen()) {
        return errno;
    }
    int failed = CopyContent(source.Get(), target.Get(), CopyWay::Any);
    // In this order: a new owner takes set-id bits and capabilities away, bytes change the time.
    if (failed == 0 && ::fchown(target.Get(), entry.owner, entry.group) != 0) {
        failed = errno;
    }
    if (failed == 0) {
        failed = CopyExtendedAttributes(source.Get(), target.Get());
    }
    const std::array<timespec, 2> times{timespec{0, UTIME_OMIT}, entry.changed};
    if (failed == 0 &&
        (::fchmod(target.Get(), entry.mode) != 0 || ::futimens(target.Get(), times.data()) != 0)) {
        failed = errno;
    }
    if (failed != 0) {
        ::unlinkat(at, temporaryName, 0);
        return failed;
    }
    return Rename(place);
}

int Restoring::PutBackLink(const KFilePlace& place, const KBackupEntry& entry) {
    const int at = place.directory.Get();
    ::unlinkat(at, temporaryName, 0); // left by a restore that was killed
    if (::symlinkat(entry.target.c_str(), at, temporaryName) != 0) {
        return errno;
    }
    const std::array<timespec, 2> times{timespec{0, UTIME_OMIT}, entry.changed};
    if (::fchownat(at, temporaryName, entry.owner, entry.group, AT_SYMLINK_NOFOLLOW) != 0 ||
        ::utimensat(at, temporaryName, times.data(), AT_SYMLINK_NOFOLLOW) != 0) {
        const int failed = errno;
        ::unlinkat(at, temporaryName, 0);
        return failed;
    }
    return Rename(place);
}

int Restoring::PutBackDirectory(const KFilePlace& place, const KBackupEntry& entry, bool& made) {
    const int at = place.directory.Get();
    struct stat status {};
    if (::fstatat(at, place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
        made = false; // one that is still there was not changed by the run
        return S_ISDIR(status.st_mode) ? 0 : ENOTDIR;
    }
    if (::mkdirat(at, place.name.c_str(), S_IRWXU) != 0) {
        return errno;
    }
    const KFileHandle directory(
        ::openat(at, place.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC)
    );
    const bool done = directory.IsOpen() &&
                      ::fchown(directory.Get(), entry.owner, entry.group) == 0 &&
                      ::fchmod(directory.Get(), entry.mode) == 0;
    return done ? 0 : errno;
}

} // namespace

KRestored KBackup::Restore(const std::function<bool()>& shallStop) const {
    const auto product = KPrivateDirectory::OpenExisting(base, name);
    const auto store = product ? product->ExistingBelow("backup") : std::nullopt;
    const auto text = store ? store->Read("index") : std::nullopt;
    if (!text) {
        throw KSetupFailure(
            ExitCode::noKit,
            "there is no backup for " + name + ". \"ins-setup install --backup\" makes one."
        );
    }
    KBackupIndex index;
    try {
        index = ToBackupIndex(*text);
    } catch (const std::invalid_argument& what) {
        throw KSetupFailure(
            ExitCode::malformedScript,
            store->GetPath() + "/index cannot be understood (" + what.what() +
                "). Nothing was changed. The kept files are beside it, under numbers."
        );
    }
    Restoring restoring(store->Get());
    const auto stops = [&] {
        restoring.result.stopped = restoring.result.stopped || (shallStop && shallStop());
        return restoring.result.stopped;
    };
    for (const auto& [path, entry] : index) {
        if (entry.kind == Kind::Nothing && !stops()) {
            restoring.DeleteNew(path);
        }
    }
    for (const auto& [path, entry] : index) { // a directory stands before what is in it
        if (entry.kind != Kind::Nothing && !stops()) {
            restoring.PutBack(path, entry);
        }
    }
    for (auto one = index.rbegin(); one != index.rend(); ++one) { // the deepest first
        if (one->second.kind == Kind::Nothing && !stops()) {
            restoring.DeleteNewDirectory(one->first);
        }
    }
    restoring.Flush();
    return std::move(restoring.result);
}

} // namespace KSETUP
