// SPDX-License-Identifier: MIT
//
// What docs/embedding.md promises to programs and no other test says.
#include "../../support/EngineRig.h"
#include "../../support/ErrorProbe.h"

#include <sup++/SvcDispatch.h>

#include <gmock/gmock.h>

#include <stdexcept>

namespace {

using KTEST::ArbitraryBytes;
using KTEST::ErrorOf;
using ::testing::ElementsAre;

class EmbeddingTest : public KTEST::EngineTest {
  protected:
    /// Runs the section [remove], which seeks no record; returns the code of what ended it.
    unsigned CodeOfRun() {
        Initialize();
        installer->StartUninstall(tree.Path("p"));
        try {
            WaitForEnd();
        } catch (const KSUP::KError& error) {
            return error.GetCode();
        }
        return 0;
    }
    void GivenThreeCopies() {
        for (const char* name : {"a", "b", "c"}) {
            tree.Write(std::string("kit/") + name, ArbitraryBytes(200000), 0755);
        }
        tree.Directory("to");
        GivenScript("[remove]\nfile=copy,a,@T@/kit,@T@/to\nfile=copy,b,@T@/kit,@T@/to\n"
                    "file=copy,c,@T@/kit,@T@/to\n");
    }
};

TEST_F(EmbeddingTest, ACallbackThatThrowsInACopyLeavesWhatWasWrittenWithModeZero600) {
    GivenThreeCopies();
    // b's second chunk: a has an opening status, four chunks and a closing one
    statuses.At(6 + 3, [] { throw std::runtime_error("of the callback"); });
    EXPECT_THROW(CodeOfRun(), std::runtime_error);
    EXPECT_EQ(tree.Mode("to/a"), 0755U);
    EXPECT_EQ(tree.Mode("to/b"), 0600U);
    EXPECT_EQ(tree.Read("to/b"), ArbitraryBytes(200000).substr(0, 131072));
    EXPECT_FALSE(tree.Exists("to/c"));
    EXPECT_EQ(installer->GetCompletedCount(), 1U);
}

TEST_F(EmbeddingTest, AnErrorOfTheCallbackIsTheRunsErrorUnchanged) {
    GivenScript("[remove]\ndirectory=delete,@T@/none\n");
    statuses.At(1, [] {
        KSUP::KError error(1, 4711, 0, 1, "mine", "Call", nullptr);
        throw error;
    });
    EXPECT_EQ(CodeOfRun(), 4711U);
}

TEST_F(EmbeddingTest, AStopFromTheCallbackTakesTheFileAwayThatIsBeingCopied) {
    GivenThreeCopies();
    statuses.At(6 + 3, [&] { installer->Stop(); });
    EXPECT_EQ(CodeOfRun(), 66U);
    EXPECT_THAT(tree.List("to"), ::testing::SizeIs(1));
    EXPECT_TRUE(tree.Exists("to/a"));
    EXPECT_EQ(installer->GetCompletedCount(), 2U); // the cancelled copy counts
}

TEST_F(EmbeddingTest, ARunIsNotStartedFromTheCallbackOfAnother) {
    GivenScript("[remove]\ndirectory=delete,@T@/none\n");
    unsigned code = 0;
    statuses.At(1, [&] {
        code = ErrorOf([&] { installer->StartUninstall(tree.Path("p")); }).GetCode();
    });
    EXPECT_EQ(CodeOfRun(), 0U);
    EXPECT_EQ(code, 36U);
}

TEST_F(EmbeddingTest, AStopBehindTheEndChangesNothing) {
    GivenScript("[remove]\ndirectory=create,@T@/made\n");
    EXPECT_EQ(CodeOfRun(), 0U);
    installer->Stop();
    EXPECT_TRUE(installer->IsComplete());
    EXPECT_TRUE(installer->IsCancelled());
}

TEST_F(EmbeddingTest, AStoppedInstallerDoesNoFurtherRun) {
    GivenScript("[remove]\ndirectory=create,@T@/made\n");
    installer->Stop();
    EXPECT_EQ(CodeOfRun(), 66U);
    installer->StartUninstall(tree.Path("p"));
    EXPECT_EQ(ErrorOf([&] { WaitForEnd(); }).GetCode(), 66U);
    EXPECT_FALSE(tree.Exists("made"));
}

TEST_F(EmbeddingTest, ASecondRunOfOneInstallerRepeatsTheRulesOfTheFirst) {
    GivenScript("[remove]\ndirectory=delete,@T@/none\n");
    EXPECT_EQ(CodeOfRun(), 0U);
    installer->StartUninstall(tree.Path("p"));
    WaitForEnd();
    EXPECT_EQ(installer->GetMaxCount(), 2U);
    EXPECT_EQ(installer->GetCompletedCount(), 3U);
}

} // namespace
