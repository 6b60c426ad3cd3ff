// SPDX-License-Identifier: MIT
#include "../../support/NameOfRow.h"
#include "../../support/TemporaryTree.h"
#include "Common.h"

#include <sup++/KFile.h>
#include <sup++/KFileUtil.h>
#include <sup++/SvcFile.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include <fcntl.h>
#include <unistd.h>

namespace KTEST {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SvcFileTest : public testing::Test {
  protected:
    unsigned Create(const std::string& relative, unsigned withParents = 1) {
        return SvcCreateDirectory(0, tree.Path(relative).c_str(), withParents);
    }
    unsigned DeleteDirectory(const std::string& relative) {
        return SvcDeleteDirectory(0, tree.Path(relative).c_str(), 0);
    }
    unsigned DeleteFile(const std::string& relative) {
        return SvcDeleteFile(0, tree.Path(relative).c_str());
    }

    TemporaryTree tree;
};

// Making directories

TEST_F(SvcFileTest, MakesADirectory) {
    EXPECT_EQ(Create("a", 0), 0U);
    EXPECT_THAT(tree.List(), ElementsAre("d 0755 a"));
}

TEST_F(SvcFileTest, MakesMissingParentsWhenAsked) {
    EXPECT_EQ(Create("a/b/c", 1), 0U);
    EXPECT_THAT(tree.List(), ElementsAre("d 0755 a", "d 0755 a/b", "d 0755 a/b/c"));
}

TEST_F(SvcFileTest, AMissingParentIsAnErrorOtherwise) {
    EXPECT_EQ(Create("a/b", 0), unsigned{ENOENT});
    EXPECT_THAT(tree.List(), IsEmpty());
}

TEST_F(SvcFileTest, DirectoriesHaveTheirModeWhateverTheUmask) {
    {
        const UmaskGuard mask(077);
        EXPECT_EQ(Create("closed/a"), 0U);
    }
    const UmaskGuard mask(0);
    EXPECT_EQ(Create("open/a"), 0U);
    EXPECT_THAT(
        tree.List(), ElementsAre("d 0755 closed", "d 0755 closed/a", "d 0755 open", "d 0755 open/a")
    );
}

TEST_F(SvcFileTest, ADirectoryThatIsThereIsSuccessAndStaysAsItIs) {
    tree.Write("a/b/file", "x");
    tree.SetMode("a/b", 0700);
    EXPECT_EQ(Create("a/b", 1), 0U);
    EXPECT_EQ(Create("a/b", 0), 0U);
    EXPECT_EQ(tree.Mode("a/b"), 0700U);
    EXPECT_EQ(tree.Read("a/b/file"), "x");
}

TEST_F(SvcFileTest, SeparatorsAtTheEndAndInRowsAreTaken) {
    EXPECT_EQ(Create("a//b/", 1), 0U);
    EXPECT_EQ(Create("a/b/", 1), 0U);
    EXPECT_THAT(tree.List(), ElementsAre("d 0755 a", "d 0755 a/b"));
}

TEST_F(SvcFileTest, TheRootDirectoryIsThere) {
    EXPECT_EQ(SvcCreateDirectory(0, "/", 1), 0U);
}

TEST_F(SvcFileTest, AFileThatIsThereIsAnError) {
    tree.Write("a", "x");
    EXPECT_NE(Create("a", 1), 0U);
    EXPECT_EQ(Create("a/b", 1), unsigned{ENOTDIR});
    EXPECT_THAT(tree.List(), ElementsAre(R"(f 0644 a "x")"));
}

TEST_F(SvcFileTest, ADirectoryWithoutPermissionIsAnError) {
    tree.Directory("closed", 0555);
    GiveToNobody(tree, "closed");
    unsigned status = 0;
    AsNobody([&] { status = Create("closed/a/b"); });
    EXPECT_EQ(status, unsigned{EACCES});
}

TEST_F(SvcFileTest, NamesOfDirectoriesAreTakenByteForByte) {
    const std::string longest(255, 'n');
    EXPECT_EQ(Create(longest + "/line\nline/\xff"), 0U);
    EXPECT_TRUE(tree.Exists(longest + "/line\nline/\xff"));
    EXPECT_EQ(Create(longest + "n"), unsigned{ENAMETOOLONG});
}

TEST_F(SvcFileTest, ALinkToADirectoryIsNotFollowedWhereItIsNotTrusted) {
    tree.Directory("real");
    tree.Directory("open", 0777);
    tree.Link("open/dir", "../real");
    EXPECT_EQ(Create("open/dir/new", 1), unsigned{ELOOP});
    EXPECT_THAT(tree.List("real"), IsEmpty());
}

TEST_F(SvcFileTest, ATrustedLinkToADirectoryIsFollowed) {
    SKIP_UNLESS_ROOT("lay a link that is trusted");
    tree.Directory("real");
    tree.Link("dir", "real");
    EXPECT_EQ(Create("dir/new/deeper", 1), 0U);
    EXPECT_EQ(Create("dir", 1), 0U) << "it is there";
    EXPECT_THAT(tree.List("real"), ElementsAre("d 0755 new", "d 0755 new/deeper"));
}

// Deleting directories

TEST_F(SvcFileTest, RemovesAnEmptyDirectory) {
    tree.Directory("a/b");
    EXPECT_EQ(DeleteDirectory("a/b"), 0U);
    EXPECT_THAT(tree.List(), ElementsAre("d 0755 a"));
}

TEST_F(SvcFileTest, NeverRemovesWhatADirectoryHolds) {
    tree.Write("a/.hidden", "x");
    EXPECT_EQ(DeleteDirectory("a"), unsigned{ENOTEMPTY});
    EXPECT_THAT(tree.List(), ElementsAre("d 0755 a", R"(f 0644 a/.hidden "x")"));
}

TEST_F(SvcFileTest, AMissingDirectoryIsAnErrorWhenRemoved) {
    EXPECT_EQ(DeleteDirectory("a"), unsigned{ENOENT});
    EXPECT_EQ(DeleteDirectory("a/b"), unsigned{ENOENT});
}

TEST_F(SvcFileTest, AFileIsNoDirectoryToRemove) {
    tree.Write("a", "x");
    EXPECT_EQ(DeleteDirectory("a"), unsigned{ENOTDIR});
    EXPECT_TRUE(tree.Exists("a"));
}

TEST_F(SvcFileTest, RemovesNoDirectoryBehindAnUntrustedLink) {
    tree.Directory("real/empty");
    tree.Directory("open", 0777);
    tree.Link("open/dir", "../real");
    EXPECT_EQ(DeleteDirectory("open/dir/empty"), unsigned{ELOOP});
    EXPECT_TRUE(tree.Exists("real/empty"));
}

// Deleting files

TEST_F(SvcFileTest, DeletesFilesAndLinks) {
    tree.Write("file", "x");
    tree.Write("kept", "x");
    tree.Link("link", "kept");
    tree.Fifo("queue");
    EXPECT_EQ(DeleteFile("file"), 0U);
    EXPECT_EQ(DeleteFile("link"), 0U);
    EXPECT_EQ(DeleteFile("queue"), 0U);
    EXPECT_THAT(tree.List(), ElementsAre(R"(f 0644 kept "x")"));
}

TEST_F(SvcFileTest, AFileThatIsGoneIsSuccess) {
    EXPECT_EQ(DeleteFile("missing"), 0U);
    EXPECT_EQ(DeleteFile("no/such/directory"), 0U);
}

TEST_F(SvcFileTest, NeverDeletesADirectoryAsAFile) {
    tree.Directory("empty");
    EXPECT_NE(DeleteFile("empty"), 0U);
    EXPECT_NE(DeleteFile("empty/"), 0U);
    EXPECT_THAT(tree.List(), ElementsAre("d 0755 empty"));
}

TEST_F(SvcFileTest, AFileThatMayNotBeDeletedIsAnError) {
    tree.Write("closed/file", "x");
    tree.SetMode("closed", 0555);
    GiveToNobody(tree, "closed");
    unsigned status = 0;
    AsNobody([&] { status = DeleteFile("closed/file"); });
    EXPECT_EQ(status, unsigned{EACCES});
    EXPECT_TRUE(tree.Exists("closed/file"));
}

TEST_F(SvcFileTest, DeletesNothingBehindAnUntrustedLink) {
    tree.Write("real/file", "x");
    tree.Directory("open", 0777);
    tree.Link("open/dir", "../real");
    EXPECT_EQ(DeleteFile("open/dir/file"), unsigned{ELOOP});
    EXPECT_TRUE(tree.Exists("real/file"));
}

// Arguments

TEST_F(SvcFileTest, ArgumentsThatCannotBeAreRefused) {
    tree.Directory("empty");
    tree.Write("file", "x");
    const std::string directory = tree.Path("empty");
    const std::string file = tree.Path("file");
    const std::vector<std::string> before = tree.List();
    EXPECT_EQ(SvcCreateDirectory(1, tree.Path("new").c_str(), 1), 36U);
    EXPECT_EQ(SvcCreateDirectory(0, nullptr, 1), 36U);
    EXPECT_EQ(SvcDeleteDirectory(1, directory.c_str(), 0), 36U);
    EXPECT_EQ(SvcDeleteDirectory(0, directory.c_str(), 1), 36U);
    EXPECT_EQ(SvcDeleteDirectory(0, nullptr, 0), 36U);
    EXPECT_EQ(SvcDeleteFile(1, file.c_str()), 36U);
    EXPECT_EQ(SvcDeleteFile(0, nullptr), 36U);
    EXPECT_EQ(tree.List(), before);
}

TEST_F(SvcFileTest, AnEmptyPathIsAnError) {
    EXPECT_NE(SvcCreateDirectory(0, "", 1), 0U);
    EXPECT_NE(SvcDeleteDirectory(0, "", 0), 0U);
}

TEST_F(SvcFileTest, LeavesNoDescriptor) {
    tree.Write("file", "x");
    const std::vector<int> before = OpenDescriptors();
    EXPECT_EQ(Create("a/b/c"), 0U);
    EXPECT_NE(Create("file/b/c"), 0U);
    EXPECT_EQ(DeleteDirectory("a/b/c"), 0U);
    EXPECT_NE(DeleteDirectory("a"), 0U);
    EXPECT_EQ(DeleteFile("file"), 0U);
    EXPECT_NE(DeleteFile("a"), 0U);
    EXPECT_EQ(OpenDescriptors(), before);
}

// Write tracking

class SvcWriteTrackingTest : public SvcFileTest {
  protected:
    SvcWriteTrackingTest() : before(OpenDescriptors()) { EXPECT_EQ(SvcBeginWriteTracking(), 0U); }
    ~SvcWriteTrackingTest() override {
        SvcEndWriteTracking();
        EXPECT_EQ(OpenDescriptors(), before);
    }
    std::size_t Directories() const { return OpenDescriptors().size() - before.size(); }

