// SPDX-License-Identifier: MIT
#include "../../support/NameOfRow.h"
#include "KFileFixture.h"

#include <cerrno>

#include <sys/syscall.h>

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
    NameOfRow()
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

struct LoopRow {
    const char* name;
    void (*run)(const KTEST::TemporaryTree& tree);
    const char* path;
    bool isRefusal;

    friend void PrintTo(const LoopRow& row, std::ostream* out) { *out << row.name; }
};

class KFileLoopTest : public KFileTest, public testing::WithParamInterface<LoopRow> {};

TEST_P(KFileLoopTest, OnlyARefusalSaysWhoCouldHaveLaidTheLink) {
    tree.Directory("real");
    tree.Directory("open", 0777);
    tree.Link("open/laid", "../real");
    tree.Link("open/gone", "../nothing");
    tree.Link("circle", "circle");
    const KSUP::KError error = ErrorOf([&] { GetParam().run(tree); });
    const std::string path = tree.Path(GetParam().path);
    EXPECT_EQ(error.GetCode(), unsigned{ELOOP});
    EXPECT_EQ(
        std::string(error.GetInfo().GetString().c_str()),
        GetParam().isRefusal
            ? path + ": a symbolic link on the way that others than root could have laid"
            : path + ": Too many levels of symbolic links"
    );
}

template <const char* path>
void Create(const KTEST::TemporaryTree& tree) {
    KFile().Create(tree.Path(path));
}

constexpr char laid[] = "open/laid/new";
constexpr char gone[] = "open/gone";
constexpr char circle[] = "circle";
constexpr char behindCircle[] = "circle/new";

INSTANTIATE_TEST_SUITE_P(
    Calls,
    KFileLoopTest,
    testing::ValuesIn(std::vector<LoopRow>{
        {"CreatingBehindAStrangersLink", Create<laid>, laid, true},
        {"CreatingAtAStrangersDanglingLink", Create<gone>, gone, true},
        {"DeletingBehindAStrangersLink",
         [](const auto& of) { KFile::DeleteFile(of.Path(laid)); },
         laid,
         true},
        {"CreatingAtALoop", Create<circle>, circle, false},
        {"CreatingBehindALoop", Create<behindCircle>, behindCircle, false},
        {"DeletingBehindALoop",
         [](const auto& of) { KFile::DeleteFile(of.Path(behindCircle)); },
         behindCircle,
         false},
        {"ReadingALoop",
         [](const auto& of) { KFile().OpenForRead(of.Path(circle)); },
         circle,
         false},
    }),
    NameOfRow()
);

TEST_F(KFileTest, DirectoriesWithoutLinksNeedNoTrust) {
    tree.Directory("open", 0777);
    EXPECT_EQ(CodeOfCreate("open/new"), 0U);
    EXPECT_TRUE(tree.Exists("open/new"));
}

TEST_F(KFileTest, LinksAreJudgedAlikeWhereTheSystemCannotRefuseThemByItself) {
    tree.Directory("real");
    tree.Directory("open", 0777);
    tree.Link("open/dir", "../real");
    tree.Link("dir", "real");
    const unsigned trusted = IsRoot() ? 0U : unsigned{ELOOP};
    const int status = InChild([&] {
        RefuseSystemCall(SYS_openat2);
        const bool judged = CodeOfCreate("open/dir/new") == ELOOP &&
                            CodeOfCreate("dir/new") == trusted && CodeOfCreate("real/plain") == 0 &&
                            CodeOfCreate("missing/new") == ENOENT;
        return judged ? 0 : 1;
    });
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(tree.Exists("real/plain"));
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
