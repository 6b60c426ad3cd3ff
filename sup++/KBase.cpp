// SPDX-License-Identifier: MIT
#include <sup++/KBase.h>

namespace KSUP {

KBase::~KBase() = default;

void* KBase::operator new(std::size_t bytes) {
    return ::operator new(bytes);
}

void* KBase::operator new(std::size_t bytes, std::align_val_t alignment) {
    return ::operator new(bytes, alignment);
}

void KBase::operator delete(void* memory) noexcept {
    ::operator delete(memory);
}

void KBase::operator delete(void* memory, std::align_val_t alignment) noexcept {
    ::operator delete(memory, alignment);
}

} // namespace KSUP
