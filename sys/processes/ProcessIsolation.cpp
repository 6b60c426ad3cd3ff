// SPDX-License-Identifier: MIT
#include <cerrno>
#include <csignal>
#include <cstdlib>

#include <fcntl.h>
#include <sys/auxv.h>
#include <sys/files/FileContent.h>
#include <sys/prctl.h>
#include <sys/processes/ProcessIsolation.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace KSYS {

namespace {

unsigned OpenStandardDescriptors() noexcept {
    for (int descriptor = 0; descriptor <= STDERR_FILENO; ++descriptor) {
        // The lowest free one, so this very one; meant to be inherited.
        if (!IsOpenDescriptor(descriptor) && ::open("/dev/null", O_RDWR) < 0) {
            return static_cast<unsigned>(errno);
        }
    }
    return 0;
}

} // namespace

bool HasRaisedRights() noexcept {
    return ::getauxval(AT_SECURE) != 0;
}

bool IsRoot() noexcept {
    return ::geteuid() == 0;
}

unsigned IsolateProcess(const EnvironmentVariables& environment) {
    if (const unsigned status = OpenStandardDescriptors(); status != 0) {
        return status;
    }
    ::umask(022);
    ::clearenv();
    for (const auto& [name, value] : environment) {
        ::setenv(name.c_str(), value.c_str(), 1);
    }
    const rlimit none{0, 0};
    // Neither can fail for these values.
    static_cast<void>(::setrlimit(RLIMIT_CORE, &none));
    static_cast<void>(::prctl(PR_SET_DUMPABLE, 0));
    ::signal(SIGPIPE, SIG_IGN);
    ::signal(SIGXFSZ, SIG_IGN); // write(2) answers EFBIG then, an error that is told as any other
    return 0;
}

unsigned EnterDirectory(const char* path) noexcept {
    return ::chdir(path) == 0 ? 0U : static_cast<unsigned>(errno);
}

} // namespace KSYS
