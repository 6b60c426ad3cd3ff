// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstring>

namespace KTEST {

/// What SlotOf answers for a function that is not virtual.
inline constexpr std::ptrdiff_t notVirtual = -1;

/// The place of a virtual function in its class's table, counted from 0 as the Itanium C++ ABI lays it
/// out; a virtual destructor takes two places. Read from the member pointer, so that no object and
/// no private name is needed.
template <class Member>
std::ptrdiff_t SlotOf(Member member) {
    std::ptrdiff_t words[2];
    static_assert(sizeof(member) == sizeof(words), "a pointer to a member function is two words");
    std::memcpy(words, &member, sizeof(words));
#if defined(__aarch64__) || defined(__arm__)
    // There code may lie at odd addresses, so the mark of a virtual function moved to the second word.
    const bool isVirtual = (words[1] & 1) != 0;
    const std::ptrdiff_t offset = words[0];
#else
    const bool isVirtual = (words[0] & 1) != 0;
    const std::ptrdiff_t offset = words[0] - 1;
#endif
    return isVirtual ? offset / static_cast<std::ptrdiff_t>(sizeof(void*)) : notVirtual;
}

} // namespace KTEST
