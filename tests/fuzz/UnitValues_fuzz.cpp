// SPDX-License-Identifier: MIT
// A unit file of anybody's, as the program reads it: what it says for a key is in it.
#include "Fuzz.h"

#include <sys/services/UnitText.h>

/// A unit file.
FUZZ_TARGET(UnitValues) {
    const std::string text(input);
    for (const char* key : {"ExecStart", "User", "WantedBy", "Alias"}) {
        for (const char* section : {"Service", "Install"}) {
            for (const std::string& value : KSYS::UnitValues(text, section, key)) {
                KTEST::Require(
                    text.find(key) != std::string::npos && value.size() < text.size() &&
                        value.find('\n') == std::string::npos,
                    "a value is one that the file has"
                );
            }
        }
    }
}
