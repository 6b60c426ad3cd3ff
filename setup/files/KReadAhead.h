// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/ThreadSafety.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <sys/KAnnotatedMutex.h>

namespace KSETUP {

/// Has files that are to be copied read into memory before their turn comes, on a thread of its own:
/// a disk that is asked for one small file after the other waits most of the time. A bounded way ahead
/// of the copies; it ends by itself where the files are in memory already. What fails is left to the
/// copy.
///
/// Threads  constructed and destroyed on one; NoteCopied on any
class KReadAhead {
  public:
    /// The files in the order in which they are to be copied. Their thread begins here, save for so few
    /// that it would not pay.
    ///
    /// Lifetime   borrows the paths
    explicit KReadAhead(std::vector<const std::string*> paths);
    /// Stops, within one file.
    ~KReadAhead();
    KReadAhead(const KReadAhead&) = delete;
    KReadAhead& operator=(const KReadAhead&) = delete;

    /// One more of the files was copied.
    void NoteCopied();
    /// Waits until it has ended; for tests.
    void Wait();

    static constexpr std::size_t fewestFiles = 64; ///< for which it begins

  private:
    void Run();
    bool HasRoom(std::size_t ofFiles, std::uint64_t ofBytes) const SUP_REQUIRES(guard);
    bool Read(const std::string& path, std::uint64_t& bytes) const;

    const std::vector<const std::string*> files;
    KSYS::KAnnotatedMutex<std::mutex> guard;
    std::condition_variable changed;
    std::size_t copied SUP_GUARDED_BY(guard) = 0;
    std::deque<std::uint64_t> ahead SUP_GUARDED_BY(guard); // bytes of those that are not copied yet
    std::uint64_t bytesAhead SUP_GUARDED_BY(guard) = 0;
    bool isAsleep SUP_GUARDED_BY(guard) = false;
    bool isOver SUP_GUARDED_BY(guard) = false;
    std::thread thread;
};

} // namespace KSETUP
