// SPDX-License-Identifier: MIT
#pragma once

#include <sys/files/KDescriptor.h>
#include <sys/files/LockPlaces.h>

namespace KSYS {

/// One process of a user at a time changes the files of a directory. The lock is a file in a place
/// of the user's own (LockPlaces.h), chosen by the directory itself, so that every path to it is
/// that of the same lock. There are a few such files for all directories: two that share one wait
/// for each other, which is no harm.
///
/// Where there is no such place the directory itself is locked, as far as its file system has such
/// locks; then whoever may read it can hold that.
///
/// Threads  one at a time; another object locks this process's other threads out, too
///
///     KDirectoryLock lock;
///     if (lock.Take(directory) == 0) { … }    // let go with the object
class KDirectoryLock {
  public:
    explicit KDirectoryLock(LockPlaces keptIn = LockPlaces::OfThisUser());

    /// Locks an open directory out. It waits for another process for a while and then gives up with
    /// EWOULDBLOCK. `directory` is borrowed until the lock is let go.
    ///
    /// Returns  0 or errno; ENOLCK for a place that is not the user's alone (WhyRefused)
    /// Throws   std::bad_alloc
    [[nodiscard]] unsigned Take(int directory);

    /// Why Take returned ENOLCK.
    static std::string WhyRefused();

  private:
    LockPlaces places;
    KDescriptor file;
};

} // namespace KSYS
