// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include <sys/files/DirectoryEntry.h>

namespace KSYS {

/// How many bytes of a regular file are data, as SEEK_DATA tells: its holes take no room where it is
/// copied. Each run of data counts in whole blocks of `blockBytes`. A link is followed; the file may
/// change meanwhile.
///
/// Returns  0 or errno
[[nodiscard]] unsigned
ReadDataBytes(const char* path, std::uint64_t blockBytes, std::uint64_t& bytes) noexcept;

} // namespace KSYS
