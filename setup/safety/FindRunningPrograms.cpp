// SPDX-License-Identifier: MIT
#include <setup/output/KSetupProgress.h>
#include <setup/safety/Preflight.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <map>
#include <system_error>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

namespace KSETUP {

namespace {

using FileIdentity = std::pair<dev_t, ino_t>;

} // namespace

std::string KRunningProgram::ToWords() const {
    return std::to_string(pid) + " " + KSetupProgress::Printable(name.c_str()) + " " +
           KSetupProgress::Printable(path.c_str());
}

std::vector<KRunningProgram>
FindRunningPrograms(const std::vector<std::string>& paths, const std::string& processes) {
    // Files are told apart by their identity: the same one may be reached by several paths.
    std::map<FileIdentity, std::string> files;
    for (const std::string& path : paths) {
        struct stat status {};
        if (::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode)) {
            files.try_emplace({status.st_dev, status.st_ino}, path);
        }
    }
    std::vector<KRunningProgram> running;
    std::error_code unreadable;
    for (std::filesystem::directory_iterator entry(processes, unreadable);
         !unreadable && entry != std::filesystem::directory_iterator();
         entry.increment(unreadable)) {
        const std::string number = entry->path().filename().string();
        KRunningProgram program;
        const char* const end = number.data() + number.size();
        struct stat status {};
        if (std::from_chars(number.data(), end, program.pid).ptr != end ||
            program.pid == ::getpid() || ::stat((entry->path() / "exe").c_str(), &status) != 0) {
            continue;
        }
        if (const auto file = files.find({status.st_dev, status.st_ino}); file != files.end()) {
            program.path = file->second;
            std::ifstream name(entry->path() / "comm");
            std::getline(name, program.name);
            running.push_back(std::move(program));
        }
    }
    std::sort(running.begin(), running.end(), [](const auto& one, const auto& other) {
        return one.pid < other.pid;
    });
    return running;
}

} // namespace KSETUP
