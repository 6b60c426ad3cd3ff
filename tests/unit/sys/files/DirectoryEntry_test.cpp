// SPDX-License-Identifier: MIT
#include "../../../faults/failcall.h"
#include "../../../support/NameOfRow.h"
#include "../../../support/TemporaryTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <new>
#include <ostream>
#include <string_view>
#include <vector>

#include <sys/files/DirectoryEntry.h>

namespace KTEST {
namespace {

using namespace KSYS;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

class DirectoryEntryTest : public ::testing::Test {
  protected:
    unsigned Open(const char* name) {
        struct stat status {};
        return OpenRegularEntry(tree.Path(name), O_RDONLY, file, status);
    }
    TemporaryTree tree;
    KDescriptor file;
};

TEST_F(DirectoryEntryTest, ANameInAnOpenDirectoryIsThatOfItsPath) {
    tree.Write("d/a", "1234");
    struct stat byName {};
    KDescriptor directory;
    ASSERT_EQ(OpenDirectoryEntry(tree.Path("d"), directory), 0U);
    ASSERT_EQ(ReadStatus({directory, "a"}, LastLink::Keep, byName), 0U);
    EXPECT_EQ(byName.st_ino, tree.Status("d/a").st_ino);
}

TEST_F(DirectoryEntryTest, TheStatusIsThatOfALinkOrOfWhereItLeads) {
    tree.Write("a", "1234");
    tree.Link("link", "a");
    struct stat status {};
    ASSERT_EQ(ReadStatus(tree.Path("link"), LastLink::Keep, status), 0U);
    EXPECT_TRUE(S_ISLNK(status.st_mode));
    ASSERT_EQ(ReadStatus(tree.Path("link"), LastLink::Follow, status), 0U);
    EXPECT_TRUE(S_ISREG(status.st_mode));
    EXPECT_EQ(ReadStatus(tree.Path("none"), LastLink::Keep, status), unsigned{ENOENT});
}

TEST_F(DirectoryEntryTest, ALinkTellsWhereItLeads) {
    tree.Link("link", "some/where");
    std::string target;
    EXPECT_EQ(ReadLink(tree.Path("link"), target), 0U);
    EXPECT_EQ(target, "some/where");
    EXPECT_EQ(ReadLink(tree.Path(), target), unsigned{EINVAL});
    EXPECT_EQ(target, "");
}

TEST_F(DirectoryEntryTest, OnlyARegularFileIsOpenedAsOne) {
    tree.Write("a", "");
    tree.Directory("d");
    tree.Fifo("queue"); // without a writer an open would wait
    tree.Link("link", "a");
    EXPECT_EQ(Open("d"), unsigned{EISDIR});
    EXPECT_EQ(Open("queue"), unsigned{EINVAL});
    EXPECT_EQ(Open("link"), unsigned{ELOOP});
    EXPECT_FALSE(file.IsOpen());
    EXPECT_EQ(Open("a"), 0U);
    EXPECT_TRUE(file.IsOpen());
}

TEST_F(DirectoryEntryTest, AFailedOpenLeavesNoDescriptorOfAFormerFile) {
    tree.Write("a", "");
    ASSERT_EQ(Open("a"), 0U);
    EXPECT_EQ(Open("none"), unsigned{ENOENT});
    EXPECT_FALSE(file.IsOpen());
}

TEST_F(DirectoryEntryTest, AFileIsMadeOnlyWhereNothingStands) {
    tree.Link("link", "elsewhere");
    EXPECT_EQ(MakeFile(tree.Path("link"), file), unsigned{EEXIST});
    EXPECT_FALSE(tree.Exists("elsewhere"));
    EXPECT_EQ(MakeFile(tree.Path("a"), file), 0U);
    EXPECT_THAT(tree.List(), ElementsAre("f 0600 a \"\"", "l link -> elsewhere"));
}

TEST_F(DirectoryEntryTest, AListingHasAllNamesButThoseOfTheDirectories) {
    tree.Write("d/a", "");
    tree.Directory("d/.b");
    tree.Link("d/c", "nowhere");
    std::vector<std::string> names;
    EXPECT_EQ(ListEntries(tree.Path("d"), names), 0U);
    EXPECT_THAT(names, UnorderedElementsAre("a", ".b", "c"));
}

TEST_F(DirectoryEntryTest, AListingDoesNotFollowALink) {
    tree.Write("d/a", "");
    tree.Link("link", "d");
    std::vector<std::string> names;
    EXPECT_NE(ListEntries(tree.Path("link"), names), 0U);
    EXPECT_THAT(names, IsEmpty());
}

TEST_F(DirectoryEntryTest, AListingThatBreaksOffIsToldOf) {
    tree.Write("d/a", "");
    std::vector<std::string> names;
    failcall_arm("readdir", 2, EIO, 1);
    const unsigned status = ListEntries(tree.Path("d"), names);
    failcall_disarm();
    EXPECT_EQ(status, unsigned{EIO});
}

TEST_F(DirectoryEntryTest, EntriesChangePlacesInOneStep) {
    tree.Write("one/a", "");
    tree.Write("other/b", "");
    KDescriptor directory;
    ASSERT_EQ(OpenDirectoryEntry(tree.Path(), directory), 0U);
    EXPECT_EQ(ExchangeEntries(directory.Get(), "one", "other"), 0U);
    EXPECT_TRUE(tree.Exists("other/a"));
    EXPECT_TRUE(tree.Exists("one/b"));
    EXPECT_EQ(ExchangeEntries(directory.Get(), "one", "none"), unsigned{ENOENT});
}

TEST_F(DirectoryEntryTest, AReplacedFileHasItsModeWhateverTheUmask) {
    tree.Write("a", "former");
    tree.Write("a.new", "left by a process that was killed");
    EXPECT_EQ(ReplaceEntry(AT_FDCWD, tree.Path("a.new"), tree.Path("a"), "text", 0666), 0U);
    EXPECT_THAT(tree.List(), ElementsAre("f 0666 a \"text\""));
}

TEST_F(DirectoryEntryTest, AFileIsReplacedPieceByPiece) {
    std::vector<std::string_view> left = {"", "three", "two", "one"};
    const auto next = [&] {
        const std::string_view piece = left.back();
        left.pop_back();
        return piece;
    };
    EXPECT_EQ(ReplaceEntry(AT_FDCWD, tree.Path("a.new"), tree.Path("a"), next, 0644), 0U);
    EXPECT_THAT(tree.List(), ElementsAre("f 0644 a \"onetwothree\""));
}

TEST_F(DirectoryEntryTest, NothingIsReplacedWhereAPieceCannotBeMade) {
    tree.Write("a", "former");
    unsigned count = 0;
    const auto next = [&]() -> std::string_view {
        if (++count == 2) {
            throw std::bad_alloc();
        }
        return "piece";
    };
    EXPECT_THROW(
        static_cast<void>(ReplaceEntry(AT_FDCWD, tree.Path("a.new"), tree.Path("a"), next, 0644)),
        std::bad_alloc
    );
    EXPECT_THAT(tree.List(), ElementsAre("f 0644 a \"former\""));
}

struct FailureRow {
    const char* name;
    const char* call;
    int error;
};

class ReplaceEntryFailureTest : public DirectoryEntryTest,
                                public ::testing::WithParamInterface<FailureRow> {};

TEST_P(ReplaceEntryFailureTest, KeepsTheFormerFileAndNothingBeside) {
    tree.Write("a", "former");
    failcall_arm(GetParam().call, 1, GetParam().error, 0);
    const unsigned status =
        ReplaceEntry(AT_FDCWD, tree.Path("a.new"), tree.Path("a"), "text", 0644);
    EXPECT_GT(failcall_disarm(), 0U);
    EXPECT_EQ(status, static_cast<unsigned>(GetParam().error));
    EXPECT_THAT(tree.List(), ElementsAre("f 0644 a \"former\""));
}

INSTANTIATE_TEST_SUITE_P(
    OfACall,
    ReplaceEntryFailureTest,
    ::testing::Values(
        FailureRow{"ThatOpens", "openat", EMFILE},
        FailureRow{"ThatWrites", "write", ENOSPC},
        FailureRow{"ThatSetsTheMode", "fchmod", EPERM},
        FailureRow{"ThatFlushes", "fsync", EIO},
        FailureRow{"ThatCloses", "close", EIO},
        FailureRow{"ThatRenames", "renameat", EACCES}
    ),
    NameOfRow()
);

} // namespace
} // namespace KTEST
