// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/kit/KitFiles.h>

#include <algorithm>
#include <system_error>

#include <sys/files/FileCalls.h>
#include <sys/files/FileContent.h>

namespace KSETUP {

namespace fs = std::filesystem;

namespace {

void RequireRead(unsigned failed, const fs::path& path) {
    if (failed != 0) {
        FailOn(path, static_cast<int>(failed));
    }
}

void RequireWritten(unsigned failed, const fs::path& path) {
    if (failed != 0) {
        FailOnWrite(path, static_cast<int>(failed));
    }
}

} // namespace

void FailOn(const fs::path& path, int error, const KText& advice) {
    throw KSetupFailure(
        ExitCode::noKit,
        path.string() + ": " + std::generic_category().message(error) + "." +
            (advice.empty() ? "" : " " + advice)
    );
}

void FailOnWrite(const fs::path& path, int error) {
    throw KSetupFailure(
        ExitCode::cannotWrite,
        Text("cannot write %s: %s.", path.string(), std::generic_category().message(error))
    );
}

KKitListing ListKit(const fs::path& directory) {
    KKitListing listing;
    std::error_code error;
    for (fs::recursive_directory_iterator at(directory, error), end; !error && at != end;
         at.increment(error)) {
        std::error_code unknown; // then it is nothing that a kit can hold
        const std::string path = at->path().lexically_relative(directory).string();
        if (!at->is_symlink(unknown) && at->is_directory(unknown)) {
            listing.directories.push_back(path);
        } else if (at->is_regular_file(unknown)) {
            listing.files.push_back(path);
        } else {
            listing.others.push_back(path);
        }
    }
    if (error) {
        FailOn(directory, error.value(), Text("All of it has to be readable."));
    }
    for (auto* list : {&listing.files, &listing.directories, &listing.others}) {
        std::sort(list->begin(), list->end());
    }
    return listing;
}

std::string ReadBytes(const fs::path& path) {
    KSYS::KDescriptor file;
    struct stat status {};
    std::string bytes;
    RequireRead(KSYS::OpenRegular(path.c_str(), file, status), path);
    RequireRead(KSYS::ReadAll(file.Get(), bytes), path);
    return bytes;
}

void WriteBytes(const fs::path& path, const std::string& bytes, mode_t mode) {
    const std::string temporary = path.parent_path() / KSYS::TemporaryName();
    RequireWritten(KSYS::ReplaceEntry(AT_FDCWD, temporary, path.string(), bytes, mode), path);
}

void CopyBytes(const fs::path& from, const fs::path& to, mode_t kept) {
    KSYS::KDescriptor source;
    KSYS::KDescriptor target;
    struct stat status {};
    RequireRead(KSYS::OpenRegular(from.c_str(), source, status), from);
    static_cast<void>(KSYS::UnlinkEntry(to.string())); // making the file tells of one that stays
    RequireWritten(KSYS::MakeFile(to.string(), target), to);
    RequireWritten(
        KSYS::CopyContent(source.Get(), target.Get(), KSYS::CopyWay::Any),
        to.string() + " from " + from.string()
    );
    RequireWritten(KSYS::SetMode(target.Get(), status.st_mode & kept), to);
}

void MakeDirectories(const fs::path& path) {
    std::error_code error;
    fs::create_directories(path, error);
    if (error) {
        FailOnWrite(path, error.value());
    }
}

KTemporaryDirectory::KTemporaryDirectory(const fs::path& parent)
    : path(parent / KSYS::TemporaryName()) {
    RequireWritten(KSYS::MakeDirectoryEntry(path.string(), S_IRWXU), parent);
}

KTemporaryDirectory::~KTemporaryDirectory() {
    std::error_code stays; // nobody is left to hear of it
    if (!path.empty()) {
        fs::remove_all(path, stays);
    }
}

} // namespace KSETUP
