// SPDX-License-Identifier: MIT
#include <setup/files/PathText.h>
#include <setup/plan/KPlan.h>

#include <map>
#include <unordered_map>
#include <utility>

#include <sys/files/FileData.h>
#include <sys/files/FileStatus.h>

namespace KSETUP {

namespace {

using Kind = KPlannedAction::Kind;

bool Makes(const KPlannedAction& action) {
    if (action.lacks || !action.obstacle.empty()) {
        return false;
    }
    return action.kind == Kind::CopyFile || action.kind == Kind::MakeLink ||
           action.kind == Kind::CreateDirectory || action.kind == Kind::CreateProfile ||
           ((action.kind == Kind::PutOption || action.kind == Kind::CreateUser) && !action.replaces
           );
}

/// Of files from this size on it is asked whether they have holes, which a copy keeps: of smaller
/// ones a product has thousands, and a hole in them changes little.
constexpr std::uint64_t leastSparse = 1U << 20U;

/// What an action allocates on a file system of such blocks.
std::uint64_t BytesOf(const KPlannedAction& action, std::uint64_t block) {
    std::uint64_t bytes = (action.bytes + block - 1) / block * block;
    if (action.kind == Kind::CopyFile && action.bytes >= leastSparse) {
        // What cannot be read counts whole: the copy will tell.
        static_cast<void>(KSYS::ReadDataBytes(action.source->c_str(), block, bytes));
    }
    return bytes;
}

/// The file systems of directories. Each directory is looked at once: a product has many files in
/// few of them.
class FileSystems {
  public:
    /// Null for a directory that cannot be looked at: the run's own first step there will tell.
    KPlan::Space* Of(const std::string& directory);
    std::vector<KPlan::Space> Take();
    std::uint64_t GetBlock(const KPlan::Space* space) const { return blocks.at(space); }

  private:
    KPlan::Space* Look(const std::string& directory);

    std::map<dev_t, KPlan::Space> spaces; // whose items stay where they are
    std::unordered_map<const KPlan::Space*, std::uint64_t> blocks;
    std::unordered_map<std::string, KPlan::Space*> byDirectory;
};

KPlan::Space* FileSystems::Of(const std::string& directory) {
    const auto known = byDirectory.find(directory);
    if (known != byDirectory.end()) {
        return known->second;
    }
    KPlan::Space* space = Look(directory);
    byDirectory.emplace(directory, space);
    return space;
}

KPlan::Space* FileSystems::Look(const std::string& directory) {
    struct stat status {};
    KSYS::FileSystemStatus system;
    if (KSYS::ReadStatus(directory, KSYS::LastLink::Follow, status) != 0) { // it is yet to be made
        const std::string parent = ParentPath(directory);
        return parent.empty() || parent == directory ? nullptr : Of(parent);
    }
    const auto known = spaces.find(status.st_dev);
    if (known != spaces.end()) {
        return &known->second;
    }
    if (KSYS::ReadFileSystem(directory.c_str(), system) != 0) {
        return nullptr;
    }
    KPlan::Space& space = spaces[status.st_dev];
    space.directory = directory;
    space.available = system.bytesFree;
    space.filesAvailable = system.filesFree;
    space.filesAreUnlimited = !system.hasFileLimit;
    blocks[&space] = system.blockBytes;
    return &space;
}

std::vector<KPlan::Space> FileSystems::Take() {
    std::vector<KPlan::Space> result;
    for (auto& [device, space] : spaces) {
        result.push_back(std::move(space));
    }
    return result;
}

} // namespace

std::vector<KPlan::Space> KPlan::ReadSpace(
    const std::vector<std::string>& alsoWritten,
    const std::function<bool(const std::string& path)>& isThere
) const {
    FileSystems systems;
    std::string directory;
    Space* space = nullptr;
    for (const KPlannedRule& rule : rules) {
        for (const KPlannedAction& action : rule.actions) {
            if (!Makes(action)) {
                continue;
            }
            const std::string path = NormalPath(*action.path);
            if (isThere && isThere(path)) {
                continue;
            }
            // One rule copies many files to one directory.
            if (std::string parent = ParentPath(path); parent != directory) {
                directory = std::move(parent);
                space = systems.Of(directory);
            }
            if (space != nullptr) {
                space->needed += BytesOf(action, systems.GetBlock(space));
                space->filesNeeded += action.replaces ? 0 : 1;
            }
        }
    }
    for (const std::string& written : alsoWritten) {
        systems.Of(NormalPath(written));
    }
    return systems.Take();
}

} // namespace KSETUP
