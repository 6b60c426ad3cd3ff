// SPDX-License-Identifier: MIT
#include <sup++/unx/lin/SysChild.h>
#include <sup++/unx/lin/SysFile.h>
#include <sup++/unx/lin/SysProcessList.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace KSUP::Sys {

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
    void ResetSignals() noexcept {
        sigset_t all;
        sigset_t none;
        sigfillset(&all);
        sigemptyset(&none);
        Add([&] { return ::posix_spawnattr_setsigdefault(&attributes, &all); });
        Add([&] { return ::posix_spawnattr_setsigmask(&attributes, &none); });
        Add([&] { return ::posix_spawnattr_setpgroup(&attributes, 0); });
        Add([&] {
            return ::posix_spawnattr_setflags(
                &attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP
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

int OpenProcess(pid_t process) noexcept {
    return static_cast<int>(::syscall(SYS_pidfd_open, process, 0)); // glibc 2.36 has it, 2.35 not
}

} // namespace

unsigned ShellProcess::Start(const std::string& commandLine, const std::string& outputPath) {
    KDescriptor output;
    if (!outputPath.empty()) {
        if (const unsigned error = OpenForAppend(outputPath.c_str(), 0640, output); error != 0) {
            return error;
        }
        // Not one of the three that are replaced before it is duplicated.
        const int moved = ::fcntl(output.Get(), F_DUPFD_CLOEXEC, 3);
        if (moved < 0) {
            return static_cast<unsigned>(errno);
        }
        output.Reset(moved);
    }
    SpawnSettings settings;
    settings.ResetSignals();
    settings.SetFiles(output.IsOpen() ? output.Get() : -1);
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
    endDescriptor.Reset(OpenProcess(process));
    return 0;
}

void ShellProcess::SignalGroup(int signal) const noexcept {
    static_cast<void>(::kill(-process, signal)); // a group that is gone is what was wanted
}

bool ShellProcess::IsGroupAlive() const {
    const std::vector<ProcessEntry> all = ListProcesses();
    return std::any_of(all.begin(), all.end(), [&](const ProcessEntry& one) {
        return one.group == process && !one.dead;
    });
}

void ShellProcess::Reap() noexcept {
    // ECHILD where the program ignores SIGCHLD: the kernel has reaped it by then.
    while (::waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
    }
}

} // namespace KSUP::Sys
