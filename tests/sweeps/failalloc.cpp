// SPDX-License-Identifier: MIT
//
// Stands in front of the C library's allocator (LD_PRELOAD): allocation number FAILALLOC_NTH fails,
// counted from 1 over all threads. With FAILALLOC_COUNT=FILE the number of all is written there when
// the program ends, and with FAILALLOC_TRACE the calls that led to the failure are told.
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

#include <execinfo.h>
#include <unistd.h>

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): glibc's names
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* former, std::size_t size);
// NOLINTEND(bugprone-reserved-identifier): as above
}

namespace {

std::atomic<unsigned long> seen{0};
unsigned long nth = 0;
bool isTold = false;
char countFile[256]; // the program may clear its environment

bool Fails() {
    const bool isTurn = seen.fetch_add(1, std::memory_order_relaxed) + 1 == nth;
    if (isTurn) {
        if (isTold) {
            void* calls[40];
            ::backtrace_symbols_fd(calls, ::backtrace(calls, 40), STDERR_FILENO);
        }
        errno = ENOMEM;
    }
    return isTurn;
}

__attribute__((constructor)) void Begin() {
    const char* const text =
        std::getenv("FAILALLOC_NTH"); // NOLINT(concurrency-mt-unsafe): before any thread
    nth = text != nullptr ? std::strtoul(text, nullptr, 10) : 0;
    if (const char* const path =
            std::getenv("FAILALLOC_COUNT")) { // NOLINT(concurrency-mt-unsafe): as above
        std::snprintf(countFile, sizeof(countFile), "%s", path);
    }
    if (std::getenv("FAILALLOC_TRACE") != nullptr) { // NOLINT(concurrency-mt-unsafe): as above
        void* calls[1];
        isTold = ::backtrace(calls, 1) >= 0; // loads what it needs, while there is memory
    }
    seen = 0;
    ::unsetenv("LD_PRELOAD"); // not for the programs that it starts
}

__attribute__((destructor)) void End() {
    if (std::FILE* file = countFile[0] != '\0' ? std::fopen(countFile, "w") : nullptr) {
        std::fprintf(file, "%lu\n", seen.load());
        std::fclose(file);
    }
}

} // namespace

extern "C" {

__attribute__((visibility("default"))) void* malloc(std::size_t size) {
    return Fails() ? nullptr : __libc_malloc(size);
}

__attribute__((visibility("default"))) void* calloc(std::size_t count, std::size_t size) {
    return Fails() ? nullptr : __libc_calloc(count, size);
}

__attribute__((visibility("default"))) void* realloc(void* former, std::size_t size) {
    return Fails() ? nullptr : __libc_realloc(former, size);
}
}
