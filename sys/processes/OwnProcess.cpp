// SPDX-License-Identifier: MIT
#include <algorithm>
#include <array>
#include <bit>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include <fcntl.h>
#include <sys/auxv.h>
#include <sys/files/FileCalls.h>
#include <sys/mman.h>
#include <sys/processes/OwnProcess.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace KSYS {

namespace {

pid_t knownId = 0; // 0 for the process's own

} // namespace

std::string ProgramDirectory() {
    std::string path(PATH_MAX, '\0');
    const ssize_t bytes = ::readlink("/proc/self/exe", path.data(), path.size());
    path.resize(bytes > 0 ? static_cast<std::size_t>(bytes) : 0);
    if (bytes <= 0) { // /proc is not mounted: the name by which the program was started
        const char* const named = std::bit_cast<const char*>(::getauxval(AT_EXECFN));
        const std::unique_ptr<char, void (*)(void*)> real(
            named != nullptr ? ::realpath(named, nullptr) : nullptr, &std::free
        );
        path = real != nullptr ? real.get() : "";
    }
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "/" : path.substr(0, slash + 1);
}

std::vector<std::string> ProgramArguments() {
    std::vector<std::string> arguments;
    const KDescriptor file(::open("/proc/self/cmdline", O_RDONLY | O_CLOEXEC));
    std::string bytes;
    if (file.IsOpen() && ReadAll(file.Get(), bytes) == 0) {
        for (std::size_t at = 0; at < bytes.size();) {
            arguments.emplace_back(bytes.c_str() + at);
            at += arguments.back().size() + 1;
        }
    }
    return IsStartedByLoader() ? WithoutLoader(std::move(arguments)) : arguments;
}

bool IsStartedByLoader() noexcept {
    return ::getauxval(AT_BASE) == 0;
}

std::vector<std::string> WithoutLoader(std::vector<std::string> words) {
    static constexpr std::array withValue = {
        "--library-path", "--argv0", "--preload", "--audit", "--inhibit-rpath"};
    std::string name;
    std::size_t at = 1;
    for (; at < words.size() && words[at].starts_with("--"); ++at) {
        const std::string& option = words[at];
        const bool hasValue =
            std::find(withValue.begin(), withValue.end(), option) != withValue.end();
        if (hasValue && ++at < words.size() && option == "--argv0") {
            name = words[at];
        }
    }
    if (at >= words.size()) {
        return words;
    }
    if (!name.empty()) {
        words[at] = name;
    }
    words.erase(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(at));
    return words;
}

pid_t KnownProcessId() noexcept {
    return knownId != 0 ? knownId : ::getpid();
}

void SetKnownProcessId(pid_t id) noexcept {
    knownId = id;
}

std::string Architecture() {
    struct utsname system {};
    if (::uname(&system) != 0) {
        return {};
    }
    const std::string machine(system.machine);
    const bool is32Bit = machine.size() == 4 && machine[0] == 'i' && machine.ends_with("86");
    return is32Bit ? "x86" : machine;
}

void* AllocateLow(std::size_t bytes) noexcept {
    constexpr std::uintptr_t end = 0xFFFFFFFFU;
    constexpr int flags = MAP_PRIVATE | MAP_ANONYMOUS;
    const auto fits = [&](void* memory) {
        return memory != MAP_FAILED && reinterpret_cast<std::uintptr_t>(memory) + bytes <= end;
    };
#ifdef MAP_32BIT
    void* memory = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, flags | MAP_32BIT, -1, 0);
    if (fits(memory)) {
        return memory;
    }
#endif
    // Elsewhere a hint is all there is; the kernel takes it while the place is free.
    for (std::uintptr_t hint = 0x20000000; hint < 0xF0000000; hint += 0x10000000) {
        void* place = reinterpret_cast<void*>(hint); // an address to ask for
        void* hinted = ::mmap(place, bytes, PROT_READ | PROT_WRITE, flags, -1, 0);
        if (fits(hinted)) {
            return hinted;
        }
        if (hinted != MAP_FAILED) {
            ::munmap(hinted, bytes);
        }
    }
    return nullptr;
}

} // namespace KSYS
