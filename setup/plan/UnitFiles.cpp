// SPDX-License-Identifier: MIT
#include <setup/plan/UnitFiles.h>

#include <filesystem>
#include <system_error>

namespace KSETUP {

namespace {

namespace fs = std::filesystem;

constexpr const char* unitDirectory = "/etc/systemd/system/";

bool HoldsLinks(const fs::path& directory) {
    const fs::path ending = directory.extension();
    return ending == ".wants" || ending == ".requires" || ending == ".upholds";
}

} // namespace

std::vector<std::string> UnitPaths(const std::string& service) {
    return {
        unitDirectory + service + ".service",
        std::string(unitDirectory) + "multi-user.target.wants/" + service + ".service"};
}

std::vector<std::string> FindUnitEntries(const std::string& service) {
    const std::string unit = service + ".service";
    std::vector<std::string> entries;
    std::error_code unknown; // what cannot be looked at has none
    const auto add = [&](const fs::path& path) {
        if (fs::exists(fs::symlink_status(path, unknown))) {
            entries.push_back(path.string());
        }
    };
    add(fs::path(unitDirectory) / unit);
    for (fs::directory_iterator entry(unitDirectory, unknown), end; !unknown && entry != end;
         entry.increment(unknown)) {
        std::error_code none; // what is no link leads nowhere
        if (HoldsLinks(entry->path())) {
            add(entry->path() / unit);
        } else if (entry->path().filename() != unit && fs::read_symlink(entry->path(), none).filename() == unit) {
            add(entry->path());
        }
    }
    return entries;
}

} // namespace KSETUP
