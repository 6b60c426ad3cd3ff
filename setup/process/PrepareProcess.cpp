// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/process/PrepareProcess.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <sys/auxv.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace KSETUP {

namespace {

/// What a run may follow: how to speak and to whom. Nothing here names a file.
constexpr std::array keptVariables = std::to_array<std::string_view>(
    {"TERM",
     "COLUMNS",
     "NO_COLOR",
     "LANG",
     "LANGUAGE",
     "LC_ALL",
     "LC_CTYPE",
     "LC_MESSAGES",
     "TZ",
     "SUDO_UID"}
);

void OpenStandardDescriptors() {
    for (int descriptor = 0; descriptor <= STDERR_FILENO; ++descriptor) {
        if (::fcntl(descriptor, F_GETFD) < 0 && errno == EBADF) {
            // The lowest free one, so this very one.
            const int opened = ::open("/dev/null", O_RDWR); // NOLINT: meant to be inherited
            if (opened < 0) {
                throw KSetupFailure(
                    ExitCode::internal, "/dev/null cannot be opened: the system lacks its devices."
                );
            }
        }
    }
}

void ReduceEnvironment() {
    std::vector<std::pair<std::string, std::string>> kept;
    for (const std::string_view name : keptVariables) {
        const char* value = std::getenv(std::string(name).c_str()); // NOLINT: one thread yet
        // A locale's name with a separator is a path of files to load.
        if (value != nullptr && std::string_view(value).find('/') == std::string_view::npos) {
            kept.emplace_back(name, value);
        }
    }
    ::clearenv();                                         // NOLINT: one thread yet
    ::setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1); // NOLINT: one thread yet
    ::setenv("HOME", "/root", 1);                         // NOLINT: one thread yet
    for (const auto& [name, value] : kept) {
        ::setenv(name.c_str(), value.c_str(), 1); // NOLINT: one thread yet
    }
}

} // namespace

std::string PrepareProcess() {
    if (::getauxval(AT_SECURE) != 0) {
        throw KSetupFailure(
            ExitCode::notRoot,
            "ins-setup does not run set-uid or set-gid. Take the bit away and start it as root."
        );
    }
    OpenStandardDescriptors();
    ::umask(022);
    ReduceEnvironment();
    const rlimit none{0, 0};
    // Neither can fail for these values.
    static_cast<void>(::setrlimit(RLIMIT_CORE, &none));
    static_cast<void>(::prctl(PR_SET_DUMPABLE, 0));
    ::signal(SIGPIPE, SIG_IGN); // NOLINT: one thread yet
    std::error_code gone;       // an empty path then
    const std::string former = std::filesystem::current_path(gone).string();
    if (::chdir("/") != 0) {
        throw KSetupFailure(ExitCode::internal, "the root directory cannot be entered.");
    }
    return former;
}

std::string FromDirectory(const std::string& directory, const std::string& path) {
    return path.empty() || path.front() == '/' || directory.empty()
               ? path
               : (std::filesystem::path(directory) / path).string();
}

} // namespace KSETUP
