// SPDX-License-Identifier: MIT
#include <sup++/DispatchEvent.h>
#include <sup++/SvcDispatch.h>
#include <sup++/ThreadSafety.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include <sys/KAnnotatedMutex.h>
#include <sys/NeverDestroyed.h>

namespace {

constexpr std::chrono::milliseconds longestWait(10); // the pace of a loop in which nothing happens

struct Event {
    KSYS::KAnnotatedMutex<std::mutex> guard;
    std::condition_variable changed;
    std::uint64_t count SUP_GUARDED_BY(guard) = 0;
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
        const KSYS::KScopedLock hold(event.guard);
        ++event.count;
    }
    event.changed.notify_all();
}

unsigned SvcPollingDispatch() noexcept {
    Event& event = TheEvent();
    KSYS::KScopedLock hold(event.guard);
    event.changed.wait_for(hold.GetStandard(), longestWait, [&]() SUP_REQUIRES(event.guard) {
        return event.count != seen;
    });
    seen = event.count;
    return 0;
}
