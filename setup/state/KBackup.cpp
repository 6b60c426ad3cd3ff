// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupStop.h>
#include <setup/files/PathText.h>
#include <setup/state/KBackup.h>

#include <cerrno>
#include <optional>
#include <stdexcept>
#include <utility>

#include <sys/files/FileContent.h>
#include <sys/files/FileStatus.h>

namespace KSETUP {

namespace {

using KSYS::LastLink;
using Kind = KBackupEntry::Kind;
constexpr const char* directoryName = "backup";
constexpr const char* newName = "backup.new";
constexpr const char* indexName = "index";
constexpr off_t smallBytes = 65536;

KSetupFailure CannotKeep(const std::string& path, unsigned errorNumber) {
    return SystemFailure(
        ExitCode::cannotWrite,
        "cannot keep a copy of",
        path,
        errorNumber,
        "Nothing was changed. Fix the cause, or install without --backup."
    );
}

/// Makes `stored` a second name of the file that is open; false where there are no hard links, or
/// that would be another file by now.
bool HardLink(const KSYS::Place& place, const struct stat& opened, const KSYS::Entry& stored) {
    struct stat linked {};
    if (KSYS::MakeHardLink(place, stored) != 0) {
        return false;
    }
    if (KSYS::ReadStatus(stored, LastLink::Keep, linked) == 0 && KSYS::IsSameFile(linked, opened)) {
        return true;
    }
    static_cast<void>(KSYS::UnlinkEntry(stored)); // making the copy tells of one that stays
    return false;
}

/// Returns  0 or errno
unsigned KeepFile(const KSYS::Place& place, const KSYS::Entry& stored, const KBackupWay& way) {
    KSYS::KDescriptor source;
    KSYS::KDescriptor target;
    struct stat status {};
    unsigned failed = KSYS::OpenRegularEntry(place, O_RDONLY, source, status);
    if (failed == 0) {
        failed = KSYS::MakeFile(stored, target);
    }
    if (failed != 0) {
        return failed;
    }
    if (KSYS::CopyContent(source.Get(), target.Get(), KSYS::CopyWay::ReflinkOnly) != 0) {
        if (status.st_size > smallBytes && !way.filesMayBeWrittenTo) {
            failed = KSYS::UnlinkEntry(stored);
            if (failed == 0 && HardLink(place, status, stored)) {
                return 0; // and so are its attributes
            }
            failed = failed == 0 ? KSYS::MakeFile(stored, target) : failed;
        }
        if (failed == 0) {
            failed = KSYS::CopyContent(source.Get(), target.Get(), KSYS::CopyWay::Any);
        }
    }
    return failed != 0 ? failed : KSYS::CopyExtendedAttributes(source.Get(), target.Get());
}

/// What stands at a path, as far as its status tells; nothing for one that is not there.
///
/// Throws   KSetupFailure when that cannot be told
std::optional<KBackupEntry> Look(const std::string& path, KSYS::Place& place, mode_t& type) {
    struct stat status {};
    unsigned failed = KSYS::FindPlace(path.c_str(), LastLink::Keep, place);
    if (failed == 0) {
        failed = KSYS::ReadStatus(place, LastLink::Keep, status);
    }
    if (failed == ENOENT || failed == ENOTDIR) {
        return std::nullopt;
    }
    if (failed != 0) {
        throw CannotKeep(path, failed);
    }
    KBackupEntry entry;
    entry.mode = status.st_mode & 07777U;
    entry.owner = status.st_uid;
    entry.group = status.st_gid;
    entry.changed = status.st_mtim;
    type = status.st_mode & S_IFMT;
    return entry;
}

/// Of a path's parents only directories are made and taken away: a link there is the machine's own
/// affair.
enum class Of { Path, Parent };

/// A backup that is being made.
struct Making {
    const KPrivateDirectory& store;
    const KBackupWay& way;
    KBackupIndex index;
};

void Note(const std::string& path, Of of, Making& making) {
    KBackupIndex& index = making.index;
    if (index.contains(path)) {
        return;
    }
    KSYS::Place place;
    mode_t type = 0;
    std::optional<KBackupEntry> entry = Look(path, place, type);
    unsigned failed = 0;
    if (!entry) {
        entry.emplace(); // nothing
    } else if (type == S_IFDIR) {
        entry->kind = Kind::Directory;
    } else if (type == S_IFREG && of == Of::Path) {
        entry->kind = Kind::File;
        entry->stored = std::to_string(index.size());
        failed = KeepFile(place, {making.store.Get(), entry->stored.c_str()}, making.way);
    } else if (type == S_IFLNK && of == Of::Path) {
        entry->kind = Kind::Link;
        failed = KSYS::ReadLink(place, entry->target);
    } else {
        return; // the engine refuses to replace devices, queues and sockets
    }
    if (failed != 0) {
        throw CannotKeep(path, failed);
    }
    index[path] = std::move(*entry);
}

} // namespace

KBackup::KBackup(std::string serviceName, std::string itsBase)
    : name(std::move(serviceName)),
      base(std::move(itsBase)) {}

void KBackup::Save(
    const std::vector<std::string>& paths,
    const std::function<bool()>& shallStop,
    const KBackupWay& way
) {
    const KPrivateDirectory product(base, name);
    product.DeleteDirectory(newName);
    try {
        const KPrivateDirectory store = product.Below(newName);
        Making making{store, way, way.addsToFormer ? TakeOver(product, store) : KBackupIndex()};
        for (const std::string& written : paths) {
            const std::string path = NormalPath(written);
            if (shallStop && shallStop()) {
                throw KSetupStop(
                    "stopped on request while keeping what would be replaced. Nothing was changed."
                );
            }
            for (std::size_t end = path.find('/', 1); end != std::string::npos;
                 end = path.find('/', end + 1)) {
                Note(path.substr(0, end), Of::Parent, making);
            }
            Note(path, Of::Path, making);
        }
        if (const unsigned failed = KSYS::FlushFileSystem(store.Get()); failed != 0) {
            throw CannotKeep(store.GetPath(), failed);
        }
        store.WriteDurably(indexName, ToText(making.index));
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

std::optional<KBackupIndex> KBackup::LoadIndex(const std::optional<KPrivateDirectory>& store) {
    const auto text = store ? store->Read(indexName) : std::nullopt;
    if (!text) {
        return std::nullopt;
    }
    try {
        return ToBackupIndex(*text);
    } catch (const std::invalid_argument& what) {
        throw KSetupFailure(
            ExitCode::malformedScript,
            store->GetPath() + "/" + indexName + " cannot be understood (" + what.what() +
                "). Nothing was changed. The kept files are beside it, under numbers."
        );
    }
}

/// Gives the kept files second names: until the new backup takes the former one's place, both are
/// whole.
KBackupIndex KBackup::TakeOver(const KPrivateDirectory& product, const KPrivateDirectory& store) {
    const auto former = product.ExistingBelow(directoryName);
    KBackupIndex index = LoadIndex(former).value_or(KBackupIndex());
    for (const auto& [path, entry] : index) {
        if (entry.kind == Kind::File) {
            const char* stored = entry.stored.c_str();
            const unsigned failed =
                KSYS::MakeHardLink({former->Get(), stored}, {store.Get(), stored});
            if (failed != 0) {
                throw CannotKeep(path, failed);
            }
        }
    }
    return index;
}

void KBackup::Replace(const KPrivateDirectory& product) const {
    const int at = product.Get();
    unsigned failed = KSYS::ExchangeEntries(at, newName, directoryName);
    if (failed != 0) {
        // No former one; or no such exchange here, and then a crash in between costs the former.
        if (failed != ENOENT) {
            product.DeleteDirectory(directoryName);
        }
        failed = KSYS::RenameEntry(at, newName, directoryName);
        if (failed != 0) {
            throw CannotKeep(product.GetPath(), failed);
        }
    }
    product.Flush();
    product.DeleteDirectory(newName); // the former one by now
}

bool KBackup::Exists() const {
    const auto product = KPrivateDirectory::OpenExisting(base, name);
    const auto store = product ? product->ExistingBelow(directoryName) : std::nullopt;
    struct stat index {};
    return store && KSYS::ReadStatus({store->Get(), indexName}, LastLink::Keep, index) == 0;
}

void KBackup::Discard() {
    if (const auto product = KPrivateDirectory::OpenExisting(base, name)) {
        product->DeleteDirectory(newName);
        product->DeleteDirectory(directoryName);
        product->Flush();
    }
}

} // namespace KSETUP
