// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

/// What a plug-in of DPS has: this one function. It tells one thing about the machine in a few words.
/// C, so that a plug-in may be built by any compiler, and at another time than DPS.
///
/// Units    `size` counts bytes with the terminating NUL; what does not fit is cut
/// Returns  false when the system does not tell
/// Thread   one at a time
extern "C" __attribute__((visibility("default"))) bool
DpsPluginTell(char* buffer, std::size_t size) noexcept;
