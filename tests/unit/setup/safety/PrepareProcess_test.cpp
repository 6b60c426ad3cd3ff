// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/safety/PrepareProcess.h>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <sys/auxv.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using KSETUP::PrepareProcess;

/// Whether a child process finds this true. It ends without the destructors of its parent.
bool InChild(const std::function<bool()>& holds) {
    const pid_t child = ::fork();
    if (child == 0) {
        bool result = false;
        try {
            result = holds();
        } catch (const std::exception&) {
            // stays false
        }
        ::_exit(result ? 0 : 1);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    return status == 0;
}

bool Is(const char* name, const char* value) {
    const char* const found = std::getenv(name);
    return value == nullptr ? found == nullptr : found != nullptr && std::string(found) == value;
}

/// This program, made to look for its libraries in its current directory: the loader heeds no
/// $ORIGIN in a program with set-id bits.
std::string WithLibrariesInItsDirectory() {
    static constexpr std::string_view written = "$ORIGIN/../lib";
    static constexpr std::string_view current = "/proc/self/cwd";
    static_assert(written.size() == current.size());
    std::ifstream file("/proc/self/exe", std::ios::binary);
    std::string bytes{std::istreambuf_iterator<char>(file), {}};
    for (std::size_t at = 0; (at = bytes.find(written, at)) != std::string::npos;) {
        bytes.replace(at, written.size(), current);
    }
    return bytes;
}

class PrepareProcessTest : public ::testing::Test {
  protected:
    KTEST::TemporaryTree tree;
};

TEST_F(PrepareProcessTest, ClosedStandardDescriptorsAreOpened) {
    EXPECT_TRUE(InChild([] {
        ::close(STDIN_FILENO);
        ::close(STDERR_FILENO);
        PrepareProcess();
        struct stat opened {};
        struct stat null {};
        return ::stat("/dev/null", &null) == 0 && ::fstat(STDIN_FILENO, &opened) == 0 &&
               opened.st_rdev == null.st_rdev && ::fstat(STDERR_FILENO, &opened) == 0 &&
               opened.st_rdev == null.st_rdev;
    }));
}

TEST_F(PrepareProcessTest, OpenStandardDescriptorsStay) {
    tree.Write("out", "");
    EXPECT_TRUE(InChild([&] {
        const int file = ::open(tree.Path("out").c_str(), O_WRONLY | O_CLOEXEC);
        ::dup2(file, STDOUT_FILENO);
        PrepareProcess();
        return ::write(STDOUT_FILENO, "text", 4) == 4;
    }));
    EXPECT_EQ(tree.Read("out"), "text");
}

TEST_F(PrepareProcessTest, FilesAreNotMadeForOthersToWrite) {
    EXPECT_TRUE(InChild([] {
        ::umask(0);
        PrepareProcess();
        return ::umask(0) == 022;
    }));
}

TEST_F(PrepareProcessTest, TheEnvironmentIsReducedToAList) {
    EXPECT_TRUE(InChild([] {
        ::clearenv();
        for (const char* kept :
             {"HOME", "TERM", "LANG", "LC_ALL", "LC_TIME", "NO_COLOR", "COLUMNS", "LANGUAGE"}) {
            ::setenv(kept, kept, 1);
        }
        for (const char* dropped :
             {"PATH", "TMPDIR", "LD_PRELOAD", "IFS", "BASH_ENV", "NLSPATH", "HOMES", "LCX"}) {
            ::setenv(dropped, "evil", 1);
        }
        PrepareProcess();
        std::set<std::string> names;
        for (char** variable = environ; *variable != nullptr; ++variable) {
            names.insert(std::string(*variable).substr(0, std::string(*variable).find('=')));
        }
        const std::set<std::string> expected{
            "PATH", "HOME", "TERM", "LANG", "LC_ALL", "LC_TIME", "NO_COLOR", "COLUMNS", "LANGUAGE"};
        return names == expected && Is("PATH", "/usr/sbin:/usr/bin:/sbin:/bin") &&
               Is("LC_TIME", "LC_TIME");
    }));
}

TEST_F(PrepareProcessTest, TheFormerDirectoryIsTold) {
    EXPECT_TRUE(InChild([&] {
        const std::string here = std::filesystem::canonical(tree.Path()).string();
        return ::chdir(here.c_str()) == 0 && PrepareProcess() == here &&
               std::filesystem::current_path() == "/";
    }));
}

TEST_F(PrepareProcessTest, ADirectoryThatIsGoneIsEmpty) {
    tree.Directory("gone");
    EXPECT_TRUE(InChild([&] {
        return ::chdir(tree.Path("gone").c_str()) == 0 && ::rmdir(tree.Path("gone").c_str()) == 0 &&
               PrepareProcess().empty() && std::filesystem::current_path() == "/";
    }));
}

TEST_F(PrepareProcessTest, NoCoreIsDumped) {
    EXPECT_TRUE(InChild([] {
        PrepareProcess();
        rlimit limit{1, 1};
        return ::getrlimit(RLIMIT_CORE, &limit) == 0 && limit.rlim_cur == 0 &&
               limit.rlim_max == 0 && ::prctl(PR_GET_DUMPABLE, 0, 0, 0, 0) == 0;
    }));
}

TEST_F(PrepareProcessTest, AReaderWhoGoesAwayEndsNothing) {
    EXPECT_TRUE(InChild([] {
        ::signal(SIGPIPE, SIG_DFL);
        PrepareProcess();
        int ends[2] = {-1, -1};
        return ::pipe(ends) == 0 && ::close(ends[0]) == 0 && ::write(ends[1], "x", 1) == -1;
    }));
}

TEST_F(PrepareProcessTest, AProgramWithSetIdBitsIsRefused) {
    if (::getauxval(AT_SECURE) != 0) { // the copy that is started below
        try {
            PrepareProcess();
            FAIL() << "it runs with the rights of its file's group";
        } catch (const KSETUP::KSetupFailure& failure) {
            EXPECT_EQ(failure.GetExitCode(), KSETUP::ExitCode::notRoot);
        }
        return;
    }
    struct statvfs system {};
    ASSERT_EQ(::statvfs(tree.Path().c_str(), &system), 0);
    if (::geteuid() != 0 || (system.f_flag & (ST_NOSUID | ST_NOEXEC)) != 0) {
        GTEST_SKIP() << "needs root, and a temporary tree whose mount heeds set-id bits";
    }
    const auto libraries = std::filesystem::canonical("/proc/self/exe").parent_path() / "../lib";
    tree.Write("copy", WithLibrariesInItsDirectory(), 0755);
    tree.SetOwner("copy", 0, 65534);
    tree.SetMode("copy", 02755);
    EXPECT_TRUE(InChild([&] {
        if (::chdir(libraries.c_str()) != 0) {
            return false;
        }
        ::execl(
            tree.Path("copy").c_str(),
            "copy",
            "--gtest_filter=PrepareProcessTest.AProgramWithSetIdBitsIsRefused",
            nullptr
        );
        return false;
    }));
}

} // namespace
