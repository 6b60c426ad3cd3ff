// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

/// The least that a copy with the engine's progress contract can cost: what everything in bench/ is
/// compared with. Written for speed alone: it replaces nothing, refuses nothing, has no rules, no log
/// and no record, and ends the process at the first failure.
namespace KBENCH {

constexpr std::size_t chunkBytes = 65536;

[[noreturn]] inline void Fail(const char* what) {
    std::perror(what);
    std::exit(1);
}

inline int Checked(int result, const char* what) {
    if (result < 0) {
        Fail(what);
    }
    return result;
}

/// What a program that shows progress cannot do without: a lock, a call and a text for each chunk.
class MinimalProgress {
  public:
    using Callback = std::function<void(const std::string& text, double percent)>;

    explicit MinimalProgress(Callback statusCallback) : callback(std::move(statusCallback)) {}

    void Report(const std::string& text, double percent) {
        const std::lock_guard hold(guard);
        callback(text, percent);
        char digits[8];
        const auto end =
            std::to_chars(digits, digits + sizeof(digits), static_cast<int>(percent + 0.5)).ptr;
        status.assign(text).append(" (").append(digits, end).append("%)");
    }

    std::size_t StatusSize() {
        const std::lock_guard hold(guard);
        return status.size();
    }

  private:
    std::mutex guard;
    Callback callback;
    std::string status;
};

/// Takes the descriptor of a file that was copied, from which it can be read.
using TakeCopy = std::function<void(int file)>;

/// Copies one file: seven system calls and one for each chunk. Without `take` it closes the copy.
inline void MinimalCopy(
    int sourceDirectory,
    const char* source,
    int targetDirectory,
    const char* target,
    MinimalProgress& progress,
    const TakeCopy& take = {}
) {
    const int from = Checked(::openat(sourceDirectory, source, O_RDONLY | O_CLOEXEC), source);
    struct stat status {};
    Checked(::fstat(from, &status), source);
    const int to = Checked(
        ::openat(
            targetDirectory, target, (take ? O_RDWR : O_WRONLY) | O_CREAT | O_EXCL | O_CLOEXEC, 0600
        ),
        target
    );
    const std::string text = std::string("Copying file ") + source;
    const auto length = static_cast<std::size_t>(status.st_size);
    std::size_t copied = 0;
    while (copied < length) {
        auto offset = static_cast<off64_t>(copied);
        const std::size_t most = std::min(chunkBytes, length - copied);
        const ssize_t bytes = ::copy_file_range(from, &offset, to, nullptr, most, 0);
        if (bytes <= 0) {
            Fail("copy_file_range");
        }
        copied += static_cast<std::size_t>(bytes);
        progress.Report(text, static_cast<double>(copied) / static_cast<double>(length) * 100.0);
    }
    Checked(::fchmod(to, status.st_mode & 07777), target);
    Checked(::close(from), source);
    if (take) {
        take(to);
    } else {
        Checked(::close(to), target);
    }
}

constexpr int directoryFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

/// Copies a tree of regular files and directories from one open directory to another; closes both.
inline void
MinimalCopyTree(int source, int target, MinimalProgress& progress, const TakeCopy& take = {}) {
    DIR* entries = ::fdopendir(source);
    if (entries == nullptr) {
        Fail("fdopendir");
    }
    while (const dirent* entry = ::readdir(entries)) {
        const char* name = entry->d_name;
        if (entry->d_type == DT_REG) {
            MinimalCopy(source, name, target, name, progress, take);
        } else if (entry->d_type == DT_DIR && std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0) {
            Checked(::mkdirat(target, name, 0755), name);
            MinimalCopyTree(
                Checked(::openat(source, name, directoryFlags), name),
                Checked(::openat(target, name, directoryFlags), name),
                progress,
                take
            );
        }
    }
    ::closedir(entries);
    ::close(target);
}

inline void MinimalCopyTree(
    const char* source, const char* target, MinimalProgress& progress, const TakeCopy& take = {}
) {
    MinimalCopyTree(
        Checked(::open(source, directoryFlags), source),
        Checked(::open(target, directoryFlags), target),
        progress,
        take
    );
}

} // namespace KBENCH
