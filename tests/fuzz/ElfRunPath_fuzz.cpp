// SPDX-License-Identifier: MIT
// A program or library that comes into a bundle: its file is read, and changed in the one place.
#include "Fuzz.h"

#include <setup/KSetupFailure.h>
#include <setup/kit/ElfRunPath.h>

/// An ELF file.
FUZZ_TARGET(ElfRunPath) {
    std::string bytes(input);
    bool namesOrigin = false;
    try {
        namesOrigin = KSETUP::SetRunPathToOrigin(bytes, "fuzz");
    } catch (const KSETUP::KSetupFailure&) {
        KTEST::Require(bytes == input, "what is refused is left alone");
        return;
    }
    KTEST::Require(bytes.size() == input.size(), "the file is as long as it was");
    KTEST::Require(namesOrigin || bytes == input, "a file without such a path is left alone");
    KTEST::Require(
        !namesOrigin || bytes.find(std::string("$ORIGIN\0", 8)) != std::string::npos,
        "the path is its own directory"
    );
}
