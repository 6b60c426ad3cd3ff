// SPDX-License-Identifier: MIT
#include <sup++/KErrorSource.h>
#include <sup++/KMutex.h>

namespace KSUP {

namespace {

constexpr KErrorSource source{"sup++/KMutex"};

} // namespace

KMutex::KMutex() {
    if (const unsigned status = SvcAllocateResourceLockEx("KMutex lock", &lock); status != 0) {
        source.RaiseAs({KErrorKind::System, KOperation::None, {}, {}}, TraceLevel::setup, status);
    }
}

KMutex::~KMutex() {
    SvcReleaseResourceLockEx(lock);
}

KMutex::KLock::KLock(const KMutex& mutex) noexcept : lock(mutex.lock) {
    SvcLockResourceEx(lock);
}

KMutex::KLock::~KLock() {
    SvcUnlockResourceEx(lock);
}

KMutex::KRelease::KRelease(const KMutex& mutex) noexcept : lock(mutex.lock) {
    SvcReWindResourceLockEx(lock, 0, &depth);
}

KMutex::KRelease::~KRelease() {
    SvcFastForwardResourceLockEx(lock, depth, nullptr);
}

} // namespace KSUP
