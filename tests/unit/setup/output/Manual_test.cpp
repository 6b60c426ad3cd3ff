// SPDX-License-Identifier: MIT
//
// What "--help" tells, the manual page and the completion know too.
#include "../../../support/TemporaryTree.h"

#include <setup/output/KSetupArguments.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::string Slurp(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::string HelpOf(const std::string& command) {
    std::vector<std::string> words = {"ins-setup"};
    std::istringstream parts(command);
    words.insert(words.end(), std::istream_iterator<std::string>(parts), {});
    words.emplace_back("--help");
    std::vector<char*> arguments;
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    int exitCode = 1;
    ::testing::internal::CaptureStdout();
    KSETUP::ReadArguments(static_cast<int>(arguments.size()), arguments.data(), exitCode);
    return ::testing::internal::GetCapturedStdout();
}

/// The options of a command, as "--kit" and "-q".
std::set<std::string> OptionsOf(const std::string& command) {
    const std::string help = HelpOf(command);
    std::set<std::string> options;
    // At a line's begin: "  -q,--quiet", "  --kit DIR".
    const std::regex line("\n  (?:(-[a-zA-Z]),)?(--[a-zA-Z-]+)");
    for (std::sregex_iterator at(help.begin(), help.end(), line), end; at != end; ++at) {
        options.insert((*at)[2]);
        if ((*at)[1].matched) {
            options.insert((*at)[1]);
        }
    }
    return options;
}

/// The commands below one, as its help lists them.
std::vector<std::string> CommandsOf(const std::string& command) {
    const std::string help = HelpOf(command);
    std::vector<std::string> commands;
    const std::size_t begin = help.find("Subcommands:");
    if (begin == std::string::npos) {
        return commands;
    }
    std::istringstream lines(help.substr(begin));
    std::string line;
    std::getline(lines, line);
    while (std::getline(lines, line) && line.starts_with("  ")) {
        std::istringstream words(line);
        std::string name;
        words >> name;
        commands.push_back(command.empty() ? name : command + " " + name);
        for (const std::string& below : CommandsOf(commands.back())) {
            commands.push_back(below);
        }
    }
    return commands;
}

/// What the completion proposes behind these words.
std::set<std::string>
CompletionsOf(const std::string& words, const std::string& begun, const std::string& given = "") {
    const std::string script =
        given +
        "source '" INSPP_SOURCE "/setup/completion/ins-setup.bash'; COMP_WORDS=(ins-setup " +
        words + " \"" + begun +
        "\"); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _ins_setup; printf '%s\\n' "
        "\"${COMPREPLY[@]}\"";
    const std::unique_ptr<FILE, int (*)(FILE*)> shell(
        ::popen(
            ("bash -c '" + std::regex_replace(script, std::regex("'"), "'\\''") + "'").c_str(),
            "r"
        ), // NOLINT: bash is what completes
        &::pclose
    );
    std::set<std::string> found;
    std::array<char, 256> line{};
    while (std::fgets(line.data(), line.size(), shell.get()) != nullptr) {
        std::string text(line.data());
        text.erase(text.find_last_not_of('\n') + 1);
        if (!text.empty()) {
            found.insert(text);
        }
    }
    return found;
}

TEST(ManualTest, TheHelpListsCommandsAndOptions) {
    EXPECT_THAT(CommandsOf(""), ::testing::IsSupersetOf({"install", "plan remove", "kit bundle"}));
    EXPECT_THAT(OptionsOf("install"), ::testing::IsSupersetOf({"--kit", "-q", "--quiet", "-h"}));
}

TEST(ManualTest, ThePageHasEveryCommandAndOption) {
    const std::string page = Slurp(INSPP_SOURCE "/docs/man/ins-setup.8");
    std::vector<std::string> commands = CommandsOf("");
    for (const std::string& command : commands) {
        const bool isGroup = command == "plan" || command == "kit" || command == "kit key";
        if (!isGroup) { // told with what is below them
            EXPECT_TRUE(
                std::regex_search(
                    page, std::regex("\\.It Cm (plan install , )?" + command + "\n")
                ) ||
                page.find(".It Cm " + command + " ,") != std::string::npos
            ) << command;
        }
    }
    commands.emplace_back();
    for (const std::string& command : commands) {
        for (const std::string& option : OptionsOf(command)) {
            // "-- quiet" is written "Fl q , -quiet".
            const std::regex item("\\.It Fl (. , )?" + option.substr(1) + "( |\n)");
            EXPECT_TRUE(std::regex_search(page, item)) << command << " " << option;
        }
    }
}

TEST(ManualTest, TheCompletionKnowsEveryCommandAndItsOptionsAndNoOthers) {
    std::vector<std::string> commands = CommandsOf("");
    commands.emplace_back();
    for (const std::string& command : commands) {
        EXPECT_EQ(CompletionsOf(command, "-"), OptionsOf(command)) << command;
        const std::size_t blank = command.rfind(' ');
        const std::string above = blank == std::string::npos ? "" : command.substr(0, blank);
        const std::string last = blank == std::string::npos ? command : command.substr(blank + 1);
        if (!last.empty()) {
            EXPECT_THAT(CompletionsOf(above, last), ::testing::Contains(last));
        }
    }
}

TEST(ManualTest, TheCompletionOffersOptionsBehindOthers) {
    EXPECT_THAT(CompletionsOf("install --quiet", "--ba"), ::testing::ElementsAre("--backup"));
    EXPECT_THAT(CompletionsOf("kit bundle --kit /x", "--o"), ::testing::ElementsAre("--output"));
}

TEST(ManualTest, TheCompletionKnowsKitsAmongOtherDirectories) {
    KTEST::TemporaryTree tree;
    tree.Write("kit one/product.ini", "");
    tree.Write("other/readme", "");
    const std::string begun = tree.Path("") + "/";
    EXPECT_THAT(CompletionsOf("check --kit", begun), ::testing::ElementsAre(tree.Path("kit one")));
    EXPECT_THAT(
        CompletionsOf("check --kit", tree.Path("o")), ::testing::ElementsAre(tree.Path("other"))
    );
}

TEST(ManualTest, TheCompletionKnowsProducts) {
    KTEST::TemporaryTree tree;
    tree.Write("state/hello/manifest", "");
    tree.Write("state/help/manifest", "");
    const std::string given = "INSPP_STATE='" + tree.Path("state") + "'; ";
    EXPECT_THAT(CompletionsOf("remove", "hell", given), ::testing::ElementsAre("hello"));
    EXPECT_THAT(CompletionsOf("status", "he", given), ::testing::ElementsAre("hello", "help"));
}

TEST(ManualTest, EveryExitCodeOfTheHelpIsOnThePage) {
    const std::string help = HelpOf("");
    const std::string page = Slurp(INSPP_SOURCE "/docs/man/ins-setup.8");
    const std::size_t begin = help.find("Exit codes:");
    ASSERT_NE(begin, std::string::npos);
    const std::string codes = help.substr(begin, help.find("See ins-setup(8)") - begin);
    const std::regex number("(?:^|[ \n])([0-9]+)[ ,]");
    int count = 0;
    for (std::sregex_iterator at(codes.begin(), codes.end(), number), end; at != end; ++at) {
        const std::string code = (*at)[1];
        EXPECT_TRUE(std::regex_search(page, std::regex("\\.It ([0-9]+ , )*" + code + "( ,|\n)")))
            << code;
        ++count;
    }
    EXPECT_GE(count, 13);
}

} // namespace
