// SPDX-License-Identifier: MIT
#include <atomic>
#include <condition_variable>
#include <mutex>

#include <sys/KAnnotatedMutex.h>
#include <sys/NeverDestroyed.h>
#include <sys/ThreadSafety.h>
#include <sys/files/WriteReport.h>

namespace KSYS {

namespace {

struct Reporting {
    KAnnotatedMutex<std::mutex> guard;
    std::condition_variable callEnded;
    WriteListener listener SYS_GUARDED_BY(guard) = nullptr;
    void* context SYS_GUARDED_BY(guard) = nullptr;
    unsigned runningCalls SYS_GUARDED_BY(guard) = 0;
};

Reporting& TheReporting() noexcept {
    static NeverDestroyed<Reporting> reporting;
    return reporting.Get();
}

// Beside the rest, which is made with the first listener.
std::atomic<bool> isReporting{false};

thread_local unsigned ownCalls = 0; // NOLINT: how deep this thread is in listeners

} // namespace

void SetWriteListener(WriteListener listener, void* context) noexcept {
    Reporting& reporting = TheReporting();
    KScopedLock hold(reporting.guard);
    reporting.listener = listener;
    reporting.context = context;
    isReporting.store(listener != nullptr, std::memory_order_relaxed);
    if (ownCalls == 0) { // a listener that waited for its own end would wait for ever
        reporting.callEnded.wait(hold.GetStandard(), [&]() SYS_REQUIRES(reporting.guard) {
            return reporting.runningCalls == 0;
        });
    }
}

bool IsReportingWrites() noexcept {
    return isReporting.load(std::memory_order_relaxed);
}

void ReportWrite(Written what, const char* path) noexcept {
    if (!IsReportingWrites()) {
        return;
    }
    Reporting& reporting = TheReporting();
    KScopedLock hold(reporting.guard);
    const WriteListener listener = reporting.listener;
    void* const context = reporting.context;
    if (listener == nullptr) {
        return;
    }
    ++reporting.runningCalls;
    hold.Unlock();
    ++ownCalls;
    listener(context, static_cast<unsigned>(what), path);
    --ownCalls;
    hold.Lock();
    if (--reporting.runningCalls == 0) {
        reporting.callEnded.notify_all();
    }
}

} // namespace KSYS
