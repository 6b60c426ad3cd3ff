// SPDX-License-Identifier: MIT
// Loaded with LD_PRELOAD into a program that is measured without its flush to the disk: how long a
// disk takes to write everything out says nothing about the program. The calls succeed at once.
#include <fcntl.h>
#include <unistd.h>

extern "C" {

__attribute__((visibility("default"))) int syncfs(int /*descriptor*/) noexcept {
    return 0;
}

__attribute__((visibility("default"))) int fsync(int /*descriptor*/) {
    return 0;
}

__attribute__((visibility("default"))) int fdatasync(int /*descriptor*/) {
    return 0;
}

__attribute__((visibility("default"))) int sync_file_range(
    int /*descriptor*/, off64_t /*offset*/, off64_t /*length*/, unsigned int /*flags*/
) {
    return 0;
}

__attribute__((visibility("default"))) void sync() noexcept {}
}
