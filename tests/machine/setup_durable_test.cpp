// SPDX-License-Identifier: MIT
//
// What a run deletes is on the disk before it forgets what there was: in which order it makes its
// system calls, on a product that has a file system of its own.
#include "SetupRig.h"
#include "TracedRun.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

namespace {

using ::testing::Contains;
using ::testing::Not;

dev_t DeviceOf(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_dev : 0;
}

class SetupDurableTest : public KTEST::SetupProgramTest {
  protected:
    SetupDurableTest() {
        tree.Directory("disk");
        if (::mount("none", disk.c_str(), "tmpfs", 0, nullptr) != 0) {
            throw std::system_error(errno, std::generic_category(), "mount");
        }
        GivenScript("file=copy,old,$pathSource$lib,$pathTarget$\n");
        tree.Write("kit/lib/old", "old");
    }
    ~SetupDurableTest() override { ::umount2(disk.c_str(), MNT_DETACH); }

    void Install() { Install("--quiet " + disk + "/product"); }
    void Install(const std::string& more) {
        const Outcome installed = RunSetup("install", more);
        ASSERT_EQ(installed.exitCode, 0) << installed.err;
    }
    std::vector<std::string> Words(const std::string& action) const {
        return {Program(), action, "--kit", tree.Path("kit"), "--quiet"};
    }
    /// "deletes NAME", "replaces NAME", "begins NAME" (to write it) and "flushes disk", also "etc", in
    /// the order of the calls; up to the first that is `end`, before which it is killed.
    std::vector<std::string> Trace(const std::string& action, const std::string& end = "") {
        std::vector<std::string> calls;
        const int status = KTEST::RunTraced(Words(action), [&](pid_t thread, const auto& call) {
            const std::string told = Tell(thread, call);
            if (!told.empty()) {
                calls.push_back(told);
            }
            return !told.empty() && told == end;
        });
        EXPECT_EQ(end.empty() ? WEXITSTATUS(status) : WTERMSIG(status), end.empty() ? 0 : SIGKILL);
        return calls;
    }
    std::string Tell(pid_t thread, const __ptrace_syscall_info& call) const {
        switch (call.entry.nr) {
        case SYS_unlinkat:
            return "deletes " + KTEST::ReadTracedText(thread, call.entry.args[1]);
        case SYS_renameat:
        case SYS_renameat2:
            return "replaces " + KTEST::ReadTracedText(thread, call.entry.args[3]);
        case SYS_syncfs: {
            const dev_t device = DeviceOf(
                "/proc/" + std::to_string(thread) + "/fd/" + std::to_string(call.entry.args[0])
            );
            return device == DeviceOf(disk)     ? "flushes disk"
                   : device == DeviceOf("/etc") ? "flushes etc"
                                                : "flushes another";
        }
        case SYS_sync_file_range:
            return "begins " + std::filesystem::read_symlink(
                                   "/proc/" + std::to_string(thread) + "/fd/" +
                                   std::to_string(call.entry.args[0])
                               )
                                   .filename()
                                   .string();
        default:
            return "";
        }
    }
    /// What comes between the last `from` and the first `to`; nothing without them.
    static std::vector<std::string>
    Between(const std::vector<std::string>& calls, const std::string& from, const std::string& to) {
        const auto end = std::find(calls.begin(), calls.end(), to);
        const auto begin = std::find(std::make_reverse_iterator(end), calls.rend(), from);
        return end == calls.end() || begin == calls.rend()
                   ? std::vector<std::string>()
                   : std::vector<std::string>(begin.base(), end);
    }

    const std::string disk = tree.Path("disk");
};

TEST_F(SetupDurableTest, ARemovalIsOnTheDiskBeforeItIsForgotten) {
    Install();
    const std::vector<std::string> calls = Trace("remove");
    const auto manifest = Between(calls, "deletes product", "deletes manifest");
    EXPECT_THAT(manifest, Contains("flushes disk")) << ::testing::PrintToString(calls);
    EXPECT_THAT(manifest, Contains("flushes etc"));
    EXPECT_THAT(manifest, Not(Contains("deletes state")));
    EXPECT_THAT(Between(calls, "flushes disk", "deletes state"), Contains("deletes written"));
}

/// Else the disk would wait for all copies, and the run then for the disk.
TEST_F(SetupDurableTest, TheDiskBeginsWithALongFileBeforeItIsCopied) {
    tree.Write("kit/lib/old", std::string(std::size_t{20} << 20U, 'x'));
    const std::vector<std::string> calls = Trace("install");
    const auto first = std::find(calls.begin(), calls.end(), "begins old");
    const auto flush = std::find(first, calls.end(), "flushes etc"); // which is where /opt is
    EXPECT_GE(std::count(first, flush, "begins old"), 2) << ::testing::PrintToString(calls);
}

TEST_F(SetupDurableTest, TheDiskBeginsWithAShortFileWhenItsSumIsMade) {
    EXPECT_THAT(Trace("install"), Contains("begins old"));
}

TEST_F(SetupDurableTest, ARemovalFlushesWhatAKilledOneDeletedBeforeIt) {
    Install();
    Trace("remove", "flushes disk");
    ASSERT_FALSE(tree.Exists("disk/product"));
    const Outcome told = RunSetup("status");
    EXPECT_THAT(told.out, ::testing::HasSubstr("was interrupted"));
    const std::vector<std::string> calls = Trace("remove");
    EXPECT_LT(
        std::find(calls.begin(), calls.end(), "flushes disk"),
        std::find(calls.begin(), calls.end(), "deletes manifest")
    ) << ::testing::PrintToString(calls);
}

TEST_F(SetupDurableTest, WhatAnUpgradeDoesNotHaveAnyMoreIsGoneFromTheDiskBeforeTheManifestSaysSo) {
    Install();
    GivenScript();
    const std::vector<std::string> calls = Trace("install");
    EXPECT_THAT(Between(calls, "deletes old", "replaces manifest"), Contains("flushes disk"))
        << ::testing::PrintToString(calls);
}

TEST_F(SetupDurableTest, ARestorationFlushesWhatAKilledOnePutBackBeforeIt) {
    // Only what differs from before is put back: all of it on the disk was, by the killed one.
    GivenScript("file=copy,old,$pathSource$lib," + disk + "\n");
    Install("--quiet");
    tree.Write("kit/lib/old", "newer");
    Install("--quiet --backup");
    Trace("restore", "replaces st.ini"); // behind the other, before what was put back is flushed
    const std::vector<std::string> calls = Trace("restore");
    EXPECT_THAT(calls, Not(Contains("replaces old"))) << "it was put back already";
    EXPECT_LT(
        std::find(calls.begin(), calls.end(), "flushes disk"),
        std::find(calls.begin(), calls.end(), "deletes index")
    ) << ::testing::PrintToString(calls);
}

} // namespace
