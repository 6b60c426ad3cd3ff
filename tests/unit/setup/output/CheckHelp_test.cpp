// SPDX-License-Identifier: MIT
#include <setup/output/CheckHelp.h>

#include <gtest/gtest.h>

namespace {

using KSETUP::KCheckHelp;
using KSETUP::ReadCheckHelp;

TEST(CheckHelpTest, ARowOfThePageIsAFinding) {
    const std::vector<KCheckHelp> all =
        ReadCheckHelp("# Page\n## Errors\n\n| Rule | Found when | Example | Instead |\n| --- | --- "
                      "| --- | --- |\n"
                      "| `empty-field` | a field with nothing | `file=a,,b` | fill it |\n"
                      "| `no-file` | nothing is there | | `profile=put` |\n"
                      "## Warnings\n| `secret` | a password | `k=v`, not `v` | leave it out |\n");
    ASSERT_EQ(all.size(), 3U);
    EXPECT_EQ(all[0].name, "empty-field");
    EXPECT_TRUE(all[0].isError);
    EXPECT_EQ(all[0].found, "a field with nothing");
    EXPECT_EQ(all[0].example, "file=a,,b");
    EXPECT_EQ(all[0].instead, "fill it");
    EXPECT_EQ(all[1].example, "");
    EXPECT_EQ(all[1].instead, "profile=put");
    EXPECT_FALSE(all[2].isError);
}

TEST(CheckHelpTest, EveryRowOfTheRealPageIsRead) {
    const std::string_view page = KSETUP::GetCheckPage();
    std::size_t rows = 0;
    for (std::size_t at = 0; (at = page.find("\n| `", at)) != std::string_view::npos; ++at) {
        ++rows;
    }
    const std::vector<KCheckHelp> all = ReadCheckHelp(page);
    EXPECT_EQ(all.size(), rows);
    EXPECT_GE(all.size(), 50U);
    for (const KCheckHelp& one : all) {
        EXPECT_FALSE(one.found.empty() || one.instead.empty()) << one.name;
    }
}

TEST(CheckHelpTest, IsWrittenForATerminalOfEightyColumns) {
    for (const KCheckHelp& one : ReadCheckHelp(KSETUP::GetCheckPage())) {
        const std::string text = ToText(one);
        for (std::size_t at = 0; at < text.size(); at = text.find('\n', at) + 1) {
            const std::string line = text.substr(at, text.find('\n', at) - at);
            EXPECT_TRUE(line.size() < 80 || line.find_last_of(' ') <= 12) << line;
        }
    }
}

TEST(CheckHelpTest, AWarningSaysHowItIsSilenced) {
    EXPECT_EQ(
        ToText(KCheckHelp{"secret", false, "a password", "k=v", "leave it out"}),
        "secret (warning)\n\n"
        "Found when  a password\n"
        "Example     k=v\n"
        "Instead     leave it out\n\n"
        "A comment in the line before silences it where it is meant so:\n"
        "    ; check: allow secret\n"
    );
}

} // namespace
