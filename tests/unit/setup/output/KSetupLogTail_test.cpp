// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/output/KSetupLogTail.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using KSETUP::KSetupLogTail;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class KSetupLogTailTest : public ::testing::Test {
  protected:
    KSetupLogTail Tail(const std::string& text) {
        tree.Write("log", text);
        return KSetupLogTail(tree.Path("log").c_str());
    }

    KTEST::TemporaryTree tree;
};

TEST_F(KSetupLogTailTest, TellsTheRuleThatRanLast) {
    const KSetupLogTail tail = Tail("M: Executing rule -> File copy a to b\t1\n"
                                    "M: Executing rule -> Create path /x\t2\nM: more\t3\n");
    EXPECT_EQ(tail.GetLastRule(), "Create path /x");
}

TEST_F(KSetupLogTailTest, LeavesOutTheTime) {
    EXPECT_THAT(Tail("one\t2026\ntwo\t2026\n").GetLast(5), ElementsAre("one", "two"));
}

TEST_F(KSetupLogTailTest, GivesNoMoreThanWasAskedFor) {
    EXPECT_THAT(Tail("a\t1\nb\t2\nc\t3\n").GetLast(2), ElementsAre("b", "c"));
}

TEST_F(KSetupLogTailTest, ForgetsTheRunsBefore) {
    const KSetupLogTail tail = Tail("M: Executing rule -> old\t1\n"
                                    "I: Loading install script /kit\t2\n");
    EXPECT_EQ(tail.GetLastRule(), "");
    EXPECT_THAT(tail.GetLast(5), ElementsAre("I: Loading install script /kit"));
}

TEST_F(KSetupLogTailTest, ReadsOnlyTheEndOfALongLog) {
    const KSetupLogTail tail = Tail(std::string(200000, 'x') + "\nlast\t1\n");
    EXPECT_THAT(tail.GetLast(5), ElementsAre("last"));
}

TEST_F(KSetupLogTailTest, AMissingLogIsEmpty) {
    EXPECT_THAT(KSetupLogTail(tree.Path("none").c_str()).GetLast(5), IsEmpty());
}

} // namespace
