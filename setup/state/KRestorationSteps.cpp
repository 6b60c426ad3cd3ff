// SPDX-License-Identifier: MIT
//
// How a restoration changes the disk. Steps return 0 or errno.
#include <setup/KSetupFailure.h>
#include <setup/files/PathText.h>
#include <setup/output/TextFormat.h>
#include <setup/state/KKeptKit.h>
#include <setup/state/KRestoration.h>
#include <setup/state/KRunState.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include <sys/files/FileContent.h>
#include <sys/files/FileStatus.h>

namespace KSETUP {

namespace {

using KSYS::Entry;
using KSYS::LastLink;
using KSYS::Place;
using Kind = KBackupEntry::Kind;

// How much waits beside its place for one flush.
constexpr std::size_t mostCopies = 32; // each with a descriptor
constexpr std::uint64_t mostBytesBeside = std::uint64_t{64} << 20U;

/// Where `failed` says so, what was made beside the place goes instead.
unsigned Rename(const std::string& temporary, const Place& place, unsigned failed) {
    const int at = place.directory.Get();
    if (failed == 0) {
        failed = KSYS::RenameEntry(at, temporary.c_str(), place.name.c_str());
        // A directory that the run made in its place goes, if nothing is in it.
        if (failed == EISDIR && KSYS::RemoveDirectoryEntry(place) == 0) {
            failed = KSYS::RenameEntry(at, temporary.c_str(), place.name.c_str());
        }
    }
    if (failed != 0) {
        // The first failure is what counts.
        static_cast<void>(KSYS::UnlinkEntry({at, temporary.c_str()}));
    }
    return failed;
}

bool IsMissing(unsigned errorNumber) noexcept {
    return errorNumber == ENOENT || errorNumber == ENOTDIR;
}

/// Whether an open directory is to have the owner and mode that one at the place had. In a directory
/// in which others may lay entries they may have put one of root's there, to be given it.
bool MayHaveRights(
    const Place& place, int directory, const struct stat& now, const KBackupEntry& entry
) {
    bool isClosed = false;
    if ((KSYS::ReadClosedToOthers(place.directory.Get(), isClosed) == 0 && isClosed) ||
        (entry.owner != 0 && now.st_uid == entry.owner && now.st_gid == entry.group)) {
        return true;
    }
    std::vector<std::string> names; // of one that was just made, or is as good as that
    return KSYS::IsOwn(now) && KSYS::ListEntries({directory, "."}, names) == 0 && names.empty();
}

KText RefusedRights(const std::string& path, const KBackupEntry& entry) {
    const std::string owner = std::to_string(entry.owner) + ":" + std::to_string(entry.group);
    return Text(
        "cannot put back the owner and mode of %s: others may put another directory there. See "
        "that it is the right one, set them (chown %s, chmod %s), and run it again",
        path,
        owner,
        ModeText(entry.mode)
    );
}

/// "NAME.edited", or the first of "NAME.edited.2" and so on that is free.
unsigned MoveBeside(const Place& place, std::string& name) {
    for (unsigned number = 1;; ++number) {
        name = place.name + ".edited" + (number == 1 ? "" : "." + std::to_string(number));
        struct stat status {};
        const unsigned failed = KSYS::ReadStatus({place.directory, name}, LastLink::Keep, status);
        if (failed == ENOENT) {
            return KSYS::RenameEntry(place.directory.Get(), place.name.c_str(), name.c_str());
        }
        if (failed != 0) {
            return failed;
        }
    }
}

} // namespace

void KRestoration::Failed(const KText& what, unsigned errorNumber) {
    result.failures.push_back(
        what + ": " + std::generic_category().message(static_cast<int>(errorNumber))
    );
}

void KRestoration::RemainToFlush(const Entry& directory, const std::string& path) {
    struct stat status {};
    KSYS::KDescriptor opened;
    unsigned failed = KSYS::ReadStatus(directory, LastLink::Keep, status);
    if (failed == 0 && written.contains(status.st_dev)) {
        return;
    }
    if (failed == 0) { // a place has it open by its path only, which is not enough to flush it
        failed = KSYS::OpenDirectoryEntry(directory, opened);
    }
    if (failed != 0) {
        Failed(
            Text("cannot flush what was put back: cannot open the directory of %s", path), failed
        );
        return;
    }
    written.emplace(status.st_dev, std::move(opened));
}

void KRestoration::RemainToFlush(const Place& place, const std::string& path) {
    RemainToFlush(Entry(place.directory.Get(), "."), path);
}

/// What one that was killed has put back may not be on the disk either, and is left alone now.
void KRestoration::RemainToFlushAll() {
    for (const auto& [path, entry] : backup.index.entries) {
        if (entry.kind != Kind::Directory || IsOwn(path)) {
            continue;
        }
        Place place;
        struct stat status {};
        // One that is not there, or no directory, could not be put back, which was told.
        if (KSYS::FindPlace(path.c_str(), LastLink::Keep, place) == 0 &&
            KSYS::ReadStatus(place, LastLink::Keep, status) == 0 && S_ISDIR(status.st_mode)) {
            RemainToFlush(Entry(place), path);
        }
    }
}

/// What the program keeps for itself nobody asks about.
void KRestoration::Count(const std::string& path, unsigned& counter, const Place& place) {
    counter += IsOwn(path) ? 0U : 1U;
    RemainToFlush(place, path);
}

void KRestoration::Flush() {
    for (const auto& [device, directory] : written) {
        if (const unsigned failed = KSYS::FlushFileSystem(directory.Get()); failed != 0) {
            Failed(Text("cannot flush what was put back"), failed);
        }
    }
    written.clear();
}

void KRestoration::PutBack(const std::function<bool()>& shallStop) {
    const std::vector<std::string> toKeep = edited;
    for (const std::string& path : toKeep) {
        if (!KeepBeside(path)) {
            states[path] = State::Foreign; // rather that than its loss
        }
    }
    PutBackAll(false, shallStop);
    FindKept();
    RemainToFlushAll();
    Flush();
}

void KRestoration::PutBackOwn() {
    DeleteUnlistedOfKit();
    PutBackAll(true, {});
    Flush();
}

/// Directories come first, because a link in the place of one would lead elsewhere; what was not
/// there goes before what was there comes, which it may be in the way of.
void KRestoration::PutBackAll(bool own, const std::function<bool()>& shallStop) {
    const std::string state =
        ownDirectory + "/" + KRunState::fileName; // says that all this goes on: last
    const auto isDue = [&](const std::string& path) {
        result.stopped = result.stopped || (shallStop && shallStop());
        const State found = states.at(path);
        return !result.stopped && IsOwn(path) == own && path != state && found != State::AsBefore &&
               found != State::Foreign;
    };
    const KBackupEntries& entries = backup.index.entries;
    for (const auto& [path, entry] : entries) { // a directory stands before what is in it
        if (entry.kind == Kind::Directory && isDue(path)) {
            MakeDirectory(path, entry);
        }
    }
    for (const auto& [path, entry] : entries) {
        if (entry.kind == Kind::Nothing && isDue(path)) {
            DeleteNew(path);
        }
    }
    for (auto one = entries.rbegin(); one != entries.rend(); ++one) { // the deepest first
        if (one->second.kind == Kind::Nothing && isDue(one->first)) {
            DeleteNewDirectory(one->first);
        }
    }
    for (const auto& [path, entry] : entries) {
        if ((entry.kind == Kind::File || entry.kind == Kind::Link) && isDue(path)) {
            PutBackOne(path, entry);
        }
    }
    PutCopiesInPlace();
    if (const auto found = entries.find(state);
        own && found != entries.end() && found->second.kind == Kind::File) {
        Flush();
        if (result.failures.empty()) { // else it still has to go on
            PutBackOne(state, found->second);
            PutCopiesInPlace();
        }
    }
}

bool KRestoration::KeepBeside(const std::string& path) {
    Place place;
    std::string name;
    unsigned failed = KSYS::FindPlace(path.c_str(), LastLink::Keep, place);
    failed = failed == 0 ? MoveBeside(place, name) : failed;
    if (failed != 0) {
        Failed(Text("cannot keep %s", path), failed);
        return false;
    }
    result.edited.emplace_back(path, JoinPath(ParentPath(path), name));
    RemainToFlush(place, path);
    return true;
}

/// Makes one that is gone, and gives one that is there its rights back.
void KRestoration::MakeDirectory(const std::string& path, const KBackupEntry& entry) {
    Place place;
    KSYS::KDescriptor directory;
    unsigned failed = KSYS::FindPlace(path.c_str(), LastLink::Keep, place);
    struct stat status {};
    if (failed == 0) {
        const bool isThere = KSYS::ReadStatus(place, LastLink::Keep, status) == 0;
        if (isThere && !S_ISDIR(status.st_mode)) { // of the run, or it would be kept beside
            failed = KSYS::UnlinkEntry(place);
        }
        if (failed == 0 && !(isThere && S_ISDIR(status.st_mode))) {
            failed = KSYS::MakeDirectoryEntry(place, S_IRWXU);
        }
    }
    if (failed == 0) {
        failed = KSYS::OpenDirectoryEntry(place, directory);
    }
    if (failed == 0) {
        failed = KSYS::ReadStatus(directory.Get(), status);
    }
    if (failed == 0 && !MayHaveRights(place, directory.Get(), status, entry)) {
        result.failures.push_back(RefusedRights(path, entry));
        return;
    }
    if (failed == 0) {
        failed = KSYS::SetOwner(directory.Get(), entry.owner, entry.group);
    }
    if (failed == 0) {
        failed = KSYS::SetMode(directory.Get(), entry.mode);
    }
    if (failed != 0) {
        Failed(Text("cannot put back %s", path), failed);
        return;
    }
    Count(path, result.putBack, place);
}

/// Directories are left for later.
void KRestoration::DeleteNew(const std::string& path) {
    Place place;
    struct stat status {};
    unsigned failed = KSYS::FindPlace(path.c_str(), LastLink::Keep, place);
    if (failed == 0) {
        failed = KSYS::ReadStatus(place, LastLink::Keep, status);
    }
    if (IsMissing(failed) || (failed == 0 && S_ISDIR(status.st_mode))) {
        return;
    }
    if (failed == 0) {
        failed = KSYS::UnlinkEntry(place);
    }
    if (failed != 0) {
        Failed(Text("cannot delete %s", path), failed);
        return;
    }
    Count(path, result.deleted, place);
}

void KRestoration::DeleteLink(const std::string& path) {
    Place place;
    struct stat status {};
    if (KSYS::FindPlace(path.c_str(), LastLink::Keep, place) == 0 &&
        KSYS::ReadStatus(place, LastLink::Keep, status) == 0 && S_ISLNK(status.st_mode)) {
        DeleteNew(path);
        Flush();
    }
}

void KRestoration::DeleteNewDirectory(const std::string& path) {
    Place place;
    if (KSYS::FindPlace(path.c_str(), LastLink::Keep, place) != 0) {
        return;
    }
    const unsigned failed = KSYS::RemoveDirectoryEntry(place);
    if (failed == 0) {
        Count(path, result.deleted, place);
    } else if (failed == ENOTEMPTY || failed == EEXIST) {
        result.kept.push_back(path);
    } else if (!IsMissing(failed)) { // a file there failed, and was told of
        Failed(Text("cannot delete %s", path), failed);
    }
}

void KRestoration::PutBackOne(const std::string& path, const KBackupEntry& entry) {
    if (entry.kind == Kind::File) {
        unsigned failed = CopyBeside(path, entry);
        if (failed != 0 && !copies.empty()) { // these hold room and descriptors
            PutCopiesInPlace();
            failed = CopyBeside(path, entry);
        }
        if (failed != 0) {
            Failed(Text("cannot put back %s", path), failed);
        } else if (copies.size() == mostCopies || bytesBeside >= mostBytesBeside) {
            PutCopiesInPlace();
        }
        return;
    }
    Place place;
    unsigned failed = KSYS::FindPlace(path.c_str(), LastLink::Keep, place);
    failed = failed == 0 ? PutBackLink(place, entry) : failed;
    if (failed != 0) {
        Failed(Text("cannot put back %s", path), failed);
    } else {
        Count(path, result.putBack, place);
    }
}

unsigned KRestoration::CopyBeside(const std::string& path, const KBackupEntry& entry) {
    KCopyBeside copy{path, {}, KSYS::TemporaryName(), 0};
    KSYS::KDescriptor source;
    KSYS::KDescriptor target;
    struct stat status {};
    unsigned failed = KSYS::FindPlace(path.c_str(), LastLink::Keep, copy.place);
    if (failed == 0) {
        failed = KSYS::OpenRegularEntry(
            {backup.directory.Get(), entry.stored.c_str()}, O_RDONLY, source, status
        );
    }
    const Entry beside(copy.place.directory.Get(), copy.temporary.c_str());
    if (failed == 0) {
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
    if (failed == 0) {
        failed = KSYS::ReadStatus(target.Get(), status);
    }
    if (failed != 0) { // this is what counts
        static_cast<void>(KSYS::UnlinkEntry(beside));
        return failed;
    }
    copy.device = status.st_dev;
    copiedOn.try_emplace(copy.device, std::move(target));
    copies.push_back(std::move(copy));
    bytesBeside += entry.size;
    return 0;
}

/// A loss of power must not leave a name with nothing behind it: their bytes are on the disk first.
/// Whole file systems are flushed, of which each waits once for many files; and a btrfs that is
/// flushed file by file writes a log, which Linux 6.18 cannot always replay.
void KRestoration::PutCopiesInPlace() {
    std::map<dev_t, unsigned> flushed;
    for (const auto& [device, file] : copiedOn) {
        flushed[device] = KSYS::FlushFileSystem(file.Get());
    }
    for (const KCopyBeside& copy : copies) {
        const unsigned failed = Rename(copy.temporary, copy.place, flushed.at(copy.device));
        if (failed != 0) {
            Failed(Text("cannot put back %s", copy.path), failed);
        } else {
            Count(copy.path, result.putBack, copy.place);
        }
    }
    copiedOn.clear();
    copies.clear();
    bytesBeside = 0;
}

unsigned KRestoration::PutBackLink(const Place& place, const KBackupEntry& entry) {
    const std::string temporary = KSYS::TemporaryName();
    const Entry beside(place.directory.Get(), temporary.c_str());
    if (const unsigned failed = KSYS::MakeLinkEntry(entry.target.c_str(), beside); failed != 0) {
        return failed;
    }
    return Rename(
        temporary, place, KSYS::SetOwnerAndTime(beside, entry.owner, entry.group, entry.changed)
    );
}

/// A tree of the program's own, in which nobody else writes: what the run added goes.
void KRestoration::DeleteUnlistedOfKit() {
    std::vector<std::string> paths;
    try {
        paths = KKeptKit::ListPaths(std::string(NameOfPath(ownDirectory)), base);
    } catch (const KSetupFailure& failure) {
        result.failures.emplace_back(failure.what());
        return;
    }
    std::reverse(paths.begin(), paths.end()); // what is in a directory before it
    for (const std::string& path : paths) {
        const auto listed = backup.index.entries.find(path);
        if (listed == backup.index.entries.end() || listed->second.kind == Kind::Nothing) {
            DeleteNew(path);
            DeleteNewDirectory(path);
        }
    }
}

/// What the run made and no plan knew of, so that nobody knows whether something stood there.
void KRestoration::FindKept() {
    if (result.stopped || !backup.left) {
        return;
    }
    for (const auto& [path, entry] : *backup.left) {
        std::optional<KBackupEntry> now;
        if (!backup.index.entries.contains(path) && LookForBackup(path, now) == 0 && now &&
            now->kind != Kind::Nothing) {
            result.kept.push_back(path);
        }
    }
    std::sort(result.kept.begin(), result.kept.end());
}

} // namespace KSETUP
