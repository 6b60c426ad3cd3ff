// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/state/KBackup.h>

#include <cerrno>
#include <optional>
#include <stdexcept>
#include <system_error>

#include <sys/files/FileContent.h>

namespace KSETUP {

namespace {

using KSYS::Entry;
using KSYS::LastLink;
using KSYS::Place;
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
    unsigned PutBackFile(const Place& place, const KBackupEntry& entry);
    unsigned PutBackLink(const Place& place, const KBackupEntry& entry);
    static unsigned PutBackDirectory(const Place& place, const KBackupEntry& entry, bool& made);
    static unsigned Rename(const Place& place, unsigned failed);
    void Failed(const char* what, const std::string& path, unsigned errorNumber);
    void RemainToFlush(const Place& place);

    int store;
    std::map<dev_t, KSYS::KDescriptor> written; // one directory on each file system
};

void Restoring::Failed(const char* what, const std::string& path, unsigned errorNumber) {
    result.failures.push_back(
        std::string("cannot ") + what + " " + path + ": " +
        std::generic_category().message(static_cast<int>(errorNumber))
    );
}

void Restoring::RemainToFlush(const Place& place) {
    const Entry directory(place.directory.Get(), ".");
    struct stat status {};
    if (KSYS::ReadStatus(directory, LastLink::Keep, status) == 0 &&
        !written.contains(status.st_dev)) {
        // The place has it open by its path only, which is not enough to flush it.
        static_cast<void>(KSYS::OpenDirectoryEntry(directory, written[status.st_dev]));
    }
}

void Restoring::Flush() {
    for (const auto& [device, directory] : written) {
        const unsigned failed = directory.IsOpen() ? KSYS::FlushFileSystem(directory.Get()) : 0;
        if (failed != 0) {
            Failed("flush", "what was put back", failed);
        }
    }
}

void Restoring::DeleteNew(const std::string& path) {
    Place place;
    struct stat status {};
    unsigned failed = KSYS::FindPlace(path.c_str(), LastLink::Keep, place);
    if (failed == 0) {
        failed = KSYS::ReadStatus(place, LastLink::Keep, status);
    }
    if (failed == ENOENT || failed == ENOTDIR || (failed == 0 && S_ISDIR(status.st_mode))) {
        return;
    }
    if (failed == 0) {
        failed = KSYS::UnlinkEntry(place);
    }
    if (failed != 0) {
        Failed("delete", path, failed);
        return;
    }
    ++result.deleted;
    RemainToFlush(place);
}

void Restoring::DeleteNewDirectory(const std::string& path) {
    Place place;
    if (KSYS::FindPlace(path.c_str(), LastLink::Keep, place) != 0) {
        return;
    }
    const unsigned failed = KSYS::RemoveDirectoryEntry(place);
    if (failed == 0) {
        ++result.deleted;
        RemainToFlush(place);
    } else if (failed == ENOTEMPTY || failed == EEXIST) {
        result.kept.push_back(path);
    } else if (failed != ENOENT && failed != ENOTDIR) { // a file there failed, and was told of
        Failed("delete", path, failed);
    }
}

void Restoring::PutBack(const std::string& path, const KBackupEntry& entry) {
    Place place;
    unsigned failed = KSYS::FindPlace(path.c_str(), LastLink::Keep, place);
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

/// Where `failed` says so, what was made beside the place goes instead.
unsigned Restoring::Rename(const Place& place, unsigned failed) {
    const int at = place.directory.Get();
    if (failed == 0) {
        failed = KSYS::RenameEntry(at, temporaryName, place.name.c_str());
        // A directory that the run made in its place goes, if nothing is in it.
        if (failed == EISDIR && KSYS::RemoveDirectoryEntry(place) == 0) {
            failed = KSYS::RenameEntry(at, temporaryName, place.name.c_str());
        }
    }
    if (failed != 0) {
        // The first failure is what counts.
        static_cast<void>(KSYS::UnlinkEntry({at, temporaryName}));
    }
    return failed;
}

unsigned Restoring::PutBackFile(const Place& place, const KBackupEntry& entry) {
    const Entry beside(place.directory.Get(), temporaryName);
    KSYS::KDescriptor source;
    KSYS::KDescriptor target;
    struct stat kept {};
    unsigned failed = KSYS::OpenRegularEntry({store, entry.stored.c_str()}, O_RDONLY, source, kept);
    if (failed == 0) {
        static_cast<void>(KSYS::UnlinkEntry(beside)); // left by a restore that was killed
        failed = KSYS::MakeFile(beside, target);
    }
    if (failed != 0) {
        return failed;
    }
    failed = KSYS::CopyContent(source.Get(), target.Get(), KSYS::CopyWay::Any);
    // In this order: a new owner takes set-id bits and capabilities away, bytes change the time.
    if (failed == 0) {
        failed = KSYS::SetOwner(target.Get(), entry.owner, entry.group);
    }
    if (failed == 0) {
        failed = KSYS::CopyExtendedAttributes(source.Get(), target.Get());
    }
    if (failed == 0) {
        failed = KSYS::SetMode(target.Get(), entry.mode);
    }
    if (failed == 0) {
        failed = KSYS::SetTime(target.Get(), entry.changed);
    }
    return Rename(place, failed);
}

unsigned Restoring::PutBackLink(const Place& place, const KBackupEntry& entry) {
    const Entry beside(place.directory.Get(), temporaryName);
    static_cast<void>(KSYS::UnlinkEntry(beside)); // left by a restore that was killed
    if (const unsigned failed = KSYS::MakeLinkEntry(entry.target.c_str(), beside); failed != 0) {
        return failed;
    }
    return Rename(place, KSYS::SetOwnerAndTime(beside, entry.owner, entry.group, entry.changed));
}

unsigned Restoring::PutBackDirectory(const Place& place, const KBackupEntry& entry, bool& made) {
    struct stat status {};
    if (KSYS::ReadStatus(place, LastLink::Keep, status) == 0) {
        made = false; // one that is still there was not changed by the run
        return S_ISDIR(status.st_mode) ? 0 : ENOTDIR;
    }
    KSYS::KDescriptor directory;
    unsigned failed = KSYS::MakeDirectoryEntry(place, S_IRWXU);
    if (failed == 0) {
        failed = KSYS::OpenDirectoryEntry(place, directory);
    }
    if (failed == 0) {
        failed = KSYS::SetOwner(directory.Get(), entry.owner, entry.group);
    }
    return failed != 0 ? failed : KSYS::SetMode(directory.Get(), entry.mode);
}

} // namespace

KRestored KBackup::Restore(const std::function<bool()>& shallStop) const {
    const auto product = KPrivateDirectory::OpenExisting(base, name);
    const auto store = product ? product->ExistingBelow("backup") : std::nullopt;
    const std::optional<KBackupIndex> index = LoadIndex(store);
    if (!index) {
        throw KSetupFailure(
            ExitCode::noKit,
            "there is no backup for " + name + ". \"ins-setup install --backup\" makes one."
        );
    }
    Restoring restoring(store->Get());
    const auto stops = [&] {
        restoring.result.stopped = restoring.result.stopped || (shallStop && shallStop());
        return restoring.result.stopped;
    };
    for (const auto& [path, entry] : *index) {
        if (entry.kind == Kind::Nothing && !stops()) {
            restoring.DeleteNew(path);
        }
    }
    for (const auto& [path, entry] : *index) { // a directory stands before what is in it
        if (entry.kind != Kind::Nothing && !stops()) {
            restoring.PutBack(path, entry);
        }
    }
    for (auto one = index->rbegin(); one != index->rend(); ++one) { // the deepest first
        if (one->second.kind == Kind::Nothing && !stops()) {
            restoring.DeleteNewDirectory(one->first);
        }
    }
    restoring.Flush();
    return std::move(restoring.result);
}

} // namespace KSETUP
