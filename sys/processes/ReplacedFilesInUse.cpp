// SPDX-License-Identifier: MIT
#include <algorithm>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <sys/files/DirectoryEntry.h>
#include <sys/files/FileCalls.h>
#include <sys/processes/ProcessList.h>
#include <sys/processes/ReplacedFilesInUse.h>

namespace KSYS {

namespace {

constexpr std::string_view replacedMark = " (deleted)";

/// Empty for what cannot be read, as of a process that has ended.
std::string TextOf(const std::string& path) {
    KDescriptor file;
    struct stat status {};
    std::string text;
    if (OpenRegularEntry(path, O_RDONLY, file, status) != 0 || ReadAll(file.Get(), text) != 0) {
        return {};
    }
    return text;
}

/// The service in a line like "0::/system.slice/dps.service" (cgroups(7)).
std::string ServiceIn(const std::string& groups) {
    const std::size_t end = groups.rfind(".service");
    const std::size_t begin = groups.rfind('/', end);
    return end == std::string::npos || begin == std::string::npos
               ? std::string()
               : groups.substr(begin + 1, end - begin - 1);
}

/// What is told as a file that is gone and never was one: memory that processes share (proc(5),
/// memfd_create(2), shmget(2)).
bool IsMemory(std::string_view path) noexcept {
    return path.starts_with("/memfd:") || path.starts_with("/SYSV") || path.starts_with("/dev/");
}

/// The first file in maps that is gone and ours; empty for none.
std::string
FirstReplaced(const std::string& maps, const std::function<bool(const std::string& path)>& isOurs) {
    for (std::size_t at = 0; at < maps.size();) {
        const std::size_t end = std::min(maps.find('\n', at), maps.size());
        const std::string_view line = std::string_view(maps).substr(at, end - at);
        at = end + 1;
        const std::size_t slash = line.find('/');
        if (slash == std::string_view::npos || !line.ends_with(replacedMark)) {
            continue;
        }
        std::string path(line.substr(slash, line.size() - slash - replacedMark.size()));
        if (!IsMemory(path) && isOurs(path)) {
            return path;
        }
    }
    return {};
}

} // namespace

std::vector<ReplacedFileInUse>
FindReplacedFilesInUse(const std::function<bool(const std::string& path)>& isOurs) {
    std::vector<ReplacedFileInUse> found;
    std::vector<ProcessEntry> all;
    if (ListProcesses(all) != 0) {
        return found;
    }
    for (const ProcessEntry& one : all) {
        const std::string process = "/proc/" + std::to_string(one.id);
        std::string file = FirstReplaced(TextOf(process + "/maps"), isOurs);
        if (file.empty()) {
            continue;
        }
        const std::string name = TextOf(process + "/comm");
        found.push_back(
            {one.id,
             name.empty() ? "?" : name.substr(0, name.find('\n')),
             std::move(file),
             ServiceIn(TextOf(process + "/cgroup"))}
        );
    }
    return found;
}

} // namespace KSYS
