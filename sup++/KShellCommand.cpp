// SPDX-License-Identifier: MIT
#include <sup++/KErrorSource.h>
#include <sup++/KShellCommand.h>
#include <sup++/SvcProcess.h>

#include <boost/make_shared.hpp>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <mutex>
#include <new>
#include <string>

#include <poll.h>
#include <sys/KAnnotatedMutex.h>
#include <sys/NeverDestroyed.h>
#include <sys/eventfd.h>
#include <sys/files/FileCalls.h>
#include <sys/processes/KShellProcess.h>

namespace KSUP {

namespace {

constexpr KErrorSource source{"sup++/KShellCommand"};
constexpr auto terminatePatience = std::chrono::seconds(2);
constexpr auto killPatience = std::chrono::seconds(1);
constexpr unsigned outputMode = 0640;
constexpr int noStatus = -1;
constexpr int groupLookMs = 20; // the kernel tells of a process's end, but not of a group's

struct Output {
    KSYS::KAnnotatedMutex<std::mutex> guard;
    std::string path SUP_GUARDED_BY(guard);
};

Output& TheOutput() {
    static KSYS::NeverDestroyed<Output> output;
    return output.Get();
}

std::string OutputPath() {
    Output& output = TheOutput();
    const KSYS::KScopedLock hold(output.guard);
    return output.path;
}

} // namespace

/// The command and the request to stop it, shared by the owner and the waiting thread.
class KShellCommand::Child {
  public:
    /// Returns  0 or errno; nothing runs after a failure
    unsigned Start(const KString& commandLine, const KSYS::KDescriptor& output) {
        stopRequest.Reset(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        return stopRequest.IsOpen() ? process.Start(commandLine.c_str(), output)
                                    : static_cast<unsigned>(errno);
    }

    void RequestStop() const noexcept {
        // Cannot fail: the counter would have to be full.
        static_cast<void>(::eventfd_write(stopRequest.Get(), 1));
    }

    /// The thread's body.
    void WaitForEnd() {
        if (IsStoppedBeforeItsEnd()) {
            EndGroup();
        }
        exitStatus = process.Reap();
    }

    int GetExitStatus() const noexcept { return exitStatus; }

    /// For a command whose thread could not be made.
    void Abandon() {
        process.SignalGroup(SIGKILL);
        static_cast<void>(process.Reap()); // nobody asks
    }

  private:
    /// Returns when the shell has ended or a stop is requested.
    bool IsStoppedBeforeItsEnd() const noexcept {
        if (process.GetEndDescriptor() < 0) {
            return false; // it had ended before anybody could look
        }
        std::array<pollfd, 2> events{
            {{process.GetEndDescriptor(), POLLIN, 0}, {stopRequest.Get(), POLLIN, 0}}};
        int ready = 0;
        do {
            ready = ::poll(events.data(), events.size(), -1);
        } while (ready < 0 && errno == EINTR);
        return events[0].revents == 0;
    }

    void EndGroup() const {
        process.SignalGroup(SIGTERM);
        if (!IsGroupGoneWithin(terminatePatience)) {
            process.SignalGroup(SIGKILL);
            // It takes effect when the kernel gets to it; only what is stuck in there is not waited
            // for.
            static_cast<void>(IsGroupGoneWithin(killPatience));
        }
    }

    bool IsGroupGoneWithin(std::chrono::milliseconds time) const {
        const auto end = std::chrono::steady_clock::now() + time;
        if (!process.HasEnded(time)) {
            return false;
        }
        while (process.IsGroupAlive()) {
            if (std::chrono::steady_clock::now() >= end) {
                return false;
            }
            static_cast<void>(::poll(nullptr, 0, groupLookMs)); // a pause
        }
        return true;
    }

    KSYS::KShellProcess process;
    KSYS::KDescriptor stopRequest;
    std::atomic<int> exitStatus{noStatus}; // of the thread, for any
};

KShellCommand::KShellCommand() : KThread("Shell command") {}

KShellCommand::~KShellCommand() {
    Stop(true);
}

void KShellCommand::Execute(const KString& commandLine) {
    // To the end: a Stop on another thread comes before all of this, and nothing is started, or
    // finds the command.
    const KSYS::KScopedLock hold(guard);
    if (IsThreadActive()) {
        source.Raise(TraceLevel::support, ErrorCode::invalidArgument, "a command is running");
    }
    if (IsTerminated()) {
        return;
    }
    KSYS::KDescriptor output;
    if (const std::string path = OutputPath(); !path.empty()) {
        if (const unsigned status = KSYS::OpenForAppend(path.c_str(), outputMode, output);
            status != 0) {
            source.RaiseSystem(status, KOperation::Write, path);
        }
    }
    const auto started = boost::make_shared<Child>();
    if (const unsigned status = started->Start(commandLine, output); status != 0) {
        source.RaiseSystem(status, KOperation::Execute, "/bin/sh");
    }
    try {
        Start([started] { started->WaitForEnd(); });
    } catch (...) {
        started->Abandon();
        throw;
    }
    child = started;
}

int KShellCommand::GetExitStatus() const {
    const KSYS::KScopedLock hold(guard);
    return child != nullptr ? child->GetExitStatus() : noStatus;
}

void KShellCommand::Stop(bool wait) {
    KThread::Stop(false); // from here on nothing is started
    {
        const KSYS::KScopedLock hold(guard);
        if (child != nullptr && IsThreadActive()) {
            child->RequestStop();
        }
    }
    KThread::Stop(wait);
}

} // namespace KSUP

unsigned SvcSetCommandOutput(const char* path) noexcept {
    try {
        KSUP::Output& output = KSUP::TheOutput();
        const KSYS::KScopedLock hold(output.guard);
        output.path = path != nullptr ? path : "";
        return 0;
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
}
