// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/PathText.h>
#include <setup/run/FlushDeletions.h>
#include <setup/state/KPrivateDirectory.h>

#include <cerrno>
#include <set>
#include <unordered_set>

#include <sys/files/DirectoryEntry.h>
#include <sys/files/FileContent.h>

namespace KSETUP {

namespace {

constexpr const char* whyNotForgotten = TextFormat(
    "Until that is done a power cut may bring back what was deleted, so it stays remembered. Fix "
    "the cause and run it again."
);

/// The file systems of paths, each flushed when it is met first.
class FlushedFileSystems {
  public:
    void Add(const std::string& path) {
        std::string at = ParentPath(NormalPath(path));
        while (!at.empty() && seen.insert(at).second && !IsFlushed(at) && at != "/") {
            at = ParentPath(at);
        }
    }

  private:
    /// False where there is no such directory any more.
    bool IsFlushed(const std::string& directory) {
        struct stat status {};
        KSYS::KDescriptor opened;
        // With "/." also one that a link leads to.
        unsigned failed = KSYS::OpenDirectoryEntry(directory + "/.", opened);
        if (failed == ENOENT || failed == ENOTDIR) {
            return false;
        }
        if (failed == 0) {
            failed = KSYS::ReadStatus(opened.Get(), status);
        }
        if (failed == 0 && devices.insert(status.st_dev).second) {
            failed = KSYS::FlushFileSystem(opened.Get());
        }
        if (failed != 0) {
            throw SystemFailure(
                ExitCode::cannotWrite,
                Text("cannot bring to the disk what was deleted in %s", directory),
                failed,
                Text(whyNotForgotten)
            );
        }
        return true;
    }

    std::unordered_set<std::string> seen;
    std::set<dev_t> devices;
};

} // namespace

void FlushDeletions(const std::vector<std::string>& paths) {
    FlushedFileSystems flushed;
    for (const std::string& path : paths) {
        flushed.Add(path);
    }
}

} // namespace KSETUP
