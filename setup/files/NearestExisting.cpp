// SPDX-License-Identifier: MIT
#include <setup/files/NearestExisting.h>

#include <filesystem>
#include <system_error>

namespace KSETUP {

std::string NearestExisting(const std::string& directory) {
    std::filesystem::path at(directory);
    std::error_code unknown; // as good as missing
    while (at.has_relative_path() && !std::filesystem::exists(at, unknown)) {
        at = at.parent_path();
    }
    return at.empty() ? "/" : at.string();
}

} // namespace KSETUP
