// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupStop.h>
#include <setup/files/PathText.h>
#include <setup/state/KBackup.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <future>
#include <iterator>
#include <stdexcept>
#include <thread>
#include <utility>

#include <sys/files/FileContent.h>

namespace KSETUP {

namespace {

using KSYS::LastLink;
using Kind = KBackupEntry::Kind;
constexpr const char* directoryName = "backup";
constexpr const char* nextName = "backup.next"; // of a run that did not come to its end yet
constexpr const char* newName = "backup.new";   // that is being made
constexpr const char* indexName = "index";
constexpr const char* leftName = "left";

KSetupFailure CannotKeep(const std::string& path, unsigned errorNumber) {
    return SystemFailure(
        ExitCode::cannotWrite,
        Text("cannot keep a copy of %s", path),
        errorNumber,
        Text("Nothing was changed. Fix the cause, or install without --backup and --rollback.")
    );
}

void TakeRights(const struct stat& status, KBackupEntry& entry) {
    entry.mode = status.st_mode & 07777U;
    entry.owner = status.st_uid;
    entry.group = status.st_gid;
    entry.changed = status.st_mtim;
    entry.inode = status.st_ino;
    entry.statusChanged = status.st_ctim;
}

/// What stands at the path, and where that is.
///
/// Returns  0 or errno; 0 with the kind Nothing for what is not there
unsigned
LookAtPlace(const std::string& path, KSYS::Place& place, std::optional<KBackupEntry>& entry) {
    struct stat status {};
    entry.emplace();
    unsigned failed = KSYS::FindPlace(path.c_str(), LastLink::Keep, place);
    if (failed == 0) {
        failed = KSYS::ReadStatus(place, LastLink::Keep, status);
    }
    if (failed != 0) {
        return failed == ENOENT || failed == ENOTDIR ? 0 : failed;
    }
    TakeRights(status, *entry);
    if (S_ISREG(status.st_mode)) {
        entry->kind = Kind::File;
        entry->size = static_cast<std::uint64_t>(status.st_size);
    } else if (S_ISDIR(status.st_mode)) {
        entry->kind = Kind::Directory;
    } else if (S_ISLNK(status.st_mode)) {
        entry->kind = Kind::Link;
        failed = KSYS::ReadLink(place, entry->target);
    } else {
        entry.reset();
    }
    return failed;
}

/// Keeps the bytes, and the owner and mode of the very file that has them: what stands there by now
/// may be another one than was looked at, with an owner who must not get these bytes.
///
/// Returns  0 or errno
unsigned KeepFile(const KSYS::Place& place, const KSYS::Entry& stored, KBackupEntry& entry) {
    KSYS::KDescriptor source;
    KSYS::KDescriptor target;
    struct stat status {};
    unsigned failed = KSYS::OpenRegularEntry(place, O_RDONLY, source, status);
    TakeRights(status, entry);
    if (failed == 0) {
        failed = KSYS::MakeFile(stored, target);
    }
    if (failed == 0) {
        failed = KSYS::CopyContent(source.Get(), target.Get(), KSYS::CopyWay::Any);
    }
    return failed != 0 ? failed : KSYS::CopyExtendedAttributes(source.Get(), target.Get());
}

/// Of a path's parents only directories are made and taken away: a link there is the machine's own
/// affair.
enum class Of { Path, Parent };

/// A backup that is being made.
struct Making {
    const KPrivateDirectory& store;
    KBackupIndex index;
};

void Note(const std::string& path, Of of, Making& making) {
    KBackupEntries& entries = making.index.entries;
    if (entries.contains(path)) {
        return;
    }
    KSYS::Place place;
    std::optional<KBackupEntry> entry;
    unsigned failed = LookAtPlace(path, place, entry);
    if (failed == 0 && (!entry || (of == Of::Parent && entry->kind != Kind::Nothing &&
                                   entry->kind != Kind::Directory))) {
        return; // the engine refuses to replace devices, queues and sockets
    }
    if (failed == 0 && entry->kind == Kind::File) {
        entry->stored = std::to_string(entries.size());
        failed = KeepFile(place, {making.store.Get(), entry->stored.c_str()}, *entry);
    }
    if (failed != 0) {
        throw CannotKeep(path, failed);
    }
    entries[path] = std::move(*entry);
}

[[noreturn]] void Stopped() {
    throw KSetupStop(
        Text("stopped on request while keeping what would be replaced. Nothing was changed.")
    );
}

void NoteAll(const KBackupWish& wish, const std::function<bool()>& shallStop, Making& making) {
    for (const std::string& written : wish.paths) {
        const std::string path = NormalPath(written);
        if (shallStop && shallStop()) {
            Stopped();
        }
        for (std::size_t end = path.find('/', 1); end != std::string::npos;
             end = path.find('/', end + 1)) {
            Note(path.substr(0, end), Of::Parent, making);
        }
        Note(path, Of::Path, making);
    }
    for (const KServiceBefore& service : wish.services) {
        bool isKnown = false; // as it was before the first of these runs
        for (const KServiceBefore& kept : making.index.services) {
            isKnown = isKnown || kept.name == service.name;
        }
        if (!isKnown) {
            making.index.services.push_back(service);
        }
    }
}

/// Digests the copies: what a restoration will read. It takes longer than copying them, so all
/// processors do it.
///
/// Thread   this one asks `shallStop`, and works as the others do
class KeptDigests {
  public:
    KeptDigests(const KPrivateDirectory& directory, KBackupEntries& entries) : store(directory) {
        for (auto& [path, entry] : entries) {
            if (!entry.stored.empty() && entry.digest.empty()) {
                files.emplace_back(&path, &entry);
            }
        }
    }
    void Run(const std::function<bool()>& shallStop) {
        std::vector<std::future<void>> others; // waited for in any case
        const std::size_t count = std::min<std::size_t>(
            {std::thread::hardware_concurrency(), files.size() / filesForOne, mostThreads}
        );
        for (std::size_t at = 1; at < count; ++at) {
            others.push_back(std::async(std::launch::async, [this] { Work({}); }));
        }
        Work(shallStop);
        for (std::future<void>& other : others) {
            other.get();
        }
        if (isStopped) {
            Stopped();
        }
    }

