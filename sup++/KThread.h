// SPDX-License-Identifier: MIT
#pragma once

#include <sup++/Export.h>
#include <sup++/KBase.h>
#include <sup++/KString.h>

#include <boost/function.hpp>
#include <boost/shared_ptr.hpp>

namespace KSUP {

/// A thread of its own name that can be asked to end, and that keeps the exception that ended it.
///
/// The request to end is remembered for good, also when it comes before Start. Nobody is
/// interrupted: the function has to ask IsTerminated.
///
/// Thread   any; Start and the destructor belong to the owner
///
///     KThread worker("worker");
///     worker.Start([&] { while (!worker.IsTerminated()) { … } });
///     worker.Stop();
///     worker.CheckRunError();
class SUP_EXPORT KThread : public KBase {
  public:
    /// The operating system is given the first 15 bytes of the name.
    explicit KThread(const KString& name);
    /// Requests the end and waits for it; on its own thread it does not wait.
    ~KThread() override;
    KThread(const KThread&) = delete;
    KThread& operator=(const KThread&) = delete;

    /// Runs `body` on a new thread. IsThreadActive is true from here on. Signals of the process are
    /// left to its other threads.
    ///
    /// Throws   KError with errno when there is no thread to be had, KError 36 when one is active
    void Start(boost::function<void()> body);

    /// Requests the end; with `wait` returns when the function has returned. On the thread itself
    /// it never waits.
    virtual void Stop(bool wait);
    /// Requests the end and waits for it; not virtual, calls Stop(bool).
    void Stop() { Stop(true); }

    /// True from Start until the function has returned.
    bool IsThreadActive() const noexcept;
    /// True once an end was requested.
    bool IsTerminated() const noexcept;
    /// Throws what ended the function, whole, each time it is asked; nothing after a clean end.
    void CheckRunError() const;
    /// As it was given, not cut to the 15 bytes that the system knows.
    const KString& GetName() const noexcept { return name; }

  private:
    struct State;
    static void* Run(void* handOver);
    void Join() noexcept;

    KString name;
    boost::shared_ptr<State> state; // the running thread holds it too
};

} // namespace KSUP
