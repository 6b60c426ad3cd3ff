// SPDX-License-Identifier: MIT
#pragma once

#include <stdexcept>
#include <string>

namespace KSYS {

/// Why a call on a service failed, beside the numbers of errno. SvcService.h says what each means to
/// its caller, and has the same numbers.
namespace ServiceStatus {

inline constexpr unsigned invalidArgument = 36;
inline constexpr unsigned unknown = 180;
inline constexpr unsigned foreign = 181;
inline constexpr unsigned failed = 182;
inline constexpr unsigned timedOut = 183;
inline constexpr unsigned noManager = 184;
inline constexpr unsigned managerLost = 185;

} // namespace ServiceStatus

/// A call on a service that failed: its status, and the reason in words with the service's or the
/// file's name in front, as in "dps.service: there is no such service".
class KServiceError : public std::runtime_error {
  public:
    KServiceError(unsigned statusOfCall, const std::string& words)
        : std::runtime_error(words),
          status(statusOfCall) {}

    /// One of ServiceStatus, or an errno.
    unsigned GetStatus() const noexcept { return status; }

  private:
    unsigned status;
};

} // namespace KSYS
