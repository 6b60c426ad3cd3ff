// SPDX-License-Identifier: MIT
#include <sup++/KErrorCode.h>
#include <sup++/SvcLock.h>
#include <sup++/ThreadSafety.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <new>

#include <sys/KAnnotatedMutex.h>

namespace {

using KSUP::ErrorCode::invalidArgument;

/// The address tells threads apart; cheaper than a system call or a thread id.
const void* Self() noexcept {
    static thread_local const char self = 0;
    return &self;
}

enum State : unsigned { Free, Held, HeldWithWaiters };

/// Stands on the stack of a waiting thread; touched by others only under the lock's own guard.
struct Waiter {
    const void* thread = nullptr;
    bool granted = false;
    std::condition_variable wake;
    Waiter* next = nullptr;
};

} // namespace

/// Free and taken by one compare-and-swap. Who finds it held joins a queue, and whoever releases it
/// while the queue is not empty hands it to the longest waiter: it is never free in between, so
/// that nobody overtakes.
struct SvcResourceLock {
    explicit SvcResourceLock(const char* lockName) noexcept : name(lockName) {}

    void Take() noexcept;
    void Give() noexcept;
    bool IsMine() const noexcept { return owner.load(std::memory_order_relaxed) == Self(); }

    const char* name; // for a debugger
    std::atomic<unsigned> state{Free};
    std::atomic<const void*> owner{nullptr};
    unsigned count = 0; // the owner's
    KSYS::KAnnotatedMutex<std::mutex> guard;
    Waiter* first SUP_GUARDED_BY(guard) = nullptr;
    Waiter* last SUP_GUARDED_BY(guard) = nullptr;
};

void SvcResourceLock::Take() noexcept {
    unsigned expected = Free;
    if (state.compare_exchange_strong(expected, Held, std::memory_order_acquire)) {
        owner.store(Self(), std::memory_order_relaxed);
        return;
    }
    KSYS::KScopedLock hold(guard);
    // Under the guard the state only leaves HeldWithWaiters through Give, which needs the guard
    // too.
    while (true) {
        expected = Free;
        if (state.compare_exchange_strong(expected, Held, std::memory_order_acquire)) {
            owner.store(Self(), std::memory_order_relaxed);
            return;
        }
        if (expected == HeldWithWaiters ||
            state.compare_exchange_strong(expected, HeldWithWaiters, std::memory_order_relaxed)) {
            break;
        }
    }
    Waiter waiter;
    waiter.thread = Self();
    (last != nullptr ? last->next : first) = &waiter;
    last = &waiter;
    waiter.wake.wait(hold.GetStandard(), [&] { return waiter.granted; });
}

void SvcResourceLock::Give() noexcept {
    owner.store(nullptr, std::memory_order_relaxed);
    unsigned expected = Held;
    if (state.compare_exchange_strong(expected, Free, std::memory_order_release)) {
        return;
    }
    const KSYS::KScopedLock hold(guard);
    Waiter* next = first;
    first = next->next;
    if (first == nullptr) {
        last = nullptr;
        state.store(Held, std::memory_order_relaxed);
    }
    owner.store(next->thread, std::memory_order_relaxed);
    next->granted = true;
    next->wake.notify_one(); // under the guard: the waiter is gone as soon as it gets it
}

unsigned SvcAllocateResourceLockEx(const char* name, SvcResourceLock** lock) noexcept {
    if (lock == nullptr) {
        return invalidArgument;
    }
    *lock = new (std::nothrow) SvcResourceLock(name);
    return *lock != nullptr ? 0 : ENOMEM;
}

unsigned SvcReleaseResourceLockEx(SvcResourceLock* lock) noexcept {
    if (lock == nullptr) {
        return invalidArgument;
    }
    if (lock->state.load(std::memory_order_acquire) != Free) {
        return EBUSY;
    }
    delete lock;
    return 0;
}

unsigned SvcLockResourceEx(SvcResourceLock* lock) noexcept {
    if (lock == nullptr) {
        return invalidArgument;
    }
    if (!lock->IsMine()) {
        lock->Take();
    }
    ++lock->count;
    return 0;
}

unsigned SvcUnlockResourceEx(SvcResourceLock* lock) noexcept {
    if (lock == nullptr) {
        return invalidArgument;
    }
    if (!lock->IsMine()) {
        return EPERM;
    }
    if (--lock->count == 0) {
        lock->Give();
    }
    return 0;
}

unsigned
SvcFastForwardResourceLockEx(SvcResourceLock* lock, unsigned count, unsigned* previous) noexcept {
    if (lock == nullptr) {
        return invalidArgument;
    }
    const bool mine = lock->IsMine();
    const unsigned former = mine ? lock->count : 0;
    if (!mine && count > 0) {
        lock->Take();
    }
    if (mine || count > 0) {
        lock->count = count;
    }
    if (mine && count == 0) {
        lock->Give();
    }
    if (previous != nullptr) {
        *previous = former;
    }
    return 0;
}

unsigned
SvcReWindResourceLockEx(SvcResourceLock* lock, unsigned count, unsigned* previous) noexcept {
    return SvcFastForwardResourceLockEx(lock, count, previous);
}
