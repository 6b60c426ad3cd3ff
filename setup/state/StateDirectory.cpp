// SPDX-License-Identifier: MIT
#include <ins/Names.h>
#include <setup/state/StateDirectory.h>
#include <sup++/KUtil.h>

#include <filesystem>
#include <system_error>

#include <sys/files/DirectoryEntry.h>
#include <sys/files/FileContent.h>

namespace KSETUP {

std::vector<std::string> WrittenByEachInstall() {
    return {KSUP::KUtil::GetPathName(KINS::Names::logDirectoryId, "").c_str(), stateBaseDirectory};
}

void RemoveEmptyStateDirectory(const std::string& serviceName, const std::string& baseDirectory) {
    const std::filesystem::path base = baseDirectory;
    std::error_code isNotEmpty; // then it stays
    std::filesystem::remove(base / serviceName, isNotEmpty);
    const bool isGone = std::filesystem::remove(base, isNotEmpty);
    KSYS::KDescriptor above;
    if (KSYS::OpenDirectoryEntry((isGone ? base.parent_path() : base).c_str(), above) == 0) {
        // An empty directory that comes back harms nobody.
        static_cast<void>(KSYS::Flush(above.Get()));
    }
}

} // namespace KSETUP
