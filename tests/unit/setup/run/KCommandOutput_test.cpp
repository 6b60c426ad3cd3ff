// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/run/KCommandOutput.h>
#include <sup++/SvcProcess.h>

#include <gtest/gtest.h>

#include <string>

namespace {

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

} // namespace
