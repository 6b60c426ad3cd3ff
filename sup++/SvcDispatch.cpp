// SPDX-License-Identifier: MIT
#include <sup++/DispatchEvent.h>
#include <sys/NeverDestroyed.h>
#include <sup++/SvcDispatch.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace {

constexpr std::chrono::milliseconds longestWait(10); // the pace of a loop in which nothing happens

struct Event {
    std::mutex guard;
    std::condition_variable changed;
    std::uint64_t count = 0; // guarded by guard
};

Event& TheEvent() {
    static KSYS::NeverDestroyed<Event> event;
    return event.Get();
}

/// The count that this thread saw last: what happened between two calls ends the second at once.
thread_local std::uint64_t seen = 0; // one of each thread

} // namespace

void KSUP::DispatchEvent::Signal() noexcept {
    Event& event = TheEvent();
    {
        const std::lock_guard hold(event.guard);
        ++event.count;
    }
    event.changed.notify_all();
}

unsigned SvcPollingDispatch() noexcept {
    Event& event = TheEvent();
    std::unique_lock hold(event.guard);
    event.changed.wait_for(hold, longestWait, [&] { return event.count != seen; });
    seen = event.count;
    return 0;
}