  private:
    static constexpr std::size_t filesForOne = 16;
    static constexpr std::size_t mostThreads = 4; // for a disk it is enough

    void Work(const std::function<bool()>& shallStop) {
        const auto stops = [&] {
            if (shallStop && shallStop()) {
                isStopped = true;
            }
            return isStopped.load();
        };
        for (std::size_t at = next++; at < files.size() && !isStopped; at = next++) {
            const auto& [path, entry] = files[at];
            const KFileDigest digest = DigestFile({store.Get(), entry->stored.c_str()}, stops);
            if (digest.errorNumber != 0 && digest.errorNumber != ECANCELED) {
                isStopped = true; // for the others; what is thrown says why
                throw CannotKeep(*path, digest.errorNumber);
            }
            entry->size = digest.size;
            entry->digest = digest.sha256;
        }
    }

    const KPrivateDirectory& store;
    std::vector<std::pair<const std::string*, KBackupEntry*>> files;
    std::atomic<std::size_t> next{0};
    std::atomic<bool> isStopped{false};
};

KSetupFailure
NotUnderstood(const KPrivateDirectory& store, const char* file, const std::invalid_argument& what) {
    return {
        ExitCode::malformedScript,
        Text(
            "%s/%s cannot be understood (%s). Nothing was changed. The kept files are beside it, "
            "under numbers.",
            store.GetPath(),
            file,
            what.what()
        )};
}

/// Makes what was kept of a path what a run left there; says whether it left anything.
bool TakeLeft(const std::string& path, const KManifest& installed, KBackupEntry& entry) {
    std::optional<KBackupEntry> now;
    if (const unsigned failed = LookForBackup(path, now); failed != 0) {
        throw SystemFailure( // what is not noted would count as edited
            ExitCode::cannotWrite,
            Text("cannot look at %s", path),
            failed,
            Text("Fix the cause.")
        );
    }
    if (!now) {
        return false;
    }
    if (now->kind == Kind::File) {
        const KManifestEntry* known = installed.Find(path);
        const bool isKnown = known != nullptr && !known->digest.empty() && known->size == now->size;
        now->digest = isKnown                   ? known->digest
                      : now->IsUntouched(entry) ? entry.digest
                                                : DigestForBackup(path);
    }
    entry = std::move(*now);
    return true;
}

} // namespace

unsigned LookForBackup(const std::string& path, std::optional<KBackupEntry>& entry) {
    KSYS::Place place;
    return LookAtPlace(path, place, entry);
}

std::string DigestForBackup(const std::string& path) {
    KSYS::Place place;
    return KSYS::FindPlace(path.c_str(), LastLink::Keep, place) == 0 ? DigestFile(place).sha256
                                                                     : "";
}

KBackup::KBackup(std::string serviceName, std::string itsBase)
    : name(std::move(serviceName)),
      base(std::move(itsBase)) {}

void KBackup::Save(const KBackupWish& wish, const std::function<bool()>& shallStop) {
    const KPrivateDirectory product(base, name);
    product.DeleteDirectory(newName);
    try {
        const KPrivateDirectory store = product.Below(newName);
        Making making{store, TakeOver(product.ExistingBelow(nextName), wish.run, store)};
        making.index.hasCommands = making.index.hasCommands || wish.hasCommands;
        NoteAll(wish, shallStop, making);
        KeptDigests(store, making.index.entries).Run(shallStop);
        if (const unsigned failed = KSYS::FlushFileSystem(store.Get()); failed != 0) {
            throw CannotKeep(store.GetPath(), failed);
        }
        store.WriteDurably(indexName, ToPieces(making.index));
        Replace(product, newName, nextName);
    } catch (...) { // also when it was stopped
        try {
            product.DeleteDirectory(newName);
        } catch (const KSetupFailure&) {
            // The next backup deletes it; what went wrong first is what counts.
        }
        throw;
    }
}

std::optional<KBackupIndex> KBackup::LoadIndex(const KPrivateDirectory& store) {
    const auto text = store.Read(indexName);
    if (!text) {
        return std::nullopt;
    }
    try {
        return ToBackupIndex(*text);
    } catch (const std::invalid_argument& what) {
        throw NotUnderstood(store, indexName, what);
    }
}

/// Gives the kept files second names: until the new backup takes the former one's place, both are
/// whole. Nothing writes into a kept file.
KBackupIndex KBackup::TakeOver(
    const std::optional<KPrivateDirectory>& former,
    const std::string& run,
    const KPrivateDirectory& store
) {
    std::optional<KBackupIndex> index = former ? LoadIndex(*former) : std::nullopt;
    if (!index || index->run != run) {
        KBackupIndex begun;
        begun.run = run;
        return begun;
    }
    for (const auto& [path, entry] : index->entries) {
        if (!entry.stored.empty()) {
            const char* stored = entry.stored.c_str();
            const unsigned failed =
                KSYS::MakeHardLink({former->Get(), stored}, {store.Get(), stored});
            if (failed != 0) {
                throw CannotKeep(path, failed);
            }
        }
    }
    return *index;
}

/// The one in the place of another, which goes.
void KBackup::Replace(const KPrivateDirectory& product, const char* from, const char* to) {
    const int at = product.Get();
    unsigned failed = KSYS::ExchangeEntries(at, from, to);
    if (failed != 0) {
        // Nothing to exchange it with; or no such exchange here, and then a crash in between costs
        // the former.
        if (failed != ENOENT) {
            product.DeleteDirectory(to);
        }
        failed = KSYS::RenameEntry(at, from, to);
        if (failed != 0) {
            throw CannotKeep(product.GetPath(), failed);
        }
    }
    product.Flush();
    product.DeleteDirectory(from); // the former one by now
}

void KBackup::NoteLeft(const std::vector<std::string>& made, const KManifest& installed) const {
    const auto product = KPrivateDirectory::OpenExisting(base, name);
    const auto store = product ? product->ExistingBelow(nextName) : std::nullopt;
    std::optional<KBackupIndex> left = store ? LoadIndex(*store) : std::nullopt; // in the same form
    if (!left) {
        return;
    }
    left->hasCommands = false;
    left->services.clear();
    for (auto at = left->entries.begin(); at != left->entries.end();) {
        // What ins-setup keeps for itself nobody edits.
        const bool counts =
            !IsAtOrBelow(at->first, base) && TakeLeft(at->first, installed, at->second);
        at = counts ? std::next(at) : left->entries.erase(at);
    }
    for (const std::string& written : made) {
        const std::string path = NormalPath(written);
        KBackupEntry entry;
        if (!left->entries.contains(path) && !IsAtOrBelow(path, base) &&
            TakeLeft(path, installed, entry)) {
            left->entries.emplace(path, std::move(entry));
        }
    }
    store->WriteDurably(leftName, ToPieces(*left));
}

void KBackup::Commit() {
    if (const auto product = KPrivateDirectory::OpenExisting(base, name);
        product && product->ExistingBelow(nextName)) {
        Replace(*product, nextName, directoryName);
    }
}

void KBackup::Discard() {
    if (const auto product = KPrivateDirectory::OpenExisting(base, name)) {
        product->DeleteDirectory(newName);
        product->DeleteDirectory(nextName);
        product->DeleteDirectory(directoryName);
        product->Flush();
    }
}

/// A run that was never begun has not noted what it left.
void KBackup::Tidy(bool isInterrupted) {
    const auto product = KPrivateDirectory::OpenExisting(base, name);
    const auto store = product ? product->ExistingBelow(nextName) : std::nullopt;
    if (!store) {
        return;
    }
    if (!isInterrupted && store->Has(indexName) && store->Has(leftName)) {
        Replace(*product, nextName, directoryName);
    } else {
        product->DeleteDirectory(nextName);
    }
}

std::string KBackup::GetBegunRun() const {
    const auto product = KPrivateDirectory::OpenExisting(base, name);
    const auto store = product ? product->ExistingBelow(nextName) : std::nullopt;
    const std::optional<KBackupIndex> index = store ? LoadIndex(*store) : std::nullopt;
    return index ? index->run : "";
}

std::string KBackup::GetDoneRun() const {
    const auto product = KPrivateDirectory::OpenExisting(base, name);
    auto store = product ? product->ExistingBelow(nextName) : std::nullopt;
    if (product && !(store && store->Has(leftName))) {
        store = product->ExistingBelow(directoryName);
    }
    const std::optional<KBackupIndex> index = store ? LoadIndex(*store) : std::nullopt;
    return index ? index->run : "";
}

std::optional<KOpenBackup> KBackup::Open(const std::string& run) const {
    const auto product = KPrivateDirectory::OpenExisting(base, name);
    for (const char* place : {nextName, directoryName}) {
        auto store = product ? product->ExistingBelow(place) : std::nullopt;
        std::optional<KBackupIndex> index = store ? LoadIndex(*store) : std::nullopt;
        if (!index || index->run != run) {
            continue;
        }
        KOpenBackup backup{std::move(*store), std::move(*index), std::nullopt};
        if (const auto text = backup.directory.Read(leftName)) {
            try {
                backup.left = ToBackupIndex(*text).entries;
            } catch (const std::invalid_argument& what) {
                throw NotUnderstood(backup.directory, leftName, what);
            }
        }
        return backup;
    }
    return std::nullopt;
}

bool KBackup::Exists() const {
    const auto product = KPrivateDirectory::OpenExisting(base, name);
    for (const char* place : {nextName, directoryName}) {
        const auto store = product ? product->ExistingBelow(place) : std::nullopt;
        if (store && store->Has(indexName)) {
            return true;
        }
    }
    return false;
}

void KBackup::Delete(const std::string& run) {
    const auto product = KPrivateDirectory::OpenExisting(base, name);
    for (const char* place : {nextName, directoryName}) {
        const auto store = product ? product->ExistingBelow(place) : std::nullopt;
        const std::optional<KBackupIndex> index = store ? LoadIndex(*store) : std::nullopt;
        if (store && (!index || index->run == run)) {
            store->Delete(indexName); // first: half a backup is none
            product->DeleteDirectory(place);
            product->Flush();
        }
    }
}

} // namespace KSETUP
