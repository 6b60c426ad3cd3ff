// SPDX-License-Identifier: MIT
#include <setup/output/KSetupProgress.h>

#include <gtest/gtest.h>

namespace {

using KSETUP::KSetupProgress;

TEST(KSetupProgressTest, PrintableTextStaysAsItIs) {
    EXPECT_EQ(
        KSetupProgress::Printable("Copying file Größe.txt (43%)"), "Copying file Größe.txt (43%)"
    );
}

TEST(KSetupProgressTest, ControlCharactersAreNotShown) {
    EXPECT_EQ(KSetupProgress::Printable("a\nb\x1b[2Jc\x7f"), "a?b?[2Jc?");
}

TEST(KSetupProgressTest, ControlCharactersOfTwoBytesAreNotShown) {
    EXPECT_EQ(
        KSetupProgress::Printable("a\xC2\x9B"
                                  "b\xC2\xA0"),
        "a?b\xC2\xA0"
    );
}

TEST(KSetupProgressTest, BytesThatAreNoUtf8AreNotShown) {
    EXPECT_EQ(KSetupProgress::Printable("a\xFF\xC3"), "a??");
}

TEST(KSetupProgressTest, ARuleIsALineWithItsNumber) {
    ::testing::internal::CaptureStdout();
    KSetupProgress progress;
    progress.WriteLine(1, 3, "first");
    progress.WriteLine(3, 3, "third\n");
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "[1/3] first\n[3/3] third?\n");
}

TEST(KSetupProgressTest, NothingIsDrawnWhereThereIsNoTerminal) {
    ::testing::internal::CaptureStdout();
    KSetupProgress progress;
    progress.Draw(1, 3, "status", true);
    progress.Finish();
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
}

} // namespace
