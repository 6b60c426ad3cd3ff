// SPDX-License-Identifier: MIT
#pragma once

#include <mutex>

#include <sys/ThreadSafety.h>

namespace KSYS {

/// A mutex of the standard library, of the same size, that clang's thread-safety analysis knows:
/// libstdc++ does not annotate its own. It guards the members that are marked with its name, and is
/// taken by KScopedLock.
///
///     KAnnotatedMutex<std::mutex> guard;
///     unsigned count SYS_GUARDED_BY(guard) = 0;
template <class Mutex>
class SYS_CAPABILITY("mutex") KAnnotatedMutex : public Mutex {
  public:
    using Standard = Mutex;
};

/// Holds an annotated mutex until the end of the scope. The analysis takes what it guards as held
/// until then, also over a wait, which has the mutex again when it returns.
///
///     const KScopedLock hold(guard);
template <class Annotated>
class SYS_SCOPED_CAPABILITY KScopedLock {
  public:
    /// Takes the mutex.
    explicit KScopedLock(Annotated& mutex) SYS_ACQUIRE(mutex) : lock(mutex) {}
    ~KScopedLock() SYS_RELEASE() = default;
    KScopedLock(const KScopedLock&) = delete;
    KScopedLock& operator=(const KScopedLock&) = delete;

    /// Releases the mutex before the end of the scope.
    void Unlock() SYS_RELEASE() { lock.unlock(); }
    /// Takes it again after Unlock.
    void Lock() SYS_ACQUIRE() { lock.lock(); }

    /// For a std::condition_variable to wait with. A predicate names the mutex by SYS_REQUIRES:
    /// nobody sees from its body that it is called with the mutex held.
    std::unique_lock<typename Annotated::Standard>& GetStandard() noexcept { return lock; }

  private:
    std::unique_lock<typename Annotated::Standard> lock;
};

} // namespace KSYS
