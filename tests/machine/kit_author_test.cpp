// SPDX-License-Identifier: MIT
//
// A new author's way, as docs/kit-author.md tells it: the page is what is run.
#include "../support/TemporaryTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <sys/wait.h>

namespace {

using ::testing::HasSubstr;

struct Step {
    unsigned line;
    std::string command;
    int answers = 0;
    std::vector<std::string> shown; ///< parts of what it prints
};

/// The commands of a page: indented lines that begin with "$ ", below them what they print. A comment
/// "# answers N" is the exit code of one that does not answer 0.
std::vector<Step> ReadPage(const std::string& path) {
    std::ifstream page(path);
    std::vector<Step> steps;
    std::string text;
    bool isOutput = false; // not the lines of a script, which prose comes before
    for (unsigned number = 1; std::getline(page, text); ++number) {
        if (text.starts_with("    $ ")) {
            Step step{number, text.substr(6), 0, {}};
            const std::size_t answers = step.command.find(" # answers ");
            if (answers != std::string::npos) {
                step.answers = std::stoi(step.command.substr(answers + 11));
            }
            steps.push_back(step);
            isOutput = true;
        } else if (text.starts_with("    ") && isOutput) {
            steps.back().shown.push_back(text.substr(4));
        } else if (!text.empty()) {
            isOutput = false;
        }
    }
    return steps;
}

TEST(KitAuthorTest, EveryCommandOfThePageDoesWhatThePageSays) {
    KTEST::TemporaryTree tree;
    tree.Directory("work");
    const std::string programs =
        std::filesystem::canonical("/proc/self/exe").parent_path().string();
    ::setenv("PATH", (programs + ":" + std::getenv("PATH")).c_str(), 1); // NOLINT: one thread
    const std::vector<Step> steps = ReadPage(INSPP_SOURCE "/docs/kit-author.md");
    ASSERT_GT(steps.size(), 20U);
    for (const Step& step : steps) {
        SCOPED_TRACE("docs/kit-author.md:" + std::to_string(step.line) + ": " + step.command);
        // A file of its own: no quoting of the page's commands by the test.
        tree.Write("step", step.command + "\n");
        const std::string line = "cd '" + tree.Path("work") +
                                 "' && sh ../step > ../out 2>&1 < "
                                 "/dev/null";
        const int status = std::system(line.c_str()); // NOLINT: what authors do
        const std::string out = tree.Read("out");
        ASSERT_EQ(WEXITSTATUS(status), step.answers) << out;
        for (const std::string& part : step.shown) {
            ASSERT_THAT(out, HasSubstr(part));
        }
    }
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
