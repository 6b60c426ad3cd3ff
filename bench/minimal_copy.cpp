// SPDX-License-Identifier: MIT
// minimal_copy SOURCE TARGET: copies a tree of regular files and directories; TARGET is made. The
// measure of all other rows: see MinimalCopy.h.
#include "MinimalCopy.h"

int main(int count, char** arguments) {
    if (count != 3) {
        std::fputs("usage: minimal_copy SOURCE TARGET\n", stderr);
        return 64;
    }
    const char* source = arguments[1];
    const char* target = arguments[2];
    double last = 0;
    KBENCH::MinimalProgress progress([&last](const std::string&, double percent) { last = percent; }
    );
    KBENCH::Checked(::mkdir(target, 0755), target);
    KBENCH::MinimalCopyTree(source, target, progress);
    return 0;
}
