// SPDX-License-Identifier: MIT
// Both names of each call are defined here, the plain one and the one with 64 bits; with the macro,
// headers would make one of the two.
#undef _FILE_OFFSET_BITS
#undef _TIME_BITS

#include "failcall.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <dlfcn.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <sys/types.h>

// The headers of most calls are not included: they declare them with attributes or under names of
// their own, and the definitions would not agree with all of them.

namespace {

struct Plan {
    const char* call = nullptr;
    unsigned nth = 0;
    int errorNumber = 0;
    bool onwards = false;
};

Plan plan;
std::atomic<bool> armed{false};
std::atomic<unsigned> seen{0};

/// True when this call is to be spoiled.
bool IsTurnOf(const char* call) {
    if (!armed || std::strcmp(call, plan.call) != 0) {
        return false;
    }
    const unsigned number = ++seen;
    return plan.onwards ? number >= plan.nth : number == plan.nth;
}

bool Fails(const char* call) {
    if (!IsTurnOf(call)) {
        return false;
    }
    errno = plan.errorNumber;
    return true;
}

/// The C library's own function.
template <class Function>
Function Real(const char* name) {
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

} // namespace

#define EXPORTED extern "C" __attribute__((visibility("default")))

EXPORTED void failcall_arm(const char* call, unsigned nth, int errorNumber, int onwards) {
    plan = {call, nth, errorNumber, onwards != 0};
    seen = 0;
    armed = true;
}

EXPORTED unsigned failcall_disarm(void) {
    armed = false;
    return seen;
}

// A call that answers -1 and errno when it fails.
#define PLAIN(result, symbol, call, parameters, arguments)                                         \
    EXPORTED result symbol parameters {                                                            \
        static const auto real = Real<result(*) parameters>(#symbol);                              \
        return Fails(call) ? static_cast<result>(-1) : real arguments;                             \
    }

// A transfer: it can also be short.
#define TRANSFER(symbol, call, parameters, full, half)                                             \
    EXPORTED ssize_t symbol parameters {                                                           \
        static const auto real = Real<ssize_t(*) parameters>(#symbol);                             \
        if (IsTurnOf(call)) {                                                                      \
            if (plan.errorNumber == 0) {                                                           \
                const std::size_t some = size > 1 ? size / 2 : size;                               \
                return real half;                                                                  \
            }                                                                                      \
            errno = plan.errorNumber;                                                              \
            return -1;                                                                             \
        }                                                                                          \
        return real full;                                                                          \
    }

PLAIN(int, access, "access", (const char* path, int mode), (path, mode))
PLAIN(int, fchmod, "fchmod", (int file, mode_t mode), (file, mode))
PLAIN(
    int,
    fchmodat,
    "fchmodat",
    (int at, const char* path, mode_t mode, int flags),
    (at, path, mode, flags)
)
PLAIN(int, fchown, "fchown", (int file, uid_t owner, gid_t group), (file, owner, group))
PLAIN(int, flock, "flock", (int file, int operation), (file, operation))
PLAIN(int, fstat, "fstat", (int file, void* status), (file, status))
PLAIN(int, fstat64, "fstat", (int file, void* status), (file, status))
PLAIN(
    int,
    fstatat,
    "fstatat",
    (int at, const char* path, void* status, int flags),
    (at, path, status, flags)
)
PLAIN(
    int,
    fstatat64,
    "fstatat",
    (int at, const char* path, void* status, int flags),
    (at, path, status, flags)
)
PLAIN(int, stat64, "stat", (const char* path, void* status), (path, status))
// What the same calls are named in a program of 32 bits with times of 64 bits.
PLAIN(int, __fstat64_time64, "fstat", (int file, void* status), (file, status))
PLAIN(
    int,
    __fstatat64_time64,
    "fstatat",
    (int at, const char* path, void* status, int flags),
    (at, path, status, flags)
)
PLAIN(int, __stat64_time64, "stat", (const char* path, void* status), (path, status))
PLAIN(int, fsync, "fsync", (int file), (file))
PLAIN(int, fdatasync, "fsync", (int file), (file))
PLAIN(int, syncfs, "syncfs", (int file), (file))
PLAIN(int, ftruncate, "ftruncate", (int file, off_t size), (file, size))
PLAIN(int, ftruncate64, "ftruncate", (int file, off64_t size), (file, size))
PLAIN(int, mkdirat, "mkdirat", (int at, const char* path, mode_t mode), (at, path, mode))
PLAIN(int, mkdir, "mkdir", (const char* path, mode_t mode), (path, mode))
PLAIN(
    int,
    renameat,
    "renameat",
    (int from, const char* old, int to, const char* path),
    (from, old, to, path)
)
PLAIN(
    int, symlinkat, "symlinkat", (const char* target, int at, const char* path), (target, at, path)
)
PLAIN(int, unlinkat, "unlinkat", (int at, const char* path, int flags), (at, path, flags))
PLAIN(int, unlink, "unlink", (const char* path), (path))
PLAIN(int, rmdir, "rmdir", (const char* path), (path))
PLAIN(
    ssize_t,
    readlink,
    "readlink",
    (const char* path, char* buffer, std::size_t size),
    (path, buffer, size)
)
PLAIN(
    ssize_t,
    readlinkat,
    "readlinkat",
    (int at, const char* path, char* buffer, std::size_t size),
    (at, path, buffer, size)
)

TRANSFER(
    read,
    "read",
    (int file, void* buffer, std::size_t size),
    (file, buffer, size),
    (file, buffer, some)
)
TRANSFER(
    write,
    "write",
    (int file, const void* buffer, std::size_t size),
    (file, buffer, size),
    (file, buffer, some)
)
TRANSFER(
    pread64,
    "pread",
    (int file, void* buffer, std::size_t size, off64_t offset),
    (file, buffer, size, offset),
    (file, buffer, some, offset)
)
TRANSFER(
    pwrite64,
    "pwrite",
    (int file, const void* buffer, std::size_t size, off64_t offset),
    (file, buffer, size, offset),
    (file, buffer, some, offset)
)
TRANSFER(
    copy_file_range,
    "copy_file_range",
    (int from, off64_t* fromOffset, int to, off64_t* toOffset, std::size_t size, unsigned flags),
    (from, fromOffset, to, toOffset, size, flags),
    (from, fromOffset, to, toOffset, some, flags)
)

EXPORTED int close(int file) {
    static const auto real = Real<int (*)(int)>("close");
    const bool fails = Fails("close");
    const int error = errno;
    const int result = real(file);
    if (!fails) {
        return result;
    }
    errno = error;
    return -1;
}

// The mode is read whether or not it was passed, as the C library itself does.
#define OPEN(symbol, call, parameters, arguments)                                                  \
    EXPORTED int symbol parameters {                                                               \
        static const auto real = Real<int(*) parameters>(#symbol);                                 \
        std::va_list rest;                                                                         \
        va_start(rest, flags);                                                                     \
        const mode_t mode = va_arg(rest, mode_t);                                                  \
        va_end(rest);                                                                              \
        return Fails(call) ? -1 : real arguments;                                                  \
    }

OPEN(open, "open", (const char* path, int flags, ...), (path, flags, mode))
OPEN(open64, "open", (const char* path, int flags, ...), (path, flags, mode))
OPEN(openat, "openat", (int at, const char* path, int flags, ...), (at, path, flags, mode))
OPEN(openat64, "openat", (int at, const char* path, int flags, ...), (at, path, flags, mode))

EXPORTED long syscall(long number, ...) {
    static const auto real = Real<long (*)(long, ...)>("syscall");
    std::va_list rest;
    va_start(rest, number);
    long arguments[6];
    for (long& argument : arguments) {
        argument = va_arg(rest, long);
    }
    va_end(rest);
    if (number == SYS_openat2 && Fails("openat2")) {
        return -1;
    }
    return real(
        number, arguments[0], arguments[1], arguments[2], arguments[3], arguments[4], arguments[5]
    );
}

struct __dirstream; // NOLINT: the C library's name

EXPORTED __dirstream* opendir(const char* path) {
    static const auto real = Real<__dirstream* (*)(const char*)>("opendir");
    return Fails("opendir") ? nullptr : real(path);
}

struct dirent64;

EXPORTED dirent64* readdir64(__dirstream* directory) {
    static const auto real = Real<dirent64* (*)(__dirstream*)>("readdir64");
    return Fails("readdir") ? nullptr : real(directory);
}

EXPORTED int pthread_create(
    pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument
) noexcept {
    static const auto real =
        Real<int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>("pthread_create");
    return Fails("pthread_create") ? plan.errorNumber : real(thread, attributes, body, argument);
}
