// SPDX-License-Identifier: MIT
#include <malloc.h>
#include <sys/processes/ProcessMemory.h>

namespace KSYS {

void ReturnLargeBlocks() noexcept {
    // Without this the library takes each freed block as a sign that the next ones of its size are to
    // stay, up to 32 MiB: a table that grew to its end then leaves all its former sizes behind.
    constexpr int largeBytes = 256 << 10;
    static_cast<void>(::mallopt(M_MMAP_THRESHOLD, largeBytes)); // cannot fail for such a size
    static_cast<void>(::mallopt(M_TRIM_THRESHOLD, largeBytes));
}

void ReturnFreedMemory() noexcept {
    static_cast<void>(::malloc_trim(0)); // whether there was any
}

} // namespace KSYS
