// SPDX-License-Identifier: MIT
#pragma once

#include <setup/text/KText.h>

#include <cstdint>
#include <string>

namespace KSETUP {

/// How far a run is, counted in one way for everybody who is told.
struct KProgressView {
    unsigned rule = 0;    ///< at work, from 1; 0 before the first
    unsigned rules = 0;   ///< that count
    unsigned percent = 0; ///< of bytes and rules; 100 only when all is done
    std::uint64_t bytesDone = 0;
    std::uint64_t bytesAll = 0; ///< that are to be copied
    KText words;                ///< what the rule does, and to what
    KText status;               ///< the same as the engine has it, with the file's percentage
};

} // namespace KSETUP
