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

std::string Programs() {
    return std::filesystem::canonical("/proc/self/exe").parent_path().string();
}

/// Runs a command; both outputs in one.
Outcome RunCommand(const std::string& command) {
    FILE* output = ::popen((command + " 2>&1").c_str(), "r"); // NOLINT: no untrusted text
    std::string text;
    char buffer[4096];
    for (std::size_t got = 0; (got = std::fread(buffer, 1, sizeof(buffer), output)) > 0;) {
        text.append(buffer, got);
    }
    const int status = ::pclose(output);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text};
}

/// Runs an example with a kit.
Outcome RunExample(const std::string& example, const std::string& kit) {
    return RunCommand(Programs() + "/" + example + " " + kit);
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

/// Runs the example in Python, which finds the library by the loader's own path.
Outcome RunPython(const std::string& arguments) {
    return RunCommand(
        "LD_LIBRARY_PATH=" + Programs() + "/../lib python3 " INSPP_EXAMPLES "/python/install.py " +
        arguments
    );
}

TEST(ExamplesTest, AnotherLanguageInstallsAndRemovesByTheFunctionsOfC) {
    const Outcome installed = RunPython(INSPP_EXAMPLES "/python/kit");
    EXPECT_EQ(installed.exitCode, 0) << installed.text;
    EXPECT_THAT(installed.text, HasSubstr("\nCopying file /opt/example-python/lin/"));
    EXPECT_THAT(installed.text, EndsWith(" rules done\n"));
    EXPECT_TRUE(std::filesystem::exists("/opt/example-python/lin/x86_64/hello"));
    const Outcome removed = RunPython(INSPP_EXAMPLES "/python/kit remove");
    EXPECT_EQ(removed.exitCode, 0) << removed.text;
    EXPECT_FALSE(std::filesystem::exists("/opt/example-python/lin/x86_64/hello"));
    const Outcome again = RunPython(INSPP_EXAMPLES "/python/kit remove");
    EXPECT_EQ(again.exitCode, 1) << again.text;
    EXPECT_THAT(again.text, HasSubstr("Error 64 ("));
    EXPECT_EQ(RunPython("/nowhere").exitCode, 66);
}

TEST(ExamplesTest, AMailboxCarriesTheCallbackToAnotherThread) {
    const Outcome outcome = RunExample("mailbox");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.text;
    EXPECT_THAT(outcome.text, EndsWith("6 rules, reported on the engine's thread\n"));
    EXPECT_TRUE(std::filesystem::exists("/opt/example-mailbox/lin/x86_64/hello"));
}

TEST(ExamplesTest, AListenerKnowsWhatTheRunLeftOnTheDisk) {
    const Outcome outcome = RunExample("changes");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.text;
    EXPECT_EQ(
        outcome.text,
        "/etc/example-changes\n"
        "/etc/example-changes/example-changes\n"
        "/opt/example-changes\n"
        "/opt/example-changes/config\n"
        "/opt/example-changes/config/example.ini\n"
        "/opt/example-changes/lin\n"
        "/opt/example-changes/lin/x86_64\n"
        "/opt/example-changes/lin/x86_64/hello\n"
    );
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
