// SPDX-License-Identifier: MIT
//
// Files that are found in a directory that is held open.
#include "KFileFixture.h"

#include <sup++/KDirectory.h>

#include <cerrno>
#include <filesystem>

namespace KTEST {
namespace {

using KSUP::KDirectory;
using KSUP::KFile;
using Purpose = KDirectory::Purpose;
using testing::ElementsAre;

class KDirectoryTest : public KFileTest {
  protected:
    void CopyHeld(const std::string& from, const std::string& to, KDirectory& in, KDirectory& out) {
        KFile source;
        KFile target;
        source.OpenForRead(tree.Path(from), &in);
        target.Create(tree.Path(to), &out);
        CopyAll(target, source);
        source.Close();
        target.Close();
    }
    unsigned CodeOfCreateIn(KDirectory& held, const std::string& relative) {
        KFile file;
        return CodeOf([&] { file.Create(tree.Path(relative), &held); });
    }
};

TEST_F(KDirectoryTest, EndsWithASeparator) {
    EXPECT_STREQ(KDirectory("/opt/p", Purpose::Read).GetPath().c_str(), "/opt/p/");
    EXPECT_STREQ(KDirectory("/opt/p/", Purpose::Write).GetPath().c_str(), "/opt/p/");
}

TEST_F(KDirectoryTest, FilesAreFoundInTheDirectoryThatIsHeld) {
    tree.Write("from/a", "A");
    tree.Write("from/b", "B");
    tree.Directory("to");
    KDirectory from(tree.Path("from"), Purpose::Read);
    KDirectory to(tree.Path("to"), Purpose::Write);
    CopyHeld("from/a", "to/a", from, to);
    // Elsewhere by now: only who holds it still finds it.
    std::filesystem::rename(tree.Path("from"), tree.Path("moved"));
    std::filesystem::rename(tree.Path("to"), tree.Path("reached"));
    CopyHeld("from/b", "to/b", from, to);
    EXPECT_THAT(tree.List("reached"), ElementsAre("f 0600 a \"A\"", "f 0600 b \"B\""));
}

TEST_F(KDirectoryTest, FilesElsewhereAreFoundByTheirPaths) {
    tree.Write("from/below/a", "A");
    tree.Write("frombelow", "B");
    tree.Directory("to");
    KDirectory from(tree.Path("from"), Purpose::Read);
    KDirectory to(tree.Path("to"), Purpose::Write);
    CopyHeld("from/below/a", "a", from, to);
    CopyHeld("frombelow", "to/b", from, to);
    EXPECT_EQ(tree.Read("a"), "A");
    EXPECT_EQ(tree.Read("to/b"), "B");
}

TEST_F(KDirectoryTest, AMissingDirectoryIsAnErrorOfTheFile) {
    KDirectory missing(tree.Path("missing"), Purpose::Write);
    KFile file;
    const KSUP::KError error = ErrorOf([&] { file.Create(tree.Path("missing/a"), &missing); });
    EXPECT_EQ(error.GetCode(), unsigned{ENOENT});
    EXPECT_EQ(error.GetInfo().GetString(), SystemInfo(tree.Path("missing/a"), ENOENT));
    KDirectory unread(tree.Path("missing"), Purpose::Read);
    EXPECT_EQ(CodeOf([&] { file.OpenForRead(tree.Path("missing/a"), &unread); }), unsigned{ENOENT});
}

TEST_F(KDirectoryTest, AFileThatStandsThereIsMadeAnewWithItsOwner) {
    tree.Write("to/a", "former", 0755);
    tree.SetOwner("to/a", 1234, 2345);
    const auto former = tree.Status("to/a").st_ino;
    const std::string link = tree.Path("kept");
    std::filesystem::create_hard_link(tree.Path("to/a"), link);
    KDirectory to(tree.Path("to"), Purpose::Write);
    EXPECT_EQ(CodeOfCreateIn(to, "to/a"), 0U);
    const struct stat made = tree.Status("to/a");
    EXPECT_NE(made.st_ino, former);
    EXPECT_EQ(made.st_uid, 1234U);
    EXPECT_EQ(made.st_gid, 2345U);
    EXPECT_EQ(tree.Read("kept"), "former");
}

TEST_F(KDirectoryTest, WhatIsNoFileIsRefused) {
    tree.Directory("to/a");
    tree.Fifo("to/b");
    KDirectory to(tree.Path("to"), Purpose::Write);
    EXPECT_EQ(CodeOfCreateIn(to, "to/a"), unsigned{EISDIR});
    EXPECT_EQ(CodeOfCreateIn(to, "to/b"), unsigned{EINVAL});
}

TEST_F(KDirectoryTest, ALinkIsFollowedOnlyWhereRootAloneCouldHaveLaidIt) {
    tree.Write("target", "former");
    tree.Link("to/trusted", tree.Path("target"));
    tree.Link("open/laid", tree.Path("target"));
    tree.SetMode("open", 0777);
    KDirectory to(tree.Path("to"), Purpose::Write);
    KDirectory open(tree.Path("open"), Purpose::Write);
    EXPECT_EQ(CodeOfCreateIn(open, "open/laid"), unsigned{ELOOP});
    EXPECT_EQ(tree.Read("target"), "former");
    EXPECT_EQ(CodeOfCreateIn(to, "to/trusted"), 0U);
    EXPECT_EQ(tree.Read("target"), "");
    EXPECT_EQ(tree.LinkTarget("to/trusted"), tree.Path("target"));
}

TEST_F(KDirectoryTest, ADirectoryBehindAnothersLinkIsNotWrittenTo) {
    tree.Directory("target");
    tree.Directory("open", 0777);
    tree.Link("open/laid", tree.Path("target"));
    KDirectory behind(tree.Path("open/laid"), Purpose::Write);
    EXPECT_EQ(CodeOfCreateIn(behind, "open/laid/a"), unsigned{ELOOP});
    EXPECT_FALSE(tree.Exists("target/a"));
}

TEST_F(KDirectoryTest, LeavesNoDescriptor) {
    tree.Directory("to");
    const auto before = OpenDescriptors();
    {
        KDirectory to(tree.Path("to"), Purpose::Write);
        EXPECT_EQ(CodeOfCreateIn(to, "to/a"), 0U);
    }
    EXPECT_EQ(OpenDescriptors(), before);
}

} // namespace
} // namespace KTEST