    std::vector<int> before;
};

TEST_F(SvcFileTest, FlushingWithoutTrackingDoesNothing) {
    EXPECT_EQ(SvcFlushWrites(), 0U);
    EXPECT_EQ(SvcEndWriteTracking(), 0U);
}

TEST_F(SvcWriteTrackingTest, IsOnOnce) {
    EXPECT_EQ(SvcBeginWriteTracking(), unsigned{EBUSY});
    EXPECT_EQ(SvcEndWriteTracking(), 0U);
    EXPECT_EQ(SvcBeginWriteTracking(), 0U);
}

TEST_F(SvcWriteTrackingTest, KeepsNothingOpenWhileNothingIsWritten) {
    tree.Write("file", "x");
    {
        KSUP::KFile source;
        source.OpenForRead(tree.Path("file"));
    }
    EXPECT_EQ(Directories(), 0U);
    EXPECT_EQ(SvcFlushWrites(), 0U);
}

TEST_F(SvcWriteTrackingTest, KeepsOneDirectoryOpenForAFileSystem) {
    for (const char* name : {"a", "b", "a/c"}) {
        EXPECT_EQ(Create(name), 0U);
        KSUP::KFile file;
        file.Create(tree.Path(std::string(name) + "/file"));
    }
    EXPECT_EQ(Directories(), 1U);
    EXPECT_EQ(SvcFlushWrites(), 0U);
    EXPECT_EQ(SvcEndWriteTracking(), 0U);
    EXPECT_EQ(Directories(), 0U);
}

TEST_F(SvcFileTest, WhatWasOpenBeforeIsNotTrackedWithoutTracking) {
    const std::vector<int> descriptors = OpenDescriptors();
    EXPECT_EQ(SvcTrackWritesSince(-1), 0U);
    EXPECT_EQ(OpenDescriptors(), descriptors);
}

TEST_F(SvcWriteTrackingTest, TakesWhatWasOpenBeforeForItsFileSystem) {
    tree.Directory("early");
    const int early = ::open(tree.Path("early").c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    EXPECT_EQ(Create("late"), 0U);
    EXPECT_EQ(SvcTrackWritesSince(early), 0U);
    EXPECT_EQ(Create("later"), 0U);
    ::close(early);
    EXPECT_EQ(Directories(), 1U);
    std::vector<std::string> kept;
    for (const int descriptor : OpenDescriptors()) {
        if (std::find(before.begin(), before.end(), descriptor) == before.end()) {
            kept.push_back(
                std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor))
            );
        }
    }
    EXPECT_THAT(kept, ElementsAre(tree.Path("early")));
    EXPECT_EQ(SvcFlushWrites(), 0U);
}

