// SPDX-License-Identifier: MIT
#pragma once

/// \file
/// Recursive locks that hand over in the order of waiting: who releases and takes again without
/// pause waits behind those who came meanwhile. Taking one that is free costs no system call.
///
/// All statuses: 0, or 36 for a null lock, or EPERM for a caller that does not hold it.

#include <sup++/Export.h>

struct SvcResourceLock;

/// Makes a lock.
///
/// Returns  0, 36 for a null `lock`, or ENOMEM
/// Lifetime `name` is kept as a pointer: pass a string literal
[[nodiscard]] SUP_EXPORT unsigned
SvcAllocateResourceLockEx(const char* name, SvcResourceLock** lock) noexcept;

/// Frees a lock that nobody holds or waits for; EBUSY (and nothing done) otherwise.
SUP_EXPORT unsigned SvcReleaseResourceLockEx(SvcResourceLock* lock) noexcept;

/// Takes the lock, once more if this thread holds it.
SUP_EXPORT unsigned SvcLockResourceEx(SvcResourceLock* lock) noexcept;

/// Gives back what one SvcLockResourceEx took.
SUP_EXPORT unsigned SvcUnlockResourceEx(SvcResourceLock* lock) noexcept;

/// Brings this thread's hold count to `count`, taking or releasing the lock as needed, and puts the
/// former count into `*previous` (which may be null). Both names are the same operation: release
/// with a count of 0 and later return to the count that stood before.
SUP_EXPORT unsigned
SvcFastForwardResourceLockEx(SvcResourceLock* lock, unsigned count, unsigned* previous) noexcept;
/// The same as SvcFastForwardResourceLockEx.
SUP_EXPORT unsigned
SvcReWindResourceLockEx(SvcResourceLock* lock, unsigned count, unsigned* previous) noexcept;
