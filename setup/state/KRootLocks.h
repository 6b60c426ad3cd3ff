// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include <sys/files/KDescriptor.h>

namespace KSETUP {

/// The locks of a directory tree that is entered as a root, whose /run is the process's own: they lie in the
/// tree itself, in /var/lib/ins++.locks, where all who enter it see them, and stand in /run/ins++ too, where
/// they are looked for. In the tree they are there as long as somebody uses them.
///
/// Thread   the main thread's
class KRootLocks {
  public:
    enum class Use : std::uint8_t {
        Taken,
        Looked, ///< at those that are there; none are made
    };
    /// Throws   KSetupFailure when there can be none
    explicit KRootLocks(Use use);

    /// Takes them out of the tree, unless another process uses them. What resists stays.
    void RemoveUnused() noexcept;
    /// For a process that was forked: whom they were made by is who takes them away.
    void Leave() noexcept { place.Reset(); }

  private:
    KSYS::KDescriptor place; // held (flock(2)) by all who use them
};

} // namespace KSETUP
