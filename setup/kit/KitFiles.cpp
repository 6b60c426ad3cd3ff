// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/KFileHandle.h>
#include <setup/files/WriteAll.h>
#include <setup/kit/KitFiles.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace KSETUP {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t chunkBytes = 65536;

int OpenForRead(const fs::path& path) {
    const int opened = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (opened < 0) {
        FailOn(path, errno);
    }
    return opened;
}

/// Into `chunk`; false at the end.
bool ReadChunk(int from, std::string& chunk, const fs::path& path) {
    chunk.resize(chunkBytes);
    ssize_t got = 0;
    do {
        got = ::read(from, chunk.data(), chunk.size());
    } while (got < 0 && errno == EINTR);
    if (got < 0) {
        FailOn(path, errno);
    }
    chunk.resize(static_cast<std::size_t>(got));
    return got > 0;
}

void Write(int to, std::string_view bytes, const fs::path& path) {
    if (const int error = WriteAll(to, bytes); error != 0) {
        FailOnWrite(path, error);
    }
}

} // namespace

void FailOn(const fs::path& path, int error, const std::string& advice) {
    throw KSetupFailure(
        ExitCode::noKit,
        path.string() + ": " + std::generic_category().message(error) + "." +
            (advice.empty() ? "" : " " + advice)
    );
}

void FailOnWrite(const fs::path& path, int error) {
    throw KSetupFailure(
        ExitCode::cannotWrite,
        "cannot write " + path.string() + ": " + std::generic_category().message(error) + "."
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
        FailOn(directory, error.value(), "All of it has to be readable.");
    }
    for (auto* list : {&listing.files, &listing.directories, &listing.others}) {
        std::sort(list->begin(), list->end());
    }
    return listing;
}

std::string ReadBytes(const fs::path& path) {
    const KFileHandle file(OpenForRead(path));
    std::string bytes;
    for (std::string chunk; ReadChunk(file.Get(), chunk, path);) {
        bytes += chunk;
    }
    return bytes;
}

void WriteBytes(const fs::path& path, const std::string& bytes, mode_t mode) {
    std::string name = path.string() + ".XXXXXX";
    const KFileHandle file(::mkostemp(name.data(), O_CLOEXEC));
    if (file.Get() < 0) {
        FailOnWrite(path, errno);
    }
    try {
        Write(file.Get(), bytes, path);
        if (::fchmod(file.Get(), mode) != 0 || ::fsync(file.Get()) != 0 ||
            ::rename(name.c_str(), path.c_str()) != 0) {
            FailOnWrite(path, errno);
        }
    } catch (const KSetupFailure&) {
        ::unlink(name.c_str());
        throw;
    }
}

void CopyBytes(const fs::path& from, const fs::path& to) {
    const KFileHandle source(OpenForRead(from));
    struct stat status {};
    const KFileHandle target(::open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    if (target.Get() < 0) {
        FailOnWrite(to, errno);
    }
    for (std::string chunk; ReadChunk(source.Get(), chunk, from);) {
        Write(target.Get(), chunk, to);
    }
    if (::fstat(source.Get(), &status) != 0 ||
        ::fchmod(target.Get(), status.st_mode & 07777) != 0) {
        FailOnWrite(to, errno);
    }
}

void MakeDirectories(const fs::path& path) {
    std::error_code error;
    fs::create_directories(path, error);
    if (error) {
        FailOnWrite(path, error.value());
    }
}

fs::path MakeTemporaryDirectory(const fs::path& parent, const std::string& prefix) {
    std::string name = (parent / (prefix + "XXXXXX")).string();
    if (::mkdtemp(name.data()) == nullptr) {
        FailOnWrite(parent, errno);
    }
    return name;
}

KTemporaryDirectory::~KTemporaryDirectory() {
    std::error_code stays; // nobody is left to hear of it
    fs::remove_all(path, stays);
}

} // namespace KSETUP
