// SPDX-License-Identifier: MIT
#include <setup/files/PathText.h>
#include <setup/rules/KFileSharing.h>
#include <sup++/KFileBase.h>
#include <sup++/SvcFile.h>

#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include <bundle/KWorkPlace.h>
#include <bundle/UnpackedTable.h>
#include <sys/files/FileStatus.h>
#include <sys/files/SecondName.h>

namespace KSETUP {

namespace {

using Kind = KPlannedAction::Kind;
using Paths = std::unordered_set<std::string_view>;

/// New files that nobody is to edit.
Paths NewFiles(const KPlan& plan) {
    Paths made;
    plan.ForEachAction([&](const KPlannedAction& action) {
        if (action.kind == Kind::CopyFile && !action.replaces && !action.lacks &&
            !action.isConfiguration && action.obstacle.empty()) {
            made.insert(*action.path);
        }
    });
    return made;
}

/// What a rule gives its mode or owner. A file made in such a directory may inherit from it.
std::unordered_set<std::string> WithOwnRights(const KPlan& plan) {
    std::unordered_set<std::string> paths;
    plan.ForEachAction([&](const KPlannedAction& action) {
        if (action.kind == Kind::SetMode) {
            paths.insert(NormalPath(*action.path));
        }
    });
    return paths;
}

/// What is known of the files of a kit from the table of its bundle.
class UnpackedFiles {
  public:
    UnpackedFiles(
        const std::optional<KBUNDLE::KBundleTable>& table, const std::string& kitDirectory
    )
        : kit(NormalPath(kitDirectory)) {
        if (table) {
            for (const KBUNDLE::KBundleEntry& entry : table->entries) {
                files.emplace(entry.name, &entry);
            }
        }
    }

    /// Nothing where the table does not have it.
    KFileSharing::Unpacked Find(std::string_view source) const {
        const std::string path = NormalPath(std::string(source));
        const auto known = IsAtOrBelow(path, kit) && path.size() > kit.size()
                               ? files.find(std::string_view(path).substr(kit.size() + 1))
                               : files.end();
        if (known == files.end() || known->second->isDirectory) {
            return {};
        }
        const KBUNDLE::KBundleEntry& entry = *known->second;
        return {
            entry.byteCount,
            {.tv_sec = static_cast<time_t>(entry.seconds),
             .tv_nsec = static_cast<long>(entry.nanoseconds)},
            entry.sha256};
    }

  private:
    const std::string kit;
    std::unordered_map<std::string_view, const KBUNDLE::KBundleEntry*> files;
};

/// Whether nobody wrote to a file since it was unpacked: its time would be another one. Only who may do
/// anything could, as the directory is private.
bool IsAsUnpacked(const struct stat& status, const KFileSharing::Unpacked& file) {
    return static_cast<std::uint64_t>(status.st_size) == file.byteCount &&
           status.st_mtim.tv_sec == file.changed.tv_sec &&
           status.st_mtim.tv_nsec == file.changed.tv_nsec;
}

/// Directories in which files of one file system are made without inheriting anything.
class PlainDirectories {
  public:
    PlainDirectories(dev_t ofDevice, std::unordered_set<std::string> itsRights)
        : device(ofDevice),
          rights(std::move(itsRights)) {}

    bool Has(const std::string& directory) {
        const auto known = answers.find(directory);
        if (known != answers.end()) {
            return known->second;
        }
        const bool answer = Look(directory);
        answers.emplace(directory, answer);
        return answer;
    }
    bool HasOwnRights(const std::string& path) const { return rights.contains(path); }

  private:
    bool Look(const std::string& directory) {
        struct stat status {};
        if (rights.contains(directory)) {
            return false;
        }
        if (KSYS::ReadStatus(directory, KSYS::LastLink::Keep, status) != 0) { // yet to be made
            const std::string parent = ParentPath(directory);
            return parent != directory && !parent.empty() && Has(parent);
        }
        return status.st_dev == device && KSYS::MakesPlainFiles(directory);
    }

    const dev_t device;
    const std::unordered_set<std::string> rights;
    std::unordered_map<std::string, bool> answers;
};

} // namespace

KFileSharing::KFileSharing(
    const KPlan& plan, const std::vector<KCopy>& lasting, const std::string& kitDirectory
)
    : unpackedSince(KBUNDLE::FindLockOf(kitDirectory)) {
    struct stat unpacked {};
    if (unpackedSince < 0 || KSYS::ReadStatus(unpackedSince, unpacked) != 0) {
        return;
    }
    const Paths made = NewFiles(plan);
    PlainDirectories directories(unpacked.st_dev, WithOwnRights(plan));
    const std::optional<KBUNDLE::KBundleTable> table = KBUNDLE::FindKeptTable(kitDirectory);
    const UnpackedFiles files(table, kitDirectory);
    for (const KCopy& copy : lasting) {
        const std::string target(copy.target);
        struct stat source {};
        if (made.contains(copy.target) && !directories.HasOwnRights(target) &&
            directories.Has(ParentPath(target)) &&
            KSYS::IsPlainFile(std::string(copy.source), source) &&
            source.st_dev == unpacked.st_dev) {
            shared.emplace(copy.target, files.Find(copy.source));
        }
    }
}

bool KFileSharing::Link(
    const KSUP::KString& source,
    KSUP::KDirectory* fromDirectory,
    const KSUP::KString& target,
    KSUP::KDirectory* toDirectory,
    KFileDigest& digest
) {
    struct stat status {};
    const auto found = shared.find(NormalPath(target.c_str()));
    // The first of two copies of one file has the name by now.
    if (found == shared.end() || !KSYS::IsPlainFile(source.c_str(), status)) {
        return false;
    }
    // What the disk failed to write while it was unpacked is this run's failure too.
    isTracked = isTracked || SvcTrackWritesSince(unpackedSince) == 0;
    if (!isTracked || KSUP::KFileBase::Link(source, fromDirectory, target, toDirectory) != 0) {
        return false;
    }
    const Unpacked& file = found->second;
    if (file.sha256 && IsAsUnpacked(status, file)) {
        constexpr unsigned permissions = 07777;
        digest = {0, file.byteCount, HexText(*file.sha256), status.st_mode & permissions};
    }
    return true;
}

} // namespace KSETUP
