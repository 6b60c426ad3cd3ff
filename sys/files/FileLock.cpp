// SPDX-License-Identifier: MIT
#include <cerrno>

#include <sys/Retry.h>
#include <sys/file.h>
#include <sys/files/FileLock.h>

namespace KSYS {

unsigned TryLockFile(int file, LockKind kind) noexcept {
    const int operation = (kind == LockKind::Exclusive ? LOCK_EX : LOCK_SH) | LOCK_NB;
    return Retry([&] { return ::flock(file, operation); }) == 0 ? 0U : static_cast<unsigned>(errno);
}

} // namespace KSYS
