// SPDX-License-Identifier: MIT
#pragma once

namespace KSYS {

enum class LockKind { Exclusive, Shared };

/// Takes a lock on an open file (flock(2)), without waiting; it lasts until every descriptor of this
/// opening is closed.
///
/// Returns  0, EWOULDBLOCK when somebody else holds it, or errno
[[nodiscard]] unsigned TryLockFile(int file, LockKind kind) noexcept;

} // namespace KSYS
