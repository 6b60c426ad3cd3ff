// SPDX-License-Identifier: MIT
#include <sup++/KErrorSource.h>
#include <sup++/KShellCommand.h>
#include <sup++/SvcProcess.h>
#include <sup++/unx/lin/SysChild.h>

#include <boost/make_shared.hpp>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <mutex>
#include <new>
#include <string>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>

namespace KSUP {

namespace {

constexpr KErrorSource source{"sup++/KShellCommand"};
constexpr auto terminatePatience = std::chrono::seconds(2);
constexpr int groupLookMs = 20; // the kernel tells of a process's end, but not of a group's

struct Output {
    std::mutex guard;
    std::string path; // guarded by guard
};

Output& TheOutput() {
    static Output& output = *new Output; // never destroyed: commands may start while we end
    return output;
}

std::string OutputPath() {
    Output& output = TheOutput();
    const std::lock_guard hold(output.guard);
    return output.path;
}

} // namespace

/// The command and the request to stop it, shared by the owner and the waiting thread.
class KShellCommand::Child {
  public:
    unsigned Start(const KString& commandLine) {
        stopRequest.Reset(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        return stopRequest.IsOpen() ? process.Start(commandLine.c_str(), OutputPath())
                                    : static_cast<unsigned>(errno);
    }

    void RequestStop() const noexcept {
        // Cannot fail: the counter would have to be full.
        static_cast<void>(::eventfd_write(stopRequest.Get(), 1));
    }

    /// The thread's body.
    void WaitForEnd() {
        if (Wait(-1) == Event::Stop) {
            EndGroup();
        }
        process.Reap();
    }

    /// For a command whose thread could not be made.
    void Abandon() {
        process.SignalGroup(SIGKILL);
        process.Reap();
    }

  private:
    enum class Event { End, Stop, Timeout };

    Event Wait(int timeoutMs) const noexcept {
        std::array<pollfd, 2> events{
            {{process.GetEndDescriptor(), POLLIN, 0}, {stopRequest.Get(), POLLIN, 0}}};
        if (process.GetEndDescriptor() < 0) {
            return Event::End;
        }
        int ready = 0;
        do {
            ready = ::poll(events.data(), events.size(), timeoutMs);
        } while (ready < 0 && errno == EINTR);
        return ready == 0 ? Event::Timeout : events[0].revents != 0 ? Event::End : Event::Stop;
    }

    /// The shell stays unreaped meanwhile, so that its group's number stays its own.
    void EndGroup() const {
        process.SignalGroup(SIGTERM);
        const auto end = std::chrono::steady_clock::now() + terminatePatience;
        while (std::chrono::steady_clock::now() < end && process.IsGroupAlive()) {
            static_cast<void>(::poll(nullptr, 0, groupLookMs)); // a pause
        }
        process.SignalGroup(SIGKILL);
    }

    Sys::ShellProcess process;
    KDescriptor stopRequest;
};

KShellCommand::KShellCommand() : KThread("Shell command") {}

KShellCommand::~KShellCommand() {
    Stop(true);
}

void KShellCommand::Execute(const KString& commandLine) {
    if (IsThreadActive()) {
        source.Raise(TraceLevel::support, ErrorCode::invalidArgument, "a command is running");
    }
    if (IsTerminated()) {
        return;
    }
    auto started = boost::make_shared<Child>();
    if (const unsigned status = started->Start(commandLine); status != 0) {
        source.RaiseSystem(status, "/bin/sh");
    }
    child = started;
    try {
        Start([started] { started->WaitForEnd(); });
    } catch (...) {
        started->Abandon();
        throw;
    }
}

void KShellCommand::Stop(bool wait) {
    if (child != nullptr) {
        child->RequestStop();
    }
    KThread::Stop(wait);
}

} // namespace KSUP

unsigned SvcSetCommandOutput(const char* path) noexcept {
    try {
        KSUP::Output& output = KSUP::TheOutput();
        const std::lock_guard hold(output.guard);
        output.path = path != nullptr ? path : "";
        return 0;
    } catch (const std::bad_alloc&) {
        return ENOMEM;
    }
}
