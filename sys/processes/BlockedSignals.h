// SPDX-License-Identifier: MIT
#pragma once

#include <csignal>

namespace KSYS {

/// Keeps the process's signals from the thread while it lives; they wait, or are handled on other
/// threads. What a thread brings on itself by a fault cannot be left to others. A thread that is
/// made meanwhile inherits this.
class BlockedSignals {
  public:
    BlockedSignals() noexcept {
        sigset_t mask;
        sigfillset(&mask);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS}) {
            sigdelset(&mask, fault);
        }
        pthread_sigmask(SIG_SETMASK, &mask, &former);
    }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &former, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

  private:
    sigset_t former{};
};

} // namespace KSYS
