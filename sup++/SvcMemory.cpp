// SPDX-License-Identifier: MIT
#include <sup++/KErrorCode.h>
#include <sup++/SvcMemory.h>

#include <cerrno>
#include <cstdlib>

namespace {

/// Stands in front of every block; keeps what follows aligned for any type.
struct alignas(std::max_align_t) Header {
    std::size_t bytes;
    const char* tag; // for a debugger: whose block this is
};

Header* HeaderOf(void* memory) noexcept {
    return static_cast<Header*>(memory) - 1;
}

unsigned Resize(void** memory, std::size_t bytes, const char* tag) noexcept {
    if (bytes > static_cast<std::size_t>(-1) - sizeof(Header)) {
        return ENOMEM;
    }
    void* former = *memory != nullptr ? HeaderOf(*memory) : nullptr;
    auto* header = static_cast<Header*>(std::realloc(former, sizeof(Header) + bytes));
    if (header == nullptr) {
        return ENOMEM;
    }
    header->bytes = bytes;
    header->tag = tag;
    *memory = header + 1;
    return 0;
}

} // namespace

unsigned Rel_SvcExpandMemory(void** memory, std::size_t bytes, const char* tag) noexcept {
    if (memory == nullptr) {
        return KSUP::ErrorCode::invalidArgument;
    }
    if (*memory != nullptr && HeaderOf(*memory)->bytes >= bytes) {
        return 0;
    }
    return Resize(memory, bytes, tag);
}

unsigned Rel_SvcResizeMemory(void** memory, std::size_t bytes) noexcept {
    if (memory == nullptr || *memory == nullptr) {
        return KSUP::ErrorCode::invalidArgument;
    }
    return Resize(memory, bytes, HeaderOf(*memory)->tag);
}

unsigned Rel_SvcReleaseMemory(void* memory) noexcept {
    if (memory != nullptr) {
        std::free(HeaderOf(memory));
    }
    return 0;
}

unsigned SvcGetMemorySizeEx(const void* memory, std::size_t* bytes) noexcept {
    if (bytes == nullptr) {
        return KSUP::ErrorCode::invalidArgument;
    }
    *bytes = memory == nullptr ? 0 : (static_cast<const Header*>(memory) - 1)->bytes;
    return 0;
}
