// SPDX-License-Identifier: MIT
#pragma once

/// \file
/// The library's heap. Blocks know their size and carry a tag that tells whose they are; one that
/// is got here is freed here, from whichever library or thread.

#include <sup++/Export.h>

#include <cstddef>

/// Makes `*memory` at least `bytes` long, keeping its contents; a null `*memory` becomes a new
/// block. It never shrinks.
///
/// Units    `bytes` counts bytes, aligned for any type
/// Returns  0, ENOMEM (the old block stays) or 36 for a null `memory`
/// Lifetime `tag` is kept as a pointer: pass a string literal
[[nodiscard]] SUP_EXPORT unsigned
Rel_SvcExpandMemory(void** memory, std::size_t bytes, const char* tag) noexcept;

/// Makes an existing block exactly `bytes` long, keeping what fits. Returns as above.
[[nodiscard]] SUP_EXPORT unsigned Rel_SvcResizeMemory(void** memory, std::size_t bytes) noexcept;

/// Frees a block. Null is allowed. Returns 0.
SUP_EXPORT unsigned Rel_SvcReleaseMemory(void* memory) noexcept;

/// Puts the block's size in bytes into `*bytes`; 0 for a null block.
///
/// Returns  0, or 36 for a null `bytes`
[[nodiscard]] SUP_EXPORT unsigned
SvcGetMemorySizeEx(const void* memory, std::size_t* bytes) noexcept;
