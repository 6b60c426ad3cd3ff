// SPDX-License-Identifier: MIT
#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <new>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/processes/KShellProcess.h>
#include <sys/processes/ProcessList.h>
#include <sys/wait.h>
#include <unistd.h>

namespace KSYS {

namespace {

/// In front of the command, because posix_spawn(3) cannot set it and setting it in this process
/// would show in the files of other threads.
constexpr const char* umaskLine = "umask 022\n";

/// Attributes and file actions of a spawn; destroyed on every way out.
class SpawnSettings {
  public:
    SpawnSettings() noexcept {
        status = ::posix_spawnattr_init(&attributes);
        Add([&] { return ::posix_spawn_file_actions_init(&actions); });
    }
    ~SpawnSettings() {
        ::posix_spawn_file_actions_destroy(&actions);
        ::posix_spawnattr_destroy(&attributes);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    template <class Call>
    void Add(Call call) noexcept {
        if (status == 0) {
            status = call();
        }
    }
    void SetOwnSession() noexcept {
        sigset_t all;
        sigset_t none;
        // sigfillset(3) leaves out the C library's own two signals; a spawn then ignores them.
        std::memset(&all, 0xff, sizeof(all));
        sigemptyset(&none);
        Add([&] { return ::posix_spawnattr_setsigdefault(&attributes, &all); });
        Add([&] { return ::posix_spawnattr_setsigmask(&attributes, &none); });
        // A session is a process group too, and has no terminal that a command could write to.
        Add([&] {
            return ::posix_spawnattr_setflags(
                &attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSID
            );
        });
    }
    void SetFiles(int output) noexcept {
        Add([&] {
            return ::posix_spawn_file_actions_addopen(
                &actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0
            );
        });
        if (output < 0) {
            Add([&] {
                return ::posix_spawn_file_actions_addopen(
                    &actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0
                );
            });
        } else {
            Add([&] { return ::posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO); }
            );
        }
        Add([&] {
            return ::posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
        });
        Add([&] { return ::posix_spawn_file_actions_addclosefrom_np(&actions, 3); });
        Add([&] { return ::posix_spawn_file_actions_addchdir_np(&actions, "/"); });
    }

    posix_spawnattr_t attributes{};
    posix_spawn_file_actions_t actions{};
    int status = 0;
};

/// Whether the process is a child of this one that was not reaped yet.
bool IsChild(const KDescriptor& held) noexcept {
    siginfo_t ignored{};
    return ::waitid(
               P_PIDFD, static_cast<id_t>(held.Get()), &ignored, WEXITED | WNOHANG | WNOWAIT
           ) == 0;
}

} // namespace

unsigned KShellProcess::Start(const std::string& commandLine, const KDescriptor& output) {
    KDescriptor moved;
    if (output.IsOpen()) {
        // Not one of the three that are replaced before it is duplicated.
        moved.Reset(::fcntl(output.Get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
        if (!moved.IsOpen()) {
            return static_cast<unsigned>(errno);
        }
    }
    SpawnSettings settings;
    settings.SetOwnSession();
    settings.SetFiles(moved.Get());
    if (settings.status != 0) {
        return static_cast<unsigned>(settings.status);
    }
    std::string shell = "/bin/sh";
    std::string option = "-c";
    std::string text = umaskLine + commandLine;
    std::array<std::string, 3> variables{
        "PATH=/usr/sbin:/usr/bin:/sbin:/bin", "HOME=/root", "LANG=C.UTF-8"};
    const std::array<char*, 4> arguments{shell.data(), option.data(), text.data(), nullptr};
    const std::array<char*, 4> environment{
        variables[0].data(), variables[1].data(), variables[2].data(), nullptr};
    const int status = ::posix_spawn(
        &process,
        shell.c_str(),
        &settings.actions,
        &settings.attributes,
        arguments.data(),
        environment.data()
    );
    if (status != 0) {
        return static_cast<unsigned>(status);
    }
    if (const unsigned error = OpenProcess(process, endDescriptor); error != 0) {
        // Nobody could tell its end: better none than one that cannot be stopped.
        static_cast<void>(::kill(-process, SIGKILL)); // gone is what is wanted
        while (::waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
        }
        return error;
    }
    if (endDescriptor.IsOpen() && !IsChild(endDescriptor)) {
        endDescriptor.Reset(); // reaped by the program, and the number is another's by now
    }
    return 0;
}

bool KShellProcess::HasEnded(std::chrono::milliseconds time) const noexcept {
    return !endDescriptor.IsOpen() || EndsWithin(endDescriptor, time);
}

void KShellProcess::SignalGroup(int signal) const noexcept {
    if (!IsReaped() || IsGroupAlive()) {
        static_cast<void>(::kill(-process, signal)); // a group that is gone is what was wanted
    }
}

bool KShellProcess::IsGroupAlive() const noexcept {
    try {
        std::vector<ProcessEntry> all;
        const unsigned status = ListProcesses(all);
        return status != 0 || std::any_of(all.begin(), all.end(), [&](const ProcessEntry& one) {
                   return one.group == process && !one.dead;
               });
    } catch (const std::bad_alloc&) {
        return true;
    }
}

bool KShellProcess::IsReaped() const noexcept {
    return !endDescriptor.IsOpen() || !IsChild(endDescriptor);
}

int KShellProcess::Reap() noexcept {
    constexpr int unknown = -1;
    constexpr int signalBase = 128; // as a shell says it of its own children
    if (!endDescriptor.IsOpen()) {
        return unknown;
    }
    // By descriptor: the number may be another child's where the program has reaped this one.
    siginfo_t end{};
    int failed = 0;
    do {
        failed = ::waitid(P_PIDFD, static_cast<id_t>(endDescriptor.Get()), &end, WEXITED);
    } while (failed < 0 && errno == EINTR);
    if (failed < 0) {
        return unknown;
    }
    return end.si_code == CLD_EXITED ? end.si_status : signalBase + end.si_status;
}

} // namespace KSYS
