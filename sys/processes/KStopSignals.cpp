// SPDX-License-Identifier: MIT
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>

#include <poll.h>
#include <sys/processes/KStopSignals.h>
#include <unistd.h>

namespace KSYS {

namespace {

std::atomic<int> received{0}; // NOLINT: a handler has no object
constexpr std::array taken{SIGINT, SIGTERM, SIGHUP};
static_assert(std::atomic<int>::is_always_lock_free, "used in a signal handler");

void Note(int signal) {
    received.store(signal, std::memory_order_relaxed);
}

} // namespace

KStopSignals::KStopSignals() {
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

int KStopSignals::Take() noexcept {
    const int signal = received.exchange(0, std::memory_order_relaxed);
    first = first == 0 ? signal : first;
    return signal;
}

std::optional<std::string> KStopSignals::ReadLine(int descriptor) {
    std::string line;
    while (WaitForInput(descriptor)) {
        char letter = 0;
        const ssize_t got = ::read(descriptor, &letter, 1);
        if (got == 0 || (got < 0 && errno != EINTR && errno != EAGAIN)) {
            Take(); // a terminal that goes ends the input and sends a signal
            return std::nullopt;
        }
        if (got > 0 && letter == '\n') {
            return line;
        }
        line += got > 0 ? std::string(1, letter) : std::string();
    }
    return std::nullopt;
}

/// False when a signal came. Only while it waits do signals get through: one that came between the
/// look and the wait would be slept over. A read would not end for any, as they restart it.
bool KStopSignals::WaitForInput(int descriptor) {
    sigset_t held{};
    sigset_t former{};
    ::sigemptyset(&held);
    for (const int signal : taken) {
        ::sigaddset(&held, signal);
    }
    ::pthread_sigmask(SIG_BLOCK, &held, &former);
    int ready = 0;
    while (ready == 0 && received.load(std::memory_order_relaxed) == 0) {
        pollfd input{descriptor, POLLIN, 0};
        const int got = ::ppoll(&input, 1, nullptr, &former);
        ready = got < 0 && errno == EINTR ? 0 : got;
    }
    ::pthread_sigmask(SIG_SETMASK, &former, nullptr);
    Take();
    return first == 0;
}

} // namespace KSYS
