// SPDX-License-Identifier: MIT
#include <setup/process/PrepareProcess.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using KSETUP::FromDirectory;
using KSETUP::PrepareProcess;

/// Whether it holds in a child, as all of it is the process's own.
bool HoldsInChild(const std::function<bool()>& question) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(question() ? 0 : 1);
    }
    int status = 0;
    return child > 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status) &&
           WEXITSTATUS(status) == 0;
}

std::string Variable(const char* name) {
    const char* value = std::getenv(name); // NOLINT: a child with one thread
    return value != nullptr ? value : "(none)";
}

TEST(PrepareProcessTest, GivesTheFormerDirectoryAndLeavesIt) {
    EXPECT_TRUE(HoldsInChild([] {
        char former[4096] = {};
        const bool known = ::getcwd(former, sizeof(former)) != nullptr;
        const bool same = PrepareProcess() == former;
        return known && same && ::getcwd(former, sizeof(former)) != nullptr &&
               std::string_view(former) == "/";
    }));
}

TEST(PrepareProcessTest, OpensDescriptorsThatAreClosed) {
    EXPECT_TRUE(HoldsInChild([] {
        ::close(0);
        ::close(2);
        PrepareProcess();
        struct stat null {};
        struct stat opened {};
        return ::stat("/dev/null", &null) == 0 && ::fstat(0, &opened) == 0 &&
               opened.st_rdev == null.st_rdev && ::fstat(2, &opened) == 0 &&
               opened.st_rdev == null.st_rdev;
    }));
}

TEST(PrepareProcessTest, AFileThatGetsTooLargeIsAnError) {
    EXPECT_TRUE(HoldsInChild([] {
        const int file = ::memfd_create("file", MFD_CLOEXEC);
        const rlimit least{1, 1};
        PrepareProcess();
        return ::setrlimit(RLIMIT_FSIZE, &least) == 0 && ::write(file, "ab", 2) == 1 &&
               ::write(file, "b", 1) == -1 && errno == EFBIG;
    }));
}

TEST(PrepareProcessTest, SetsTheModeMask) {
    EXPECT_TRUE(HoldsInChild([] {
        ::umask(0);
        PrepareProcess();
        return ::umask(0) == 022;
    }));
}

TEST(PrepareProcessTest, KeepsOfTheEnvironmentWhatItNeeds) {
    EXPECT_TRUE(HoldsInChild([] {
        ::setenv("PATH", "/evil", 1);          // NOLINT: a child with one thread
        ::setenv("LD_PRELOAD", "/evil.so", 1); // NOLINT: as above
        ::setenv("TMPDIR", "/evil", 1);        // NOLINT: as above
        ::setenv("NLSPATH", "/evil/%N", 1);    // NOLINT: as above
        ::setenv("LC_MESSAGES", "/evil", 1);   // NOLINT: as above
        ::setenv("LANG", "de_DE.UTF-8", 1);    // NOLINT: as above
        ::setenv("TERM", "xterm", 1);          // NOLINT: as above
        PrepareProcess();
        return Variable("PATH") == "/usr/sbin:/usr/bin:/sbin:/bin" && Variable("HOME") == "/root" &&
               Variable("LD_PRELOAD") == "(none)" && Variable("TMPDIR") == "(none)" &&
               Variable("NLSPATH") == "(none)" && Variable("LC_MESSAGES") == "(none)" &&
               Variable("LANG") == "de_DE.UTF-8" && Variable("TERM") == "xterm";
    }));
}

TEST(PrepareProcessTest, LeavesNoCoreDumps) {
    EXPECT_TRUE(HoldsInChild([] {
        PrepareProcess();
        rlimit limit{};
        return ::getrlimit(RLIMIT_CORE, &limit) == 0 && limit.rlim_cur == 0 &&
               limit.rlim_max == 0 && ::prctl(PR_GET_DUMPABLE) == 0;
    }));
}

TEST(PrepareProcessTest, AReaderWhoGoesDoesNotEndIt) {
    EXPECT_TRUE(HoldsInChild([] {
        PrepareProcess();
        int ends[2] = {-1, -1};
        if (::pipe2(ends, O_CLOEXEC) != 0) {
            return false;
        }
        ::close(ends[0]);
        return ::write(ends[1], "x", 1) < 0;
    }));
}

TEST(PrepareProcessTest, PathsAreTakenFromTheFormerDirectory) {
    EXPECT_EQ(FromDirectory("/home/me", "kit"), "/home/me/kit");
    EXPECT_EQ(FromDirectory("/home/me", "/kit"), "/kit");
    EXPECT_EQ(FromDirectory("/home/me", ""), "");
    EXPECT_EQ(FromDirectory("", "kit"), "kit");
}

} // namespace
