// SPDX-License-Identifier: MIT
#include <cerrno>
#include <filesystem>
#include <system_error>

#include <sys/files/WriteReport.h>
#include <sys/services/UnitFileChanges.h>
#include <sys/stat.h>

namespace KSYS {

namespace {

std::string ParentOf(const std::string& path) {
    return path.substr(0, path.rfind('/'));
}

bool IsGone(const std::string& path) noexcept {
    struct stat status {};
    return ::lstat(path.c_str(), &status) != 0 && errno == ENOENT;
}

} // namespace

UnitFileReport::UnitFileReport(const std::string& directoryOfUnits) {
    if (!IsReportingWrites()) {
        return;
    }
    directories.insert(directoryOfUnits);
    std::error_code error; // a directory that is missing has none in it
    std::filesystem::directory_iterator entry(directoryOfUnits, error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        if (std::error_code unknown; entry->is_directory(unknown)) {
            directories.insert(entry->path().string());
        }
    }
}

void UnitFileReport::Report(const std::vector<UnitFileChange>& changes) const {
    if (!IsReportingWrites()) {
        return;
    }
    std::set<std::string> standing = directories;
    std::set<std::string> left;
    for (const UnitFileChange& change : changes) {
        const std::string parent = ParentOf(change.path);
        if (change.type == "symlink") {
            if (standing.insert(parent).second) {
                ReportWrite(Written::Directory, parent.c_str());
            }
            ReportWrite(Written::Link, change.path.c_str());
        } else if (change.type == "unlink") {
            ReportWrite(Written::FileDeleted, change.path.c_str());
            left.insert(parent);
        }
    }
    for (const std::string& directory : left) {
        if (IsGone(directory)) {
            ReportWrite(Written::DirectoryDeleted, directory.c_str());
        }
    }
}

} // namespace KSYS
