// SPDX-License-Identifier: MIT
#include "../../../faults/failcall.h"
#include "../../../support/TemporaryTree.h"

#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/run/FlushDeletions.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

namespace {

using KSETUP::KSetupFailure;
using ::testing::HasSubstr;

class FlushDeletionsTest : public ::testing::Test {
  protected:
    ~FlushDeletionsTest() override { failcall_disarm(); }

    /// How many file systems were flushed.
    static unsigned Flushed(const std::vector<std::string>& paths) {
        constexpr unsigned never = 1000;
        failcall_arm("syncfs", never, EIO, 0);
        KSETUP::FlushDeletions(paths);
        return failcall_disarm();
    }
    /// The exit code and the text of a flush that fails.
    static std::string Failure(const char* call, int errorNumber, const std::string& path) {
        try {
            failcall_arm(call, 1, errorNumber, 0);
            KSETUP::FlushDeletions({path});
        } catch (const KSetupFailure& failure) {
            return std::to_string(failure.GetExitCode()) + " " + failure.what();
        }
        return "";
    }

    KTEST::TemporaryTree tree;
};

TEST_F(FlushDeletionsTest, EachFileSystemOfPathsThatAreGoneIsFlushedOnce) {
    tree.Directory("there");
    EXPECT_EQ(
        Flushed(
            {tree.Path("gone/deep/file"),
             tree.Path("gone/other"),
             tree.Path("there/c"),
             "/proc/gone/x"}
        ),
        2U
    );
    EXPECT_EQ(Flushed({}), 0U);
}

TEST_F(FlushDeletionsTest, ALinkOnTheWayLeadsToItsFileSystem) {
    tree.Link("way", "/proc");
    EXPECT_EQ(Flushed({tree.Path("way/x"), tree.Path("x")}), 2U);
}

TEST_F(FlushDeletionsTest, AFlushThatFailsIsToldWithWhatItMeans) {
    EXPECT_EQ(
        Failure("syncfs", EIO, tree.Path("gone/file")),
        "73 cannot bring to the disk what was deleted in " + tree.Path() +
            ": Input/output error. Until that is done a power cut may bring back what was deleted, "
            "so "
            "it stays remembered. Fix the cause and run it again."
    );
    EXPECT_THAT(
        Failure("openat", EMFILE, tree.Path("file")),
        HasSubstr(tree.Path() + ": Too many open files. Until that is done")
    );
}

} // namespace
