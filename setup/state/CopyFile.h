// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

namespace KSETUP {

enum class CopyWay { Any, ReflinkOnly };

/// Copies an open file's bytes into an empty one: by a reflink, which shares them until one is
/// written to, or else by reading them.
///
/// Returns  0 or errno; with ReflinkOnly the errno of a file system that has none
[[nodiscard]] int CopyContent(int source, int target, CopyWay way) noexcept;

/// Gives the target the source's extended attributes (access lists, capabilities), as far as the
/// target's file system has such. A change of owner afterwards would take capabilities away.
///
/// Returns  0 or errno
[[nodiscard]] int CopyExtendedAttributes(int source, int target);

} // namespace KSETUP
