// SPDX-License-Identifier: MIT
//
// A new author's way, as docs/kit-author.md tells it: the page is what is run.
#include "../support/TemporaryTree.h"
#include "PageSteps.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/wait.h>

namespace {

using ::testing::HasSubstr;

TEST(KitAuthorTest, EveryCommandOfThePageDoesWhatThePageSays) {
    KTEST::TemporaryTree tree;
    tree.Directory("work");
    const std::vector<KTEST::PageStep> steps = KTEST::ReadPageSteps("docs/kit-author.md");
    ASSERT_GT(steps.size(), 20U);
    KTEST::ExpectPageSteps(tree, steps);
}

/// A bundle must not let a directory beside the one it is unpacked in give it libraries.
class BundleLibrariesTest : public ::testing::TestWithParam<const char*> {};

TEST_P(BundleLibrariesTest, AreTakenFromItsOwnDirectoryOnly) {
    KTEST::TemporaryTree tree;
    tree.Directory("t/lib");
    const std::string programs =
        std::filesystem::canonical("/proc/self/exe").parent_path().string();
    const std::string setup = programs + "/ins-setup";
    // As the bundle starts it, but with the loader's own word on where it looks.
    const std::string line =
        "cd '" + tree.Path() + "' && " + setup + " kit new kit && B='" + programs + "' && " +
        GetParam() + " && " + setup +
        " kit bundle --kit kit -o it.run && ./it.run --extract t/kit && LD_DEBUG=libs "
        "LD_DEBUG_OUTPUT=\"$PWD/ld\" t/kit/ld-linux-x86-64.so.2 --inhibit-cache --library-path "
        "\"$PWD/t/kit\" t/kit/ins-setup --version > out 2>&1 && cat ld.* > trace";
    const int status = std::system(line.c_str()); // NOLINT(concurrency-mt-unsafe): one thread
    ASSERT_EQ(WEXITSTATUS(status), 0) << line;
    EXPECT_THAT(tree.Read("out"), HasSubstr("ins-setup "));
    const std::string trace = tree.Read("trace");
    EXPECT_THAT(trace, HasSubstr("libdplinsup.so.1"));
    EXPECT_THAT(trace, ::testing::Not(HasSubstr(tree.Path("t/lib"))));
    EXPECT_THAT(trace, ::testing::Not(HasSubstr("/../lib")));
    EXPECT_THAT(trace, ::testing::Not(HasSubstr("system search path")));
    EXPECT_THAT(trace, ::testing::Not(HasSubstr("ld.so.cache")));
    EXPECT_THAT(trace, ::testing::Not(HasSubstr("/lib/x86_64")));
}

INSTANTIATE_TEST_SUITE_P(
    Kits,
    BundleLibrariesTest,
    ::testing::Values(
        "true", // without a program of its own
        "cp \"$B/ins-setup\" \"$B/../lib/libins++.so.1\" \"$B/../lib/libdplinsup.so.1\" kit"
    )
);

/// What the caller's environment would have the loader take in is not taken in.
TEST(KitAuthorTest, ABundleLoadsNothingThatItsCallerNames) {
    KTEST::TemporaryTree tree;
    tree.Write("bad/libins++.so.1", "no library");
    const std::string setup =
        std::filesystem::canonical("/proc/self/exe").parent_path().string() + "/ins-setup";
    const std::string line =
        "cd '" + tree.Path() + "' && " + setup + " kit new kit > made && " + setup +
        " kit bundle --kit kit -o it.run > made && { LD_LIBRARY_PATH=\"$PWD/bad\" "
        "LD_PRELOAD=libbad.so "
        "LD_DEBUG=all GCONV_PATH=\"$PWD/bad\" OPENSSL_CONF=bad ./it.run --version; "
        "} > out 2>&1";
    const int status = std::system(line.c_str()); // NOLINT(concurrency-mt-unsafe): one thread
    EXPECT_EQ(WEXITSTATUS(status), 0) << tree.Read("out");
    const std::string out = tree.Read("out");
    EXPECT_THAT(out, ::testing::AllOf(HasSubstr("ins-setup 1."), ::testing::Not(HasSubstr("bad"))));
}

} // namespace
