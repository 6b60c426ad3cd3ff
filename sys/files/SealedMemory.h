// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

#include <sys/files/KDescriptor.h>

namespace KSYS {

/// Puts bytes into memory that is an open file, closed on exec, and that nobody can change any more:
/// memfd_create(2), with all seals. `name` is what /proc shows of it.
///
/// Returns  0 or errno, with nothing left open
[[nodiscard]] unsigned
MakeSealedMemory(const char* name, std::string_view bytes, KDescriptor& memory) noexcept;

/// Reads all of such memory, wherever the file stands. EINVAL for any other file, EBADF for a number that
/// is not open.
///
/// Returns  0 or errno
/// Throws   std::bad_alloc
[[nodiscard]] unsigned ReadSealedMemory(int file, std::string& bytes);

} // namespace KSYS
