// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/Msg.h>

#include <mutex>
#include <string>

namespace KSETUP {

/// Why a service rule failed. Its error has a code only; the words belong to the thread that made the
/// service call, and are taken there when the error is said.
///
/// There is one trace hook in a process, so there is one of these at a time.
///
/// Thread   any
class KServiceReason {
  public:
    KServiceReason();
    ~KServiceReason();
    KServiceReason(const KServiceReason&) = delete;
    KServiceReason& operator=(const KServiceReason&) = delete;

    /// What SvcGetServiceErrorText was on the thread that said the last error of a rule or the
    /// installer; of use only if that was one of a service rule.
    std::string Get() const;

  private:
    static void Listen(void* reason, TRACE_MESSAGE level, const char* text);

    mutable std::mutex guard;
    std::string words; // guarded by guard
};

} // namespace KSETUP
