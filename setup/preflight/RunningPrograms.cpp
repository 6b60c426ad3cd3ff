// SPDX-License-Identifier: MIT
#include <setup/preflight/RunningPrograms.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <map>
#include <system_error>
#include <utility>

#include <sys/stat.h>

namespace KSETUP {

namespace {

namespace fs = std::filesystem;

std::string NameOf(const fs::path& process) {
    std::FILE* file = std::fopen((process / "comm").c_str(), "re");
    if (file == nullptr) {
        return "?";
    }
    std::array<char, 64> name{};
    const bool isRead = std::fgets(name.data(), static_cast<int>(name.size()), file) != nullptr;
    std::fclose(file);
    const std::string text = isRead ? name.data() : "?";
    return text.substr(0, text.find('\n'));
}

} // namespace

std::vector<std::string> FindRunningPrograms(const KPlan& plan) {
    // By device and inode: a program may have been started through a link.
    std::map<std::pair<dev_t, ino_t>, std::string> files;
    for (std::string& path : plan.FindFilesThatGo()) {
        struct stat status {};
        if (::lstat(path.c_str(), &status) == 0) {
            files.emplace(std::pair(status.st_dev, status.st_ino), std::move(path));
        }
    }
    std::vector<std::string> running;
    if (files.empty()) {
        return running;
    }
    std::error_code unreadable; // without /proc nothing is known to run
    for (const fs::directory_entry& process : fs::directory_iterator("/proc", unreadable)) {
        struct stat program {}; // there is none of a kernel thread, or of one that has ended
        if (::stat((process.path() / "exe").c_str(), &program) != 0) {
            continue;
        }
        const auto file = files.find({program.st_dev, program.st_ino});
        if (file != files.end()) {
            running.push_back(
                NameOf(process.path()) + " (" + process.path().filename().string() + "), " +
                file->second
            );
        }
    }
    return running;
}

} // namespace KSETUP
