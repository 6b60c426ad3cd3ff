// SPDX-License-Identifier: MIT
#include <setup/files/KRealDirectories.h>
#include <setup/files/PathText.h>

#include <filesystem>
#include <system_error>
#include <utility>

#include <sys/files/DirectoryEntry.h>

namespace KSETUP {

const std::string& KRealDirectories::Find(const std::string& directory) {
    if (const auto found = known.find(directory); found != known.end()) {
        return found->second;
    }
    std::string place = directory;
    if (directory.size() > 1) {
        place = JoinPath(Find(ParentPath(directory)), NameOfPath(directory));
        std::string target;
        if (KSYS::ReadLink(place, target) == 0) {
            std::error_code unknown; // it is what it is called, then
            const auto led = std::filesystem::weakly_canonical(place, unknown);
            place = unknown ? place : led.string();
        }
    }
    return known.emplace(directory, std::move(place)).first->second;
}

} // namespace KSETUP
