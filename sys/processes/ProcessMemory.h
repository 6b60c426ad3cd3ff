// SPDX-License-Identifier: MIT
#pragma once

/// What becomes of memory that a process has freed. The C library keeps most of it, for more of the same:
/// a process that does one thing after the other then holds what the largest of each had needed.
namespace KSYS {

/// From now on large blocks go back to the system as soon as they are freed, whatever was freed before.
/// Small ones do as they did.
void ReturnLargeBlocks() noexcept;

/// Gives back all that is free now. It takes as long as looking through all that was ever in use: for
/// the border between two tasks, not for a loop.
void ReturnFreedMemory() noexcept;

} // namespace KSYS
