// SPDX-License-Identifier: MIT
#include "../../../faults/failcall.h"
#include "../../../support/TemporaryTree.h"

#include <setup/ExitCode.h>
#include <setup/state/KPrivateDirectory.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>

#include <fcntl.h>

namespace {

using KSETUP::KPrivateDirectory;
using KSETUP::KSetupFailure;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;

class KPrivateDirectoryTest : public ::testing::Test {
  protected:
    KPrivateDirectory Open(const std::string& name = "dps") { return {tree.Path("base"), name}; }

    /// What opening says, with the exit code in front; empty when it opens.
    std::string Refusal(const std::string& name = "dps") {
        try {
            Open(name);
        } catch (const KSetupFailure& failure) {
            return std::to_string(failure.GetExitCode()) + " " + failure.what();
        }
        return "";
    }

    KTEST::TemporaryTree tree;
};

TEST_F(KPrivateDirectoryTest, IsMadeForItsOwnerOnly) {
    Open().WriteDurably("state", "bytes");
    EXPECT_THAT(
        tree.List(),
        ElementsAre("d 0700 base", "d 0700 base/dps", "f 0600 base/dps/state \"bytes\"")
    );
}

TEST_F(KPrivateDirectoryTest, ADirectoryThatIsNotThereIsNothing) {
    EXPECT_FALSE(KPrivateDirectory::OpenExisting(tree.Path("base"), "dps").has_value());
    tree.Directory("base");
    EXPECT_FALSE(KPrivateDirectory::OpenExisting(tree.Path("base"), "dps").has_value());
}

TEST_F(KPrivateDirectoryTest, OneThatOthersMayWriteIsRefused) {
    tree.Directory("base/dps", 0770);
    EXPECT_THAT(Refusal(), HasSubstr("73 " + tree.Path("base/dps") + " is not root's alone"));
}

TEST_F(KPrivateDirectoryTest, OneThatAnotherUserOwnsIsRefused) {
    tree.Directory("base");
    tree.SetOwner("base", 65534, 0);
    EXPECT_THAT(Refusal(), HasSubstr("73 " + tree.Path("base") + " is not root's alone"));
}

TEST_F(KPrivateDirectoryTest, ALinkIsRefused) {
    tree.Directory("elsewhere", 0700);
    tree.Link("base/dps", tree.Path("elsewhere"));
    EXPECT_THAT(Refusal(), HasSubstr("73 cannot open the directory " + tree.Path("base/dps")));
}

TEST_F(KPrivateDirectoryTest, OnlyWhatIsNoDirectoryIsToBeDeleted) {
    tree.Write("base/dps", "no directory");
    tree.SetMode("base", 0700);
    EXPECT_THAT(Refusal(), HasSubstr(": Not a directory. Delete what stands there."));
    tree.Remove("base/dps");
    tree.Link("base/dps", "elsewhere");
    EXPECT_THAT(Refusal(), HasSubstr("Delete what stands there."));
}

class OpeningFailsTest : public KPrivateDirectoryTest, public ::testing::WithParamInterface<int> {};

TEST_P(OpeningFailsTest, ItsAdviceDeletesNothing) {
    tree.Directory("base/dps", 0700);
    tree.SetMode("base", 0700);
    failcall_arm("openat", 1, GetParam(), 0);
    const std::string refusal = Refusal();
    failcall_disarm();
    EXPECT_THAT(refusal, HasSubstr("73 cannot open the directory " + tree.Path("base") + ": "));
    EXPECT_THAT(refusal, EndsWith(". Fix the cause and run it again."));
}

INSTANTIATE_TEST_SUITE_P(
    Errors, OpeningFailsTest, ::testing::Values(EMFILE, ENFILE, ENOMEM, EIO, EACCES)
);

TEST_F(KPrivateDirectoryTest, RoomIsToBeMadeOnlyWhereItLacks) {
    failcall_arm("write", 1, ENOSPC, 0);
    std::string words;
    try {
        Open().WriteDurably("state", "new");
    } catch (const KSetupFailure& failure) {
        words = failure.what();
    }
    failcall_disarm();
    EXPECT_THAT(words, EndsWith("No space left on device. Make room there and run it again."));
}

class UnfitNameTest : public KPrivateDirectoryTest,
                      public ::testing::WithParamInterface<const char*> {};

TEST_P(UnfitNameTest, IsRefused) {
    EXPECT_THAT(Refusal(GetParam()), HasSubstr("65 \"" + std::string(GetParam()) + "\" cannot be"));
}

INSTANTIATE_TEST_SUITE_P(Names, UnfitNameTest, ::testing::Values("", ".", "..", "a/b", "/etc"));

TEST_F(KPrivateDirectoryTest, WritingReplacesWhatACrashLeftHalfDone) {
    tree.Write("base/dps/state.new", "half", 0600);
    tree.Write("base/dps/state", "former", 0600);
    tree.SetMode("base", 0700);
    Open().WriteDurably("state", "new");
    EXPECT_EQ(Open().Read("state"), "new");
    EXPECT_FALSE(tree.Exists("base/dps/state.new"));
}

TEST_F(KPrivateDirectoryTest, AFailedWriteKeepsTheFormerFile) {
    tree.Directory("base/dps/state", 0700); // a rename cannot replace a directory
    tree.Write("base/dps/state/inside", "former");
    EXPECT_THROW(Open().WriteDurably("state", "new"), KSetupFailure);
    EXPECT_EQ(tree.Read("base/dps/state/inside"), "former");
    EXPECT_FALSE(tree.Exists("base/dps/state.new"));
}

TEST_F(KPrivateDirectoryTest, AMissingFileIsNothing) {
    EXPECT_EQ(Open().Read("state"), std::nullopt);
    EXPECT_NO_THROW(Open().Delete("state"));
}

TEST_F(KPrivateDirectoryTest, AFirstLineEndsAtItsLineFeed) {
    const std::string longer(5000, 'x');
    EXPECT_EQ(Open().ReadFirstLine("state"), std::nullopt);
    for (const std::string& line : {std::string(), std::string("head"), longer}) {
        Open().WriteDurably("state", line + "\n" + longer + "\n");
        EXPECT_EQ(Open().ReadFirstLine("state"), line);
    }
    Open().WriteDurably("state", std::string_view("no end"));
    EXPECT_EQ(Open().ReadFirstLine("state"), "no end");
    Open().WriteDurably("state", std::string(std::size_t{1} << 20U, 'x'));
    EXPECT_EQ(Open().ReadFirstLine("state")->size(), std::size_t{64} << 10U);
}

TEST_F(KPrivateDirectoryTest, AFileThatOthersMayWriteIsNotRead) {
    tree.Write("base/dps/state", "bytes", 0622);
    EXPECT_THROW(Open().Read("state"), KSetupFailure);
}

TEST_F(KPrivateDirectoryTest, ALinkInsteadOfAFileIsNotRead) {
    tree.Write("secret", "bytes", 0600);
    tree.Link("base/dps/state", tree.Path("secret"));
    EXPECT_THROW(Open().Read("state"), KSetupFailure);
}

TEST_F(KPrivateDirectoryTest, AQueueInsteadOfAFileHoldsNothingUp) {
    tree.Directory("base/dps", 0700);
    tree.Fifo("base/dps/state", 0600);
    EXPECT_THROW(Open().Read("state"), KSetupFailure);
}

TEST_F(KPrivateDirectoryTest, ADirectoryGoesWithItsFiles) {
    tree.Write("base/dps/backup/one", "1");
    tree.Write("base/dps/backup/two", "2");
    Open().DeleteDirectory("backup");
    EXPECT_THAT(tree.List("base/dps"), ElementsAre());
    EXPECT_NO_THROW(Open().DeleteDirectory("backup"));
}

} // namespace
