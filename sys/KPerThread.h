// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <new>

#include <pthread.h>

namespace KSYS {

/// An object of each thread's own, made when the thread asks for it first and destroyed when it ends;
/// that of the main thread stays to the end of the process. In place of a thread_local one with a
/// destructor: to note that, the C library wants memory, and where there is none it ends the process
/// (__cxa_thread_atexit). This tells instead.
///
/// Only for objects of the process, which are never destroyed (NeverDestroyed), in libraries that are
/// never unloaded (-z nodelete): a thread may end at any time. A process has room for 1024 of them
/// (PTHREAD_KEYS_MAX).
///
/// Threads  any
template <class T>
class KPerThread {
  public:
    KPerThread() noexcept : isMade(::pthread_key_create(&key, &Delete) == 0) {}
    KPerThread(const KPerThread&) = delete;
    KPerThread& operator=(const KPerThread&) = delete;

    /// The calling thread's.
    ///
    /// Throws   std::bad_alloc, and what T's constructor throws; the next call tries again
    T& Get() {
        if (void* const own = isMade ? ::pthread_getspecific(key) : nullptr; own != nullptr) {
            return *static_cast<T*>(own);
        }
        auto made = std::make_unique<T>();
        if (!isMade || ::pthread_setspecific(key, made.get()) != 0) {
            throw std::bad_alloc();
        }
        return *made.release();
    }

  private:
    static void Delete(void* own) noexcept { delete static_cast<T*>(own); }

    pthread_key_t key = 0;
    const bool isMade;
};

} // namespace KSYS
