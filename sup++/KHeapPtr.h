// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/SvcMemory.h>

#include <cstddef>
#include <cstring>
#include <functional>
#include <limits>
#include <new>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace KSUP {

/// A buffer of plain values on the library's heap; owns it and copies it when copied.
///
/// Throws   std::bad_alloc when there is no memory; the buffer is then as before
/// Lifetime the tag is kept as a pointer: pass a string literal
template <class T>
class KHeapPtr {
    static_assert(std::is_trivially_copyable_v<T>, "the buffer moves its values as bytes");

  public:
    /// Takes no memory yet; `heapTag` names what it will take.
    explicit KHeapPtr(const char* heapTag = "Sup++: heap") noexcept : tag(heapTag) {}
    /// Copies `count` values from `values`, which may be null for 0. Throws std::bad_alloc.
    KHeapPtr(const T* values, std::size_t count, const char* heapTag) : tag(heapTag) {
        Append(values, count);
    }
    ~KHeapPtr() { Rel_SvcReleaseMemory(memory); }

    /// Copies the values, with the tag of `other`. Throws std::bad_alloc.
    KHeapPtr(const KHeapPtr& other) : tag(other.tag) { Append(other.memory, other.used); }
    /// Takes the values; `other` is empty then.
    KHeapPtr(KHeapPtr&& other) noexcept
        : memory(std::exchange(other.memory, nullptr)),
          used(std::exchange(other.used, 0)),
          tag(other.tag) {}
    /// As it was when it throws std::bad_alloc.
    KHeapPtr& operator=(const KHeapPtr& other) {
        if (this != &other) {
            *this = KHeapPtr(other);
        }
        return *this;
    }
    /// Exchanges the values.
    KHeapPtr& operator=(KHeapPtr&& other) noexcept {
        std::swap(memory, other.memory);
        std::swap(used, other.used);
        std::swap(tag, other.tag);
        return *this;
    }

    /// Adds `count` values at the end; they may be values of this buffer.
    void Append(const T* values, std::size_t count) {
        if (count == 0) {
            return;
        }
        if (count > std::numeric_limits<std::size_t>::max() / sizeof(T) - used) {
            throw std::bad_alloc();
        }
        // Values of its own move with the block.
        const std::less<const T*> isBefore;
        const bool isOwn = !isBefore(values, memory) && isBefore(values, memory + used);
        const std::size_t offset = isOwn ? static_cast<std::size_t>(values - memory) : 0;
        void* block = memory;
        if (Rel_SvcExpandMemory(&block, (used + count) * sizeof(T), tag) != 0) {
            throw std::bad_alloc();
        }
        memory = static_cast<T*>(block);
        std::memcpy(memory + used, isOwn ? memory + offset : values, count * sizeof(T));
        used += count;
    }

    /// Forgets the values from `count` on.
    void Shrink(std::size_t count) noexcept { used = count < used ? count : used; }

    /// The values; null when there is no memory yet.
    const T* GetData() const noexcept { return memory; }
    /// The number of values, not of bytes.
    std::size_t GetCount() const noexcept { return used; }

    /// Throws   std::out_of_range
    const T& operator[](std::size_t index) const {
        if (index >= used) {
            throw std::out_of_range("KHeapPtr: index behind the end");
        }
        return memory[index];
    }

    friend bool operator==(const KHeapPtr& left, const KHeapPtr& right) noexcept {
        return left.used == right.used &&
               (left.used == 0 || std::memcmp(left.memory, right.memory, left.used * sizeof(T)) == 0
               );
    }

  private:
    T* memory = nullptr;
    std::size_t used = 0;
    const char* tag;
};

} // namespace KSUP
