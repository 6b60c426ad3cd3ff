// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/files/WriteAll.h>
#include <setup/state/KPrivateDirectory.h>

#include <cerrno>
#include <memory>
#include <system_error>
#include <utility>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace KSETUP {

namespace {

constexpr std::size_t chunkBytes = 65536;
constexpr mode_t othersMayWrite = S_IWGRP | S_IWOTH;
constexpr const char* roomAdvice = "Make room or mend the cause, and run it again.";

KSetupFailure NotOurs(const std::string& path) {
    return {
        ExitCode::cannotWrite,
        path + " is not root's alone: another user owns it or may write there, so what it tells "
               "cannot be trusted. Look at what it holds, then delete it or give it back to root."};
}

bool IsFileName(const std::string& name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos &&
           name.find('\0') == std::string::npos;
}

} // namespace

KSetupFailure SystemFailure(
    int exitCode,
    const std::string& what,
    const std::string& path,
    int errorNumber,
    const std::string& advice
) {
    return {
        exitCode,
        what + " " + path + ": " + std::generic_category().message(errorNumber) + ". " + advice};
}

KPrivateDirectory::KPrivateDirectory(KFileHandle opened, std::string itsPath)
    : directory(std::move(opened)),
      path(std::move(itsPath)) {}

KPrivateDirectory::KPrivateDirectory(const std::string& base, const std::string& name) {
    auto inner = OpenIn(AT_FDCWD, base, base, true)->Below(name);
    directory = std::move(inner.directory);
    path = std::move(inner.path);
}

std::optional<KPrivateDirectory>
KPrivateDirectory::OpenExisting(const std::string& base, const std::string& name) {
    const auto outer = OpenIn(AT_FDCWD, base, base, false);
    return outer ? outer->ExistingBelow(name) : std::nullopt;
}

KPrivateDirectory KPrivateDirectory::Below(const std::string& name) const {
    return std::move(*OpenIn(Get(), name, path + "/" + name, true));
}

std::optional<KPrivateDirectory> KPrivateDirectory::ExistingBelow(const std::string& name) const {
    return OpenIn(Get(), name, path + "/" + name, false);
}

std::optional<KPrivateDirectory>
KPrivateDirectory::OpenIn(int at, const std::string& name, const std::string& path, bool make) {
    if (at != AT_FDCWD && !IsFileName(name)) {
        throw KSetupFailure(
            ExitCode::malformedScript,
            "\"" + name +
                "\" cannot be the name of a service: it has to be a plain file name. "
                "Mend \"serviceName\" in product.ini."
        );
    }
    if (make && ::mkdirat(at, name.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
        throw SystemFailure(ExitCode::cannotWrite, "cannot make", path, errno, roomAdvice);
    }
    KFileHandle opened(::openat(at, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!opened.IsOpen()) {
        if (errno == ENOENT && !make) {
            return std::nullopt;
        }
        if (errno == EACCES) {
            throw KSetupFailure(ExitCode::notRoot, "only root can look into " + path + ".");
        }
        throw SystemFailure(
            ExitCode::cannotWrite,
            "cannot open the directory",
            path,
            errno,
            "Delete what stands there, unless it is a directory of root's."
        );
    }
    struct stat status {};
    if (::fstat(opened.Get(), &status) != 0) {
        throw SystemFailure(ExitCode::cannotWrite, "cannot look at", path, errno, roomAdvice);
    }
    if (status.st_uid != ::geteuid() || (status.st_mode & othersMayWrite) != 0) {
        throw NotOurs(path);
    }
    return KPrivateDirectory(std::move(opened), path);
}

void KPrivateDirectory::WriteDurably(const std::string& name, std::string_view bytes) const {
    const std::string temporary = name + ".new"; // one run at a time: nobody else makes it
    const auto failed = [&](const char* what, int errorNumber) {
        ::unlinkat(Get(), temporary.c_str(), 0); // the first failure is what counts
        return SystemFailure(
            ExitCode::cannotWrite, what, path + "/" + name, errorNumber, roomAdvice
        );
    };
    if (::unlinkat(Get(), temporary.c_str(), 0) != 0 && errno != ENOENT) {
        throw failed("cannot replace", errno);
    }
    const KFileHandle file(::openat(
        Get(),
        temporary.c_str(),
        O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
        S_IRUSR | S_IWUSR
    ));
    if (!file.IsOpen()) {
        throw failed("cannot write", errno);
    }
    if (const int status = WriteAll(file.Get(), bytes); status != 0) {
        throw failed("cannot write", status);
    }
    if (::fsync(file.Get()) != 0 ||
        ::renameat(Get(), temporary.c_str(), Get(), name.c_str()) != 0) {
        throw failed("cannot write", errno);
    }
    Flush();
}

KFileHandle KPrivateDirectory::Open(const std::string& name, int flags) const {
    KFileHandle file(::openat(Get(), name.c_str(), flags | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (!file.IsOpen() || ::fstat(file.Get(), &status) != 0) {
        const int errorNumber = errno;
        throw SystemFailure(
            ExitCode::cannotWrite, "cannot open", path + "/" + name, errorNumber, roomAdvice
        );
    }
    if (!S_ISREG(status.st_mode) || status.st_uid != ::geteuid() ||
        (status.st_mode & othersMayWrite) != 0) {
        throw NotOurs(path + "/" + name);
    }
    return file;
}

std::optional<std::string> KPrivateDirectory::Read(const std::string& name) const {
    struct stat status {};
    if (::fstatat(Get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 && errno == ENOENT) {
        return std::nullopt;
    }
    const KFileHandle file = Open(name, O_RDONLY);
    std::string bytes;
    std::vector<char> chunk(chunkBytes);
    for (;;) {
        const ssize_t count = ::read(file.Get(), chunk.data(), chunk.size());
        if (count > 0) {
            bytes.append(chunk.data(), static_cast<std::size_t>(count));
        } else if (count == 0) {
            return bytes;
        } else if (errno != EINTR) {
            throw SystemFailure(
                ExitCode::cannotWrite, "cannot read", path + "/" + name, errno, roomAdvice
            );
        }
    }
}

void KPrivateDirectory::Delete(const std::string& name) const {
    if (::unlinkat(Get(), name.c_str(), 0) != 0) {
        if (errno == ENOENT) {
            return;
        }
        throw SystemFailure(
            ExitCode::cannotWrite, "cannot delete", path + "/" + name, errno, roomAdvice
        );
    }
    Flush();
}

void KPrivateDirectory::DeleteDirectory(const std::string& name) const {
    const auto inner = ExistingBelow(name);
    if (!inner) {
        return;
    }
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(
        ::fdopendir(::openat(inner->Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)), ::closedir
    );
    for (const dirent* entry = entries ? ::readdir(entries.get()) : nullptr; entry != nullptr;
         entry = ::readdir(entries.get())) {
        if (IsFileName(entry->d_name)) {
            ::unlinkat(inner->Get(), entry->d_name, 0); // what resists keeps the directory
        }
    }
    if (::unlinkat(Get(), name.c_str(), AT_REMOVEDIR) != 0) {
        throw SystemFailure(ExitCode::cannotWrite, "cannot delete", inner->path, errno, roomAdvice);
    }
}

void KPrivateDirectory::Flush() const {
    if (::fsync(Get()) != 0) {
        throw SystemFailure(ExitCode::cannotWrite, "cannot flush", path, errno, roomAdvice);
    }
}

} // namespace KSETUP
