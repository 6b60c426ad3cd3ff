// SPDX-License-Identifier: MIT
#include <sup++/DispatchEvent.h>
#include <sup++/KErrorSource.h>
#include <sup++/KThread.h>
#include <sup++/ThreadSafety.h>
#include <sup++/Txt.h>

#include <boost/make_shared.hpp>

#include <atomic>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <string>
#include <utility>

#include <cxxabi.h>
#include <pthread.h>
#include <sys/KAnnotatedMutex.h>
#include <sys/processes/BlockedSignals.h>

namespace KSUP {

namespace {

constexpr KErrorSource source{"sup++/KThread"};
constexpr std::size_t systemNameBytes = 15; // pthread_setname_np(3)

/// As much of the name as the system takes, cut between characters.
std::string SystemName(const KString& name) {
    const char* end = name.c_str();
    while (*end != '\0' && static_cast<std::size_t>(Txtnext(end) - name.c_str()) <= systemNameBytes
    ) {
        end = Txtnext(end);
    }
    return {name.c_str(), end};
}

} // namespace

struct KThread::State {
    std::atomic<bool> active{false};
    std::atomic<bool> terminated{false};
    /// The thread's own id, stored by itself: pthread_t is not known to the outside before
    /// pthread_create returns, when the function may long be running.
    std::atomic<pthread_t> self{};
    std::atomic<bool> selfKnown{false};
    boost::function<void()> body; // the running thread's
    /// Keeps this alive from the start of a thread to the end of it, also without an owner. Handed
    /// over in here, because what a thread frees costs it an arena of the C library's own.
    boost::shared_ptr<State> running;
    std::string systemName; // fixed before the thread runs

    KSYS::KAnnotatedMutex<std::mutex> guard;
    std::condition_variable ended;
    std::exception_ptr error SUP_GUARDED_BY(guard); // written before active is cleared
    pthread_t handle SUP_GUARDED_BY(guard){};
    bool joinable SUP_GUARDED_BY(guard) = false;

    bool IsSelf() const noexcept {
        return selfKnown.load(std::memory_order_acquire) &&
               pthread_equal(self.load(std::memory_order_relaxed), pthread_self()) != 0;
    }

    void RunBody() {
        try {
            body();
        } catch (const abi::__forced_unwind&) { // pthread_exit and cancellation: not to be held up
            Finish(nullptr);
            throw;
        } catch (...) {
            Finish(std::current_exception());
            return;
        }
        Finish(nullptr);
    }

    void Finish(std::exception_ptr cause) noexcept {
        body.clear(); // what it holds is let go while the owner still waits
        {
            const KSYS::KScopedLock hold(guard);
            error = std::move(cause);
            selfKnown.store(false, std::memory_order_release);
            active.store(false, std::memory_order_release);
        }
        ended.notify_all();
        DispatchEvent::Signal();
    }
};

KThread::KThread(const KString& threadName)
    : KBase("KThread", true),
      name(threadName),
      state(boost::make_shared<State>()) {
    state->systemName = SystemName(name);
}

KThread::~KThread() {
    state->terminated.store(true, std::memory_order_release);
    DispatchEvent::Signal();
    Join();
}

void KThread::Start(boost::function<void()> body) {
    if (state->active.load(std::memory_order_acquire)) {
        source.Raise(
            TraceLevel::support, ErrorCode::invalidArgument, name + ": is running already"
        );
    }
    Join(); // of a former run that has ended
    state->body = std::move(body);
    state->active.store(true, std::memory_order_release);
    int status = 0;
    {
        const KSYS::KScopedLock hold(state->guard);
        // Inherited: a signal for the program is handled on the program's own threads.
        const KSYS::BlockedSignals blocked;
        state->error = nullptr;
        state->running = state;
        status = pthread_create(&state->handle, nullptr, &KThread::Run, state.get());
        state->joinable = status == 0;
    }
    if (status != 0) {
        state->running.reset();
        state->Finish(nullptr);
        source.RaiseSystem(static_cast<unsigned>(status), name);
    }
}

void* KThread::Run(void* handOver) {
    State& state = *static_cast<State*>(handOver);
    const boost::shared_ptr<State> held = std::move(state.running);
    state.self.store(pthread_self(), std::memory_order_relaxed);
    state.selfKnown.store(true, std::memory_order_release);
    pthread_setname_np(pthread_self(), state.systemName.c_str());
    state.RunBody();
    return nullptr;
}

void KThread::Stop(bool wait) {
    state->terminated.store(true, std::memory_order_release);
    DispatchEvent::Signal();
    if (wait && !state->IsSelf()) {
        KSYS::KScopedLock hold(state->guard);
        state->ended.wait(hold.GetStandard(), [&] {
            return !state->active.load(std::memory_order_acquire);
        });
    }
}

bool KThread::IsThreadActive() const noexcept {
    return state->active.load(std::memory_order_acquire);
}

bool KThread::IsTerminated() const noexcept {
    return state->terminated.load(std::memory_order_acquire);
}

void KThread::CheckRunError() const {
    std::exception_ptr error;
    {
        const KSYS::KScopedLock hold(state->guard);
        error = state->error;
    }
    if (error != nullptr) {
        std::rethrow_exception(error);
    }
}

void KThread::Join() noexcept {
    pthread_t handle{};
    {
        const KSYS::KScopedLock hold(state->guard);
        if (!state->joinable) {
            return;
        }
        state->joinable = false;
        handle = state->handle;
    }
    if (pthread_equal(handle, pthread_self()) != 0) {
        pthread_detach(handle);
    } else {
        pthread_join(handle, nullptr);
    }
}

} // namespace KSUP
