// SPDX-License-Identifier: MIT
#include <map>
#include <utility>

#include <sys/files/DirectoryEntry.h>
#include <sys/files/FileCalls.h>
#include <sys/processes/ProcessList.h>
#include <sys/processes/ProgramsInUse.h>

namespace KSYS {

namespace {

using Identity = std::pair<dev_t, ino_t>;

std::string NameOf(const std::string& process) {
    KDescriptor file;
    struct stat status {};
    std::string text;
    if (OpenRegularEntry(process + "/comm", O_RDONLY, file, status) != 0 ||
        ReadAll(file.Get(), text) != 0) {
        return "?";
    }
    return text.substr(0, text.find('\n'));
}

} // namespace

std::vector<ProgramInUse> FindProgramsInUse(const std::vector<std::string>& files) {
    // By device and inode: a program may have been started through a link.
    std::map<Identity, std::string> wanted;
    struct stat status {};
    for (const std::string& file : files) {
        if (ReadStatus(file, LastLink::Keep, status) == 0) {
            wanted.emplace(Identity(status.st_dev, status.st_ino), file);
        }
    }
    std::vector<ProgramInUse> found;
    std::vector<ProcessEntry> all;
    if (wanted.empty() || ListProcesses(all) != 0) {
        return found;
    }
    for (const ProcessEntry& one : all) {
        const std::string process = "/proc/" + std::to_string(one.id);
        // There is no program of a kernel thread, or of a process that has ended.
        if (ReadStatus(process + "/exe", LastLink::Follow, status) != 0) {
            continue;
        }
        const auto file = wanted.find(Identity(status.st_dev, status.st_ino));
        if (file != wanted.end()) {
            found.push_back({one.id, NameOf(process), file->second});
        }
    }
    return found;
}

} // namespace KSYS
