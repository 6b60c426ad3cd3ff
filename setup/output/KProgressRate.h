// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>

namespace KSETUP {

/// How fast bytes are copied, over the last few seconds.
class KProgressRate {
  public:
    using Clock = std::chrono::steady_clock;

    /// Notes how many bytes are done by now. Calls within a second of the last one that counted are
    /// forgotten.
    void Note(Clock::time_point now, std::uint64_t bytesDone);

    /// Bytes a second; nothing before the first second is over, or while nothing is copied.
    std::optional<double> Get() const;
    /// How long so many bytes take at this rate; nothing while seconds differ much from each other,
    /// as an estimate would.
    std::optional<std::chrono::seconds> GetTimeFor(std::uint64_t bytes) const;

  private:
    struct Sample {
        Clock::time_point time;
        std::uint64_t bytes;
    };

    static double RateBetween(const Sample& first, const Sample& last);

    std::deque<Sample> samples; // a second or more between two
};

} // namespace KSETUP
