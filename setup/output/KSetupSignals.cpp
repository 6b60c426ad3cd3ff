// SPDX-License-Identifier: MIT
#include <setup/output/KSetupSignals.h>

#include <atomic>
#include <csignal>

namespace KSETUP {

namespace {

std::atomic<int> received{0}; // NOLINT: a handler has no object
static_assert(std::atomic<int>::is_always_lock_free, "used in a signal handler");

void Note(int signal) {
    received.store(signal, std::memory_order_relaxed);
}

} // namespace

KSetupSignals::KSetupSignals() {
    struct sigaction action {};
    action.sa_handler = Note;
    action.sa_flags = SA_RESTART;
    for (const int signal : {SIGINT, SIGTERM}) {
        ::sigaction(signal, &action, nullptr);
    }
    struct sigaction hangUp {};
    // nohup(1) has it ignored: the run is to outlive its terminal.
    if (::sigaction(SIGHUP, nullptr, &hangUp) != 0 || hangUp.sa_handler != SIG_IGN) {
        ::sigaction(SIGHUP, &action, nullptr);
    }
    action.sa_handler = SIG_IGN;
    ::sigaction(SIGPIPE, &action, nullptr);
}

int KSetupSignals::Take() noexcept {
    const int signal = received.exchange(0, std::memory_order_relaxed);
    first = first == 0 ? signal : first;
    return signal;
}

} // namespace KSETUP
