// SPDX-License-Identifier: MIT
#include "KFileFixture.h"

#include <cerrno>

namespace KTEST {
namespace {

using KSUP::KFile;
using testing::IsEmpty;

struct TrustRow {
    const char* name;
    mode_t mode;
    bool ownedByRoot;
    bool trusted;

    friend void PrintTo(const TrustRow& row, std::ostream* out) { *out << row.name; }
};

class KFileTrustTest : public KFileTest, public testing::WithParamInterface<TrustRow> {
  protected:
    void GivenTrees() {
        tree.Write("real/file", "former", 0640);
        tree.Directory("place");
        tree.Link("place/dir", "../real");
        tree.Link("place/file", "../real/file");
        if (!GetParam().ownedByRoot) {
            tree.SetOwner("place", nobodyId, nobodyId);
        }
        tree.SetMode("place", GetParam().mode);
    }
    unsigned Expected() const { return GetParam().trusted ? 0U : unsigned{ELOOP}; }
};

TEST_P(KFileTrustTest, DecidesWhetherADirectoryLinkIsFollowedForWriting) {
    SKIP_UNLESS_ROOT("lay a link that is trusted");
    GivenTrees();
    EXPECT_EQ(CodeOfCreate("place/dir/new"), Expected());
    EXPECT_EQ(tree.Exists("real/new"), GetParam().trusted);
}

TEST_P(KFileTrustTest, DecidesWhetherALinkAtTheTargetIsFollowedForWriting) {
    SKIP_UNLESS_ROOT("lay a link that is trusted");
    GivenTrees();
    EXPECT_EQ(CodeOfCreate("place/file"), Expected());
    EXPECT_EQ(tree.Read("real/file"), GetParam().trusted ? "" : "former");
    EXPECT_EQ(tree.LinkTarget("place/file"), "../real/file") << "the link itself stays";
}

TEST_P(KFileTrustTest, DecidesWhetherADirectoryLinkIsFollowedForDeleting) {
    SKIP_UNLESS_ROOT("lay a link that is trusted");
    GivenTrees();
    EXPECT_EQ(CodeOf([&] { KFile::DeleteFile(tree.Path("place/dir/file")); }), Expected());
    EXPECT_EQ(tree.Exists("real/file"), !GetParam().trusted);
}

INSTANTIATE_TEST_SUITE_P(
    Directories,
    KFileTrustTest,
    testing::ValuesIn(std::vector<TrustRow>{
        {"RootsOwn", 0755, true, true},
        {"RootsOwnAndClosed", 0700, true, true},
        {"GroupMayWrite", 0775, true, false},
        {"OthersMayWrite", 0757, true, false},
        {"AllMayWriteButNotDelete", 01777, true, false},
        {"OfAnotherOwner", 0755, false, false},
        {"OfAnotherOwnerWhoMayNotWrite", 0555, false, false},
    }),
    RowName()
);

TEST_F(KFileTest, EveryLinkOfAChainHasToBeTrusted) {
    SKIP_UNLESS_ROOT("lay a link that is trusted");
    tree.Directory("real");
    tree.Directory("open", 0777);
    tree.Link("open/second", "../real");
    tree.Link("first", "open/second");
    EXPECT_EQ(CodeOfCreate("first/new"), unsigned{ELOOP});
    EXPECT_THAT(tree.List("real"), IsEmpty());
}

TEST_F(KFileTest, AnAbsoluteTrustedLinkIsFollowed) {
    SKIP_UNLESS_ROOT("lay a link that is trusted");
    tree.Directory("real");
    tree.Link("first", tree.Path("second"));
    tree.Link("second", "./real/../real/");
    EXPECT_EQ(CodeOfCreate("first/new"), 0U);
    EXPECT_TRUE(tree.Exists("real/new"));
}

TEST_F(KFileTest, AnyLinkOfAUserIsRefused) {
    tree.Directory("home/real");
    tree.Link("home/dir", "real");
    GiveToNobody(tree, "home");
    GiveToNobody(tree, "home/real");
    EXPECT_EQ(CodeOfCreate("home/dir/new"), unsigned{ELOOP});
    EXPECT_THAT(tree.List("home/real"), IsEmpty());
}

TEST_F(KFileTest, DirectoriesWithoutLinksNeedNoTrust) {
    tree.Directory("open", 0777);
    EXPECT_EQ(CodeOfCreate("open/new"), 0U);
    EXPECT_TRUE(tree.Exists("open/new"));
}

TEST_F(KFileTest, DotsOnTheWayAreTaken) {
    tree.Directory("a/b");
    EXPECT_EQ(CodeOfCreate("a/./b/../new"), 0U);
    EXPECT_EQ(CodeOfCreate("a//b///newer"), 0U);
    EXPECT_TRUE(tree.Exists("a/new"));
    EXPECT_TRUE(tree.Exists("a/b/newer"));
}

} // namespace
} // namespace KTEST
