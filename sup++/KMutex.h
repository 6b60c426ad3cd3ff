// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/Export.h>
#include <sup++/SvcLock.h>
#include <sup++/ThreadSafety.h>

namespace KSUP {

/// A recursive lock (see SvcLock.h), held for a scope by KMutex::KLock.
///
///     KMutex::KLock hold(mutex);
class SUP_CAPABILITY("mutex") SUP_EXPORT KMutex {
  public:
    /// Throws   KError with the status when no lock can be made
    KMutex();
    ~KMutex();
    KMutex(const KMutex&) = delete;
    KMutex& operator=(const KMutex&) = delete;

    /// For the calls of SvcLock.h. Lifetime of this object.
    SvcResourceLock* GetResourceLock() const noexcept { return lock; }

    /// Holds the lock until the end of the scope.
    class SUP_SCOPED_CAPABILITY SUP_EXPORT KLock {
      public:
        /// Takes the lock.
        explicit KLock(const KMutex& mutex) noexcept SUP_ACQUIRE(mutex);
        ~KLock() SUP_RELEASE();
        KLock(const KLock&) = delete;
        KLock& operator=(const KLock&) = delete;

      private:
        SvcResourceLock* lock;
    };

    /// Releases the lock completely, however often this thread holds it, until the end of the
    /// scope, on every way out of it.
    class SUP_EXPORT KRelease {
      public:
        /// Lets go of the lock as a whole, however often it is held.
        explicit KRelease(const KMutex& mutex) noexcept;
        ~KRelease();
        KRelease(const KRelease&) = delete;
        KRelease& operator=(const KRelease&) = delete;

      private:
        SvcResourceLock* lock;
        unsigned depth = 0;
    };

  private:
    SvcResourceLock* lock = nullptr;
};

} // namespace KSUP
