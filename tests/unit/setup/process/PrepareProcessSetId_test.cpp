// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/process/PrepareProcess.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include <sys/auxv.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

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

TEST(PrepareProcessSetIdTest, AProgramWithSetIdBitsIsRefused) {
    if (::getauxval(AT_SECURE) != 0) { // the copy that is started below
        try {
            KSETUP::PrepareProcess();
            FAIL() << "it runs with the rights of its file's group";
        } catch (const KSETUP::KSetupFailure& failure) {
            EXPECT_EQ(failure.GetExitCode(), KSETUP::ExitCode::notRoot);
        }
        return;
    }
    KTEST::TemporaryTree tree;
    struct statvfs system {};
    ASSERT_EQ(::statvfs(tree.Path().c_str(), &system), 0);
    if (::geteuid() != 0 || (system.f_flag & (ST_NOSUID | ST_NOEXEC)) != 0) {
        GTEST_SKIP() << "needs root, and a temporary tree whose mount heeds set-id bits";
    }
    const auto libraries = std::filesystem::canonical("/proc/self/exe").parent_path() / "../lib";
    tree.Write("copy", WithLibrariesInItsDirectory(), 0755);
    tree.SetOwner("copy", 0, 65534);
    tree.SetMode("copy", 02755);
    const std::string copy = tree.Path("copy");
    const pid_t child = ::fork();
    if (child == 0) {
        if (::chdir(libraries.c_str()) == 0) {
            ::execl(
                copy.c_str(),
                "copy",
                "--gtest_filter=PrepareProcessSetIdTest.AProgramWithSetIdBitsIsRefused",
                nullptr
            );
        }
        ::_exit(127);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

} // namespace
