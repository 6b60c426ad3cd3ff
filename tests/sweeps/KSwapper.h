// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <sys/types.h>

namespace KSWEEP {

/// Who swaps: a user with no rights but those that the machine gives to anybody.
inline constexpr uid_t sweeper = 65534;

/// A directory entry, and what is laid in its place.
struct KSwap {
    std::string path;
    std::string target; ///< where a link in its place leads
    std::string bait;   ///< what the user has of that kind, in the same directory; may be empty
    bool byPipe = true; ///< also by a FIFO
};

/// A process of an unprivileged user that swaps directory entries while another program runs: by
/// exchange with a link or with what is the user's own, by renaming away and back, by a link or a
/// FIFO in place of what was renamed away. What is named as temporary files are is swapped where it
/// appears. At the end each entry is back in its place, as far as it is still there.
class KSwapper {
  public:
    enum class Pace : std::uint8_t {
        Full,  ///< at full speed all the time
        Later, ///< the same, after some milliseconds
        Bursts ///< some at once, then a pause: so the other program comes far
    };

    /// `watched` are directories in which temporary files are looked for; in their place stand links
    /// to `target`.
    KSwapper(std::vector<KSwap> swaps, std::vector<std::string> watched, std::string target);
    ~KSwapper();
    KSwapper(const KSwapper&) = delete;
    KSwapper& operator=(const KSwapper&) = delete;

    /// Returns when it runs.
    ///
    /// Throws   std::system_error
    void Start(Pace pace, unsigned seed);
    void Stop();

    std::uint64_t GetSwaps() const noexcept;       ///< calls that changed an entry
    std::uint64_t GetTemporaries() const noexcept; ///< of them, of temporary files

  private:
    struct KShared;

    [[noreturn]] void Swap(Pace pace, unsigned seed);

    std::vector<KSwap> swaps;
    std::vector<std::string> watched;
    std::string target;
    KShared* shared;
    pid_t child = -1;
};

} // namespace KSWEEP
