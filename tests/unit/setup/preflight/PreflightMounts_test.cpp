// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/preflight/Preflight.h>

#include <gtest/gtest.h>

#include <string>

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using KSETUP::KPlannedTree;

TEST(PreflightMountsTest, ATargetThatIsMountedReadOnlyIsRefused) {
    KTEST::TemporaryTree tree;
    tree.Directory("mount");
    const std::string mount = tree.Path("mount");
    tree.Write("kit/install.ini", "[install]\ndirectory=create," + mount + "/a/b\n");
    constexpr int cannotMount = 99;
    const pid_t child = ::fork();
    if (child == 0) { // sees a mount that nobody else does
        if (::unshare(CLONE_NEWNS) != 0 ||
            ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            ::mount("none", mount.c_str(), "tmpfs", MS_RDONLY, nullptr) != 0) {
            ::_exit(cannotMount);
        }
        KPlannedTree planned(KPlannedTree::Below::Disk, tree.Path("kit"));
        const KSETUP::KScript script(tree.Path("kit/install.ini").c_str());
        const auto as = [](const KSUP::KString& text) { return text; };
        const KSETUP::KPlan plan(script, "install", as, planned);
        try {
            KSETUP::RequireWritable(plan);
        } catch (const KSETUP::KSetupFailure& failure) {
            const std::string text = failure.what();
            const bool told = text.starts_with(mount + " cannot be written to") &&
                              text.find("read-only") != std::string::npos &&
                              failure.GetExitCode() == KSETUP::ExitCode::cannotWrite;
            ::_exit(told ? 0 : 1);
        }
        ::_exit(2);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == cannotMount) {
        GTEST_SKIP() << "a mount of one's own needs root";
    }
    EXPECT_EQ(status, 0);
}

} // namespace
