// SPDX-License-Identifier: MIT
#include <climits>
#include <cstdint>
#include <cstring>

#include <fcntl.h>
#include <sys/files/FileCalls.h>
#include <sys/mman.h>
#include <sys/processes/OwnProcess.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace KSYS {

std::string ProgramDirectory() {
    std::string path(PATH_MAX, '\0');
    const ssize_t bytes = ::readlink("/proc/self/exe", path.data(), path.size());
    path.resize(bytes > 0 ? static_cast<std::size_t>(bytes) : 0);
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
    return arguments;
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
