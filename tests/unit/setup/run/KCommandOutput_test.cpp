// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/run/KCommandOutput.h>
#include <sup++/SvcProcess.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class KCommandOutputTest : public ::testing::Test {
  protected:
    ~KCommandOutputTest() override { EXPECT_EQ(SvcSetCommandOutput(nullptr), 0U); }

    KTEST::TemporaryTree tree;
    const std::string file = tree.Path("Commands.txt");
    KSETUP::KCommandOutput output;
};

TEST_F(KCommandOutputTest, AFileThatCommandsWroteToIsFound) {
    output.Begin(file);
    EXPECT_EQ(output.FindWritten(), "");
    tree.Write("Commands.txt", "said\n");
    EXPECT_EQ(output.FindWritten(), file);
}

TEST_F(KCommandOutputTest, AFileOfAnEarlierRunIsNot) {
    tree.Write("Commands.txt", "said before\n");
    output.Begin(file);
    EXPECT_EQ(output.FindWritten(), "");
}

TEST_F(KCommandOutputTest, AFileThatWasEmptiedMeanwhileIsFoundOnceItIsWrittenTo) {
    tree.Write("Commands.txt", "said before\n");
    output.Begin(file);
    tree.Write("Commands.txt", "");
    EXPECT_EQ(output.FindWritten(), "");
    tree.Write("Commands.txt", "said\n");
    EXPECT_EQ(output.FindWritten(), file);
}

TEST_F(KCommandOutputTest, WhatARuleWroteIsToldWithoutWhatWasBefore) {
    tree.Write("Commands.txt", "said before\n");
    output.Begin(file);
    output.BeginRule();
    EXPECT_THAT(output.ReadRuleEnd(), IsEmpty());
    tree.Write("Commands.txt", "said before\nsaid\nand said");
    EXPECT_THAT(output.ReadRuleEnd(), ElementsAre("said", "and said"));
}

TEST_F(KCommandOutputTest, WhatARuleWroteIntoAFileThatWasEmptiedMeanwhileIsTold) {
    tree.Write("Commands.txt", "said before\n");
    output.Begin(file);
    output.BeginRule();
    tree.Write("Commands.txt", "said\n");
    EXPECT_THAT(output.ReadRuleEnd(), ElementsAre("said"));
}

TEST_F(KCommandOutputTest, OfManyLinesTheLastTenAreTold) {
    output.Begin(file);
    output.BeginRule();
    std::string text;
    for (int line = 1; line <= 1000; ++line) {
        text += std::to_string(line) + "\n";
    }
    tree.Write("Commands.txt", text);
    const std::vector<std::string> told = output.ReadRuleEnd();
    EXPECT_EQ(told.size(), 10U);
    EXPECT_EQ(told.front(), "991");
    EXPECT_EQ(told.back(), "1000");
}

TEST_F(KCommandOutputTest, OfLongLinesTwoKilobytesAreTold) {
    output.Begin(file);
    output.BeginRule();
    tree.Write("Commands.txt", std::string(5000, 'a') + "\n" + std::string(1000, 'b') + "\n");
    EXPECT_THAT(output.ReadRuleEnd(), ElementsAre(std::string(1000, 'b')));
    tree.Write("Commands.txt", std::string(5000, 'a') + "\n");
    EXPECT_THAT(output.ReadRuleEnd(), ElementsAre("…" + std::string(2047, 'a')));
    tree.Write("Commands.txt", std::string(5000, 'a'));
    EXPECT_THAT(output.ReadRuleEnd(), ElementsAre("…" + std::string(2048, 'a')));
}

TEST_F(KCommandOutputTest, WhatATerminalWouldShowInTheEndIsTold) {
    output.Begin(file);
    output.BeginRule();
    tree.Write(
        "Commands.txt", "\x1b[1;31mred\x1b[0m\tand\r\n10%\r20%\r\r\n\x1b[2K\x1b[\na\x1b]0;b\x07\n"
    );
    EXPECT_THAT(
        output.ReadRuleEnd(), ElementsAre("red and", "20%", "", std::string("a\x1b]0;b\x07"))
    );
}

} // namespace
