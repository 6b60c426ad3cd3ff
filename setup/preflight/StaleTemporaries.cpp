// SPDX-License-Identifier: MIT
#include <setup/preflight/StaleTemporaries.h>

#include <sys/files/FileStatus.h>

namespace KSETUP {

void DeleteStaleTemporaries(const std::set<std::string>& directories, std::uint32_t key) {
    if (key == 0) { // it is not known which they were
        return;
    }
    for (const std::string& path : directories) {
        KSYS::KDescriptor directory;
        std::vector<std::string> names;
        if (KSYS::OpenDirectoryEntry(path, directory) != 0 ||
            KSYS::ListEntries({directory.Get(), "."}, names) != 0) {
            continue; // what stays there is in nobody's way
        }
        for (const std::string& name : names) {
            const KSYS::Entry entry(directory, name);
            struct stat status {};
            const bool isOurs = KSYS::IsTemporaryName(name, key) &&
                                KSYS::ReadStatus(entry, KSYS::LastLink::Keep, status) == 0 &&
                                (S_ISREG(status.st_mode) || S_ISLNK(status.st_mode)) &&
                                KSYS::IsOwn(status);
            if (isOurs) {
                static_cast<void>(KSYS::UnlinkEntry(entry)); // one that stays is in nobody's way
            }
        }
    }
}

} // namespace KSETUP
