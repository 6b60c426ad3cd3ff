// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/files/KCopyDigests.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <deque>
#include <filesystem>

namespace {

using KSETUP::KCopyDigests;
using KSETUP::KDigests;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr const char* sumOfA = "559aead08264d5795d3909718cdd05abd49572e84fe55590eef31a88a08fdffd";
constexpr const char* sumOfB = "df7e70e5021544f4834bbee64a9e3789febc4be81470df629cad6ddb03320a5c";

class KCopyDigestsTest : public ::testing::Test {
  protected:
    KCopyDigestsTest() {
        tree.Write("kit/a", "A");
        tree.Write("kit/b", "B");
        tree.Write("opt/a", "A");
        tree.Write("opt/b", "B");
    }
    KSETUP::KCopy Copy(const std::string& name) {
        const std::string& source = paths.emplace_back(tree.Path("kit/" + name));
        return {source, paths.emplace_back(tree.Path("opt/" + name))};
    }
    void Tell(KCopyDigests& copies, const std::string& name) const {
        copies.Add(tree.Path("kit/" + name), tree.Path("opt/" + name));
    }
    KDigests Sealed() const { return {{tree.Path("kit/a"), {0, 1, sumOfA}}}; }
    std::string Kit() const { return tree.Path("kit"); }
    KTEST::TemporaryTree tree;
    std::deque<std::string> paths; // of copies
};

/// The source may have been another one while it was copied.
TEST_F(KCopyDigestsTest, AreOfWhatWasWrittenAndNotOfItsSource) {
    KCopyDigests copies({Copy("a"), Copy("b")}, {}, Kit());
    tree.Write("kit/b", "exchanged");
    Tell(copies, "a");
    Tell(copies, "b");
    const KSETUP::KKeptDigests digests = copies.Take();
    EXPECT_THAT(digests, SizeIs(2));
    EXPECT_EQ(digests.at(tree.Path("opt/a")).sha256, sumOfA);
    EXPECT_EQ(digests.at(tree.Path("opt/b")).sha256, sumOfB);
    EXPECT_EQ(digests.at(tree.Path("opt/b")).size, 1U);
}

TEST_F(KCopyDigestsTest, WhatIsKnownIsNotRead) {
    KCopyDigests copies({Copy("missing"), Copy("a")}, Sealed(), Kit());
    copies.Add(tree.Path("other/missing"), tree.Path("opt/missing"), {0, 7, sumOfB, 0640});
    copies.Add(tree.Path("kit/a"), tree.Path("opt/a"), {0, 1, sumOfA, 0600});
    EXPECT_THAT(copies.FindBroken(), IsEmpty());
    const KSETUP::KKeptDigests digests = copies.Take();
    EXPECT_EQ(digests.at(tree.Path("opt/missing")).sha256, sumOfB);
    EXPECT_EQ(digests.at(tree.Path("opt/missing")).size, 7U);
    EXPECT_EQ(digests.at(tree.Path("opt/missing")).mode, 0640U);
    EXPECT_EQ(digests.at(tree.Path("opt/a")).mode, 0600U);
}

TEST_F(KCopyDigestsTest, WhatIsKnownAndNotWhatWasSealedIsRead) {
    KCopyDigests copies({Copy("a")}, Sealed(), Kit());
    copies.Add(tree.Path("kit/a"), tree.Path("opt/a"), {0, 1, sumOfB, 0600});
    EXPECT_THAT(copies.FindBroken(), IsEmpty()); // as it is what was sealed
    EXPECT_EQ(copies.Take().at(tree.Path("opt/a")).sha256, sumOfA);
}

/// What stands there in the end is another file.
TEST_F(KCopyDigestsTest, WhatIsKnownOfACopyThatDoesNotLastIsForgotten) {
    KCopyDigests copies({Copy("a"), Copy("a")}, {}, Kit());
    copies.Add(tree.Path("kit/a"), tree.Path("opt/a"), {0, 1, sumOfB, 0600});
    EXPECT_THAT(copies.Take(), IsEmpty());
}

TEST_F(KCopyDigestsTest, WhatDoesNotLastIsNotKnown) {
    KCopyDigests copies({Copy("a"), Copy("a")}, {}, Kit()); // two copies to one target
    Tell(copies, "a");
    Tell(copies, "b"); // something else writes there, too
    EXPECT_THAT(copies.Take(), IsEmpty());
}

TEST_F(KCopyDigestsTest, WhatCannotBeReadIsNotKnown) {
    KCopyDigests copies({Copy("a"), Copy("missing")}, {}, Kit());
    Tell(copies, "missing");
    Tell(copies, "a");
    EXPECT_THAT(copies.Take(), SizeIs(1));
}

TEST_F(KCopyDigestsTest, WhoMayWriteBesideTheTargetEndsNoRun) {
    KCopyDigests copies({Copy("a")}, Sealed(), Kit());
    tree.Write("opt/a", "exchanged");
    Tell(copies, "a");
    EXPECT_THAT(copies.FindBroken(), SizeIs(1)); // where nobody else may write
    tree.SetMode("opt", 0777);
    Tell(copies, "a");
    EXPECT_THAT(copies.FindBroken(), IsEmpty());
    tree.Write("kit/a", "exchanged");
    Tell(copies, "a");
    EXPECT_THAT(copies.FindBroken(), SizeIs(1));
}

TEST_F(KCopyDigestsTest, ACopyOfASealedFileIsWhatWasSealed) {
    KCopyDigests copies({Copy("a")}, Sealed(), Kit());
    Tell(copies, "a");
    EXPECT_THAT(copies.FindBroken(), IsEmpty());
    EXPECT_EQ(copies.Take().at(tree.Path("opt/a")).sha256, sumOfA);
}

TEST_F(KCopyDigestsTest, ACopyThatIsNotWhatWasSealedIsFound) {
    for (const bool isLasting : {true, false}) {
        KCopyDigests copies(
            isLasting ? std::vector{Copy("a")} : std::vector<KSETUP::KCopy>(), Sealed(), Kit()
        );
        tree.Write("opt/a", "B"); // as from an exchanged source
        Tell(copies, "a");
        EXPECT_THAT(copies.FindBroken(), ElementsAre(tree.Path("opt/a"))) << isLasting;
        EXPECT_THAT(copies.FindBroken(), IsEmpty()) << "told once";
    }
}

TEST_F(KCopyDigestsTest, AFileOfASealedKitThatNobodyListedIsFound) {
    KCopyDigests copies({}, Sealed(), Kit());
    Tell(copies, "b");
    EXPECT_THAT(copies.FindBroken(), ElementsAre(tree.Path("opt/b")));
}

TEST_F(KCopyDigestsTest, AFileThatIsNotTheKitsIsNoneOfTheSeals) {
    KCopyDigests copies({}, Sealed(), Kit());
    tree.Write("beside", "B");
    copies.Add(tree.Path("beside"), tree.Path("opt/b"));
    EXPECT_THAT(copies.FindBroken(), IsEmpty());
}

/// The first one is another file by the time that a thread would come to it.
TEST_F(KCopyDigestsTest, TwoCopiesToOneTargetAreEachHeldAgainstTheSeal) {
    KDigests sealed = Sealed();
    sealed[tree.Path("kit/b")] = {0, 1, sumOfB};
    const std::string target = tree.Path("opt/a");
    KCopyDigests copies({Copy("a"), {tree.Path("kit/b"), target}}, sealed, Kit());
    Tell(copies, "a");
    tree.Write("opt/a", "B");
    copies.Add(tree.Path("kit/b"), target);
    EXPECT_THAT(copies.FindBroken(), IsEmpty());
}

TEST_F(KCopyDigestsTest, NothingIsFine) {
    EXPECT_THAT(KCopyDigests({}, {}, "/kit").Take(), SizeIs(0));
}

TEST_F(KCopyDigestsTest, DoNotHoldUpWhoGivesThemUp) {
    std::filesystem::resize_file(tree.Path("opt/a"), 1ULL << 40U); // sparse: minutes to read
    const auto start = std::chrono::steady_clock::now();
    {
        KCopyDigests copies({Copy("a")}, {}, Kit());
        Tell(copies, "a");
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

} // namespace
