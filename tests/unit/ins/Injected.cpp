// SPDX-License-Identifier: MIT
#include "Injected.h"

#include <sup++/KUtil.h>
#include <sup++/Svc.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

#include <dlfcn.h>

namespace KTEST {

namespace {

std::atomic<const Injections*> current{nullptr};

/// The library's own function behind the one defined here.
template <class Function>
Function LibrarysOwn(Function, const char* mangledName) {
    void* const found = ::dlsym(RTLD_NEXT, mangledName);
    if (found == nullptr) {
        std::fprintf(stderr, "no library defines %s\n", mangledName);
        std::abort();
    }
    return reinterpret_cast<Function>(found);
}

} // namespace

Injection::Injection() {
    current = this;
}

Injection::~Injection() {
    current = nullptr;
}

const Injections* Injection::Current() noexcept {
    return current;
}

} // namespace KTEST

using KTEST::Injection;
using KTEST::LibrarysOwn;

// Each answers with the test's function where there is one, else with the library's.
#define INJECTED(name, mangledName, ...)                                                           \
    const KTEST::Injections* const injected = Injection::Current();                                \
    if (injected != nullptr && injected->name) {                                                   \
        return injected->name(__VA_ARGS__);                                                        \
    }                                                                                              \
    static const auto own = LibrarysOwn(&name, mangledName)

unsigned SvcLoadMessage(unsigned catalogue, const char* baseName) noexcept {
    INJECTED(SvcLoadMessage, "_Z14SvcLoadMessagejPKc", catalogue, baseName);
    return own(catalogue, baseName);
}

unsigned SvcUnloadMessage(unsigned catalogue) noexcept {
    INJECTED(SvcUnloadMessage, "_Z16SvcUnloadMessagej", catalogue);
    return own(catalogue);
}

unsigned SvcDeleteFile(unsigned flags, const char* path) noexcept {
    INJECTED(SvcDeleteFile, "_Z13SvcDeleteFilejPKc", flags, path);
    return own(flags, path);
}

unsigned SvcCreateDirectory(unsigned flags, const char* path, unsigned withParents) noexcept {
    INJECTED(SvcCreateDirectory, "_Z18SvcCreateDirectoryjPKcj", flags, path, withParents);
    return own(flags, path, withParents);
}

unsigned SvcDeleteDirectory(unsigned flags, const char* path, unsigned reserved) noexcept {
    INJECTED(SvcDeleteDirectory, "_Z18SvcDeleteDirectoryjPKcj", flags, path, reserved);
    return own(flags, path, reserved);
}

unsigned SvcFlushWrites() noexcept {
    INJECTED(SvcFlushWrites, "_Z14SvcFlushWritesv");
    return own();
}

unsigned SvcPollingDispatch() noexcept {
    INJECTED(SvcPollingDispatch, "_Z18SvcPollingDispatchv");
    return own();
}

unsigned SvcCreateService(
    unsigned flags,
    const char* name,
    const char* displayName,
    const char* program,
    const char* arguments
) noexcept {
    INJECTED(
        SvcCreateService,
        "_Z16SvcCreateServicejPKcS0_S0_S0_",
        flags,
        name,
        displayName,
        program,
        arguments
    );
    return own(flags, name, displayName, program, arguments);
}

unsigned SvcDeleteService(unsigned flags, const char* name) noexcept {
    INJECTED(SvcDeleteService, "_Z16SvcDeleteServicejPKc", flags, name);
    return own(flags, name);
}

unsigned SvcStartService(unsigned flags, const char* name) noexcept {
    INJECTED(SvcStartService, "_Z15SvcStartServicejPKc", flags, name);
    return own(flags, name);
}

unsigned SvcStopService(unsigned flags, const char* name) noexcept {
    INJECTED(SvcStopService, "_Z14SvcStopServicejPKc", flags, name);
    return own(flags, name);
}

unsigned SvcStopServiceEx(unsigned flags, const char* name, unsigned timeoutMs) noexcept {
    INJECTED(SvcStopServiceEx, "_Z16SvcStopServiceExjPKcj", flags, name, timeoutMs);
    return own(flags, name, timeoutMs);
}

unsigned SvcGetServiceStatus(unsigned flags, const char* name, unsigned* state) noexcept {
    INJECTED(SvcGetServiceStatus, "_Z19SvcGetServiceStatusjPKcPj", flags, name, state);
    return own(flags, name, state);
}

unsigned SvcEnumerateStringFromCommandLine(
    unsigned flags,
    const char* commandLine,
    const char* prefix,
    const char* name,
    unsigned size,
    unsigned* cursor,
    char* buffer
) noexcept {
    const KTEST::Injections* const injected = Injection::Current();
    if (injected != nullptr && injected->SvcEnumerateStringFromCommandLine && flags == 0) {
        return injected->SvcEnumerateStringFromCommandLine(prefix, name, size, cursor, buffer);
    }
    static const auto own = LibrarysOwn(
        &SvcEnumerateStringFromCommandLine, "_Z33SvcEnumerateStringFromCommandLinejPKcS0_S0_jPjPc"
    );
    return own(flags, commandLine, prefix, name, size, cursor, buffer);
}

void KSUP::KUtil::SetPathMap(unsigned id, const KString& path) {
    if (const KTEST::Injections* const injected = Injection::Current();
        injected != nullptr && injected->BeforeSetPathMap) {
        injected->BeforeSetPathMap(id, path);
    }
    static const auto own =
        LibrarysOwn(&KUtil::SetPathMap, "_ZN4KSUP5KUtil10SetPathMapEjRKNS_7KStringE");
    own(id, path);
}
