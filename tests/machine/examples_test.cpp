// SPDX-License-Identifier: MIT
//
// The small example programs, as their readers would run them: each installs its own kit.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include <sys/wait.h>

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;

struct Outcome {
    int exitCode;
    std::string text;
};

/// Runs an example with a kit; both outputs in one.
Outcome RunExample(const std::string& example, const std::string& kit) {
    const std::string program =
        std::filesystem::canonical("/proc/self/exe").parent_path().string() + "/" + example;
    FILE* output =
        ::popen((program + " " + kit + " 2>&1").c_str(), "r"); // NOLINT: no untrusted text
    std::string text;
    char buffer[4096];
    for (std::size_t got = 0; (got = std::fread(buffer, 1, sizeof(buffer), output)) > 0;) {
        text.append(buffer, got);
    }
    const int status = ::pclose(output);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text};
}
Outcome RunExample(const std::string& example) {
    return RunExample(example, INSPP_EXAMPLES "/" + example + "/kit");
}

std::string Read(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(ExamplesTest, TheEngineIsEmbeddedInTenLines) {
    const Outcome outcome = RunExample("embed");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.text;
    EXPECT_THAT(outcome.text, HasSubstr("Copying file hello\n"));
    EXPECT_TRUE(std::filesystem::exists("/opt/example-embed/lin/x86_64/hello"));
}

TEST(ExamplesTest, AnEmbeddedEngineReportsAKitThatIsNone) {
    EXPECT_EQ(RunExample("embed", "/nowhere").exitCode, 66);
}

TEST(ExamplesTest, AMailboxCarriesTheCallbackToAnotherThread) {
    const Outcome outcome = RunExample("mailbox");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.text;
    EXPECT_THAT(outcome.text, EndsWith("6 rules, reported on the engine's thread\n"));
    EXPECT_TRUE(std::filesystem::exists("/opt/example-mailbox/lin/x86_64/hello"));
}

TEST(ExamplesTest, ARuleTypeOfOnesOwnRunsAmongThoseOfTheScript) {
    const Outcome outcome = RunExample("own_rule");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.text;
    EXPECT_THAT(
        outcome.text, EndsWith("Writing /opt/example-own-rule/config/manifest.ini\n7 of 7 rules\n")
    );
    EXPECT_EQ(
        Read("/opt/example-own-rule/config/manifest.ini"),
        "[installed]\nwhat=Example own-rule 1.0\n"
    );
    EXPECT_THAT(
        Read("/opt/example-own-rule/config/example.ini"), HasSubstr("installedVersion=1.0\n")
    );
}

TEST(ExamplesTest, RulesOfAClassShareAStateInADerivedManager) {
    const Outcome outcome = RunExample("rule_state");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.text;
    EXPECT_EQ(
        Read("/opt/example-rule-state/config/modules.ini"), "[modules]\norder=core net-lin\n"
    );
}

} // namespace