TEST_F(SvcWriteTrackingTest, TellsOfWhatIsNotOpen) {
    EXPECT_EQ(SvcTrackWritesSince(-1), unsigned{EBADF});
}

struct WriteRow {
    const char* name;
    void (*write)(const TemporaryTree& tree);

    friend void PrintTo(const WriteRow& row, std::ostream* out) { *out << row.name; }
};

class SvcTrackedWriteTest : public SvcWriteTrackingTest,
                            public testing::WithParamInterface<WriteRow> {};

TEST_P(SvcTrackedWriteTest, IsRemembered) {
    tree.Write("file", "x");
    tree.Directory("empty");
    GetParam().write(tree);
    EXPECT_EQ(Directories(), 1U);
    EXPECT_EQ(SvcFlushWrites(), 0U);
}

INSTANTIATE_TEST_SUITE_P(
    Calls,
    SvcTrackedWriteTest,
    testing::ValuesIn(std::vector<WriteRow>{
        {"CreateDirectory",
         [](const TemporaryTree& tree) {
             EXPECT_EQ(SvcCreateDirectory(0, tree.Path("new").c_str(), 0), 0U);
         }},
        {"DeleteDirectory",
         [](const TemporaryTree& tree) {
             EXPECT_EQ(SvcDeleteDirectory(0, tree.Path("empty").c_str(), 0), 0U);
         }},
        {"DeleteFile",
         [](const TemporaryTree& tree) {
             EXPECT_EQ(SvcDeleteFile(0, tree.Path("file").c_str()), 0U);
         }},
        {"CreateFile",
         [](const TemporaryTree& tree) {
             KSUP::KFile file;
             file.Create(tree.Path("new"));
         }},
        {"CreateSymbolicLink",
         [](const TemporaryTree& tree) {
             KSUP::KFileUtil::CreateSymbolicLink("x", tree.Path("link"));
         }},
        {"SetModeFlags",
         [](const TemporaryTree& tree) { KSUP::KFileUtil::SetModeFlags(tree.Path("file"), 0600); }},
    }),
    NameOfRow()
);

TEST_F(SvcWriteTrackingTest, SurvivesThatWhatWasWrittenIsGone) {
    EXPECT_EQ(Create("a/b"), 0U);
    EXPECT_EQ(DeleteDirectory("a/b"), 0U);
    EXPECT_EQ(DeleteDirectory("a"), 0U);
    EXPECT_EQ(SvcFlushWrites(), 0U);
    EXPECT_EQ(SvcFlushWrites(), 0U) << "once more";
}

} // namespace
} // namespace KTEST
