// SPDX-License-Identifier: MIT
#include "../../../support/NameOfRow.h"

#include <setup/script/CommandWords.h>

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace {

struct CommandLine {
    const char* name;
    const char* command;
    const char* words; ///< each in "<>", with "!" behind one that the shell would fill in

    friend void PrintTo(const CommandLine& row, std::ostream* out) { *out << row.name; }
};

class CommandWordsTest : public ::testing::TestWithParam<CommandLine> {};

TEST_P(CommandWordsTest, AreThoseOfTheShell) {
    std::string words;
    for (const KSETUP::KCommandWord& word : KSETUP::WordsOf(GetParam().command)) {
        words += "<" + word.text + ">" + (word.isExpanded ? "!" : "");
    }
    EXPECT_EQ(words, GetParam().words);
}

constexpr CommandLine rows[] = {
    {"Empty", "", ""},
    {"Blanks", "  a \t b ", "<a><b>"},
    {"DoubleQuotes", "\"a b\" c", "<a b><c>"},
    {"SingleQuotes", "'a \"$x\" b'", "<a \"$x\" b>"},
    {"QuotesWithinAWord", "x\"a b\"'c'y", "<xa bcy>"},
    {"EmptyQuotes", "a '' b", "<a><><b>"},
    {"Escapes", "a\\ b \"c\\\"d\" 'e\\f'", "<a b><c\"d><e\\f>"},
    {"Commands", "a;b&&c|d>e", "<a><b><c><d><e>"},
    {"SeparatorsInQuotes", "'a;b'", "<a;b>"},
    {"Variable", "$a b", "<$a>!<b>"},
    {"VariableInQuotes", "\"$a\"", "<$a>!"},
    {"Output", "a`b`", "<a`b`>!"},
    {"Pattern", "a* 'b*'", "<a*>!<b*>"},
    {"QuoteThatStaysOpen", "a 'b c", "<a><b c>"},
    {"EscapeAtTheEnd", "a\\", "<a\\>"},
};

INSTANTIATE_TEST_SUITE_P(Commands, CommandWordsTest, ::testing::ValuesIn(rows), KTEST::NameOfRow());

} // namespace
