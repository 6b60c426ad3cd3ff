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

void RemoveEmptyStateDirectory(const std::string& serviceName) {
    std::error_code isNotEmpty; // then it stays
    std::filesystem::remove(std::filesystem::path(stateBaseDirectory) / serviceName, isNotEmpty);
    KSYS::KDescriptor base;
    if (KSYS::OpenDirectoryEntry(stateBaseDirectory, base) == 0) {
        static_cast<void>(KSYS::Flush(base.Get())
        ); // an empty directory that comes back harms nobody
    }
    std::filesystem::remove(stateBaseDirectory, isNotEmpty);
}

} // namespace KSETUP
