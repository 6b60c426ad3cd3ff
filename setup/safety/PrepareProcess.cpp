// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/safety/PrepareProcess.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/auxv.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace KSETUP {

namespace {

constexpr std::array keptVariables =
    std::to_array<std::string_view>({"HOME", "TERM", "COLUMNS", "NO_COLOR", "LANG", "LANGUAGE"});

void RefuseSetId() {
    if (::getauxval(AT_SECURE) != 0) {
        throw KSetupFailure(
            ExitCode::notRoot,
            "ins-setup does not run with the rights of its file's owner (set-user-id, set-group-id "
            "or capabilities). Take them away (chmod ug-s, setcap -r) and run it as root."
        );
    }
}

void Check(bool done, const char* what) {
    if (!done) {
        throw KSetupFailure(
            ExitCode::internal,
            std::string("cannot ") + what + ": " + std::generic_category().message(errno)
        );
    }
}

void OpenStandardDescriptors() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(descriptor, F_GETFD) < 0) {
            // All below are open, so it gets this number. Children are to have it too: no O_CLOEXEC.
            Check(::open("/dev/null", O_RDWR) == descriptor, "open /dev/null");
        }
    }
}

void DumpNoCore() {
    const rlimit none{0, 0};
    Check(::setrlimit(RLIMIT_CORE, &none) == 0, "limit core dumps");
    Check(::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) == 0, "turn core dumps off"); // handlers too
}

bool IsKept(std::string_view name) {
    return name.starts_with("LC_") ||
           std::find(keptVariables.begin(), keptVariables.end(), name) != keptVariables.end();
}

void ReduceEnvironment() {
    std::vector<std::pair<std::string, std::string>> kept;
    for (char** variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
        const std::string_view text(*variable);
        const std::size_t sign = text.find('=');
        if (sign != std::string_view::npos && IsKept(text.substr(0, sign))) {
            kept.emplace_back(text.substr(0, sign), text.substr(sign + 1));
        }
    }
    Check(::clearenv() == 0, "clear the environment");
    Check(::setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1) == 0, "set PATH");
    for (const auto& [name, value] : kept) {
        Check(::setenv(name.c_str(), value.c_str(), 1) == 0, "set the environment");
    }
}

} // namespace

std::string PrepareProcess() {
    RefuseSetId();
    OpenStandardDescriptors();
    DumpNoCore();
    ::umask(S_IWGRP | S_IWOTH);
    ReduceEnvironment();
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    Check(::sigaction(SIGPIPE, &ignore, nullptr) == 0, "ignore SIGPIPE");
    std::error_code gone; // then only absolute paths can be meant
    const std::string former = std::filesystem::current_path(gone).string();
    Check(::chdir("/") == 0, "change to \"/\"");
    return gone ? std::string() : former;
}

} // namespace KSETUP
