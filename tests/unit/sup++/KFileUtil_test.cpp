// SPDX-License-Identifier: MIT
#include "../../support/TemporaryTree.h"
#include "Common.h"

#include <sup++/KFileUtil.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <thread>

#include <unistd.h>

namespace KTEST {
namespace {

using KSUP::KError;
using KSUP::KFileUtil;
using testing::ElementsAre;

class KFileUtilTest : public testing::Test {
  protected:
    unsigned CodeOfLink(const std::string& existing, const std::string& link) {
        return CodeOf([&] { KFileUtil::CreateSymbolicLink(existing, tree.Path(link)); });
    }
    unsigned CodeOfSetMode(const std::string& relative, unsigned flags) {
        return CodeOf([&] { KFileUtil::SetModeFlags(tree.Path(relative), flags); });
    }

    TemporaryTree tree;
};

// Links

TEST_F(KFileUtilTest, LaysALinkWithTheTextAsItStands) {
    KFileUtil::CreateSymbolicLink("/opt/dps/lin/x86_64/dpsd", tree.Path("absolute"));
    KFileUtil::CreateSymbolicLink("../no such $x$\n\xff", tree.Path("relative"));
    EXPECT_THAT(
        tree.List(),
        ElementsAre(
            "l absolute -> /opt/dps/lin/x86_64/dpsd", R"(l relative -> ../no such $x$\n\xff)"
        )
    );
}

TEST_F(KFileUtilTest, ReplacesALinkThatStandsThere) {
    tree.Write("kept", "x");
    tree.Link("link", "kept");
    const auto former = tree.Status("link").st_ino;
    KFileUtil::CreateSymbolicLink("new", tree.Path("link"));
    EXPECT_NE(tree.Status("link").st_ino, former);
    EXPECT_THAT(tree.List(), ElementsAre(R"(f 0644 kept "x")", "l link -> new"));
}

TEST_F(KFileUtilTest, ReplacesALinkToADirectoryAndLaysNothingInIt) {
    tree.Directory("lib");
    tree.Link("link", "lib");
    KFileUtil::CreateSymbolicLink("new", tree.Path("link"));
    EXPECT_THAT(tree.List(), ElementsAre("d 0755 lib", "l link -> new"));
}

TEST_F(KFileUtilTest, ReplacesALinkByTheSameLink) {
    tree.Link("link", "same");
    KFileUtil::CreateSymbolicLink("same", tree.Path("link"));
    EXPECT_THAT(tree.List(), ElementsAre("l link -> same"));
}

TEST_F(KFileUtilTest, ReplacesALinkInOneStep) {
    tree.Link("link", "0");
    const std::string path = tree.Path("link");
    std::atomic<bool> ended{false};
    std::atomic<int> gaps{0};
    std::thread reader([&] {
        std::array<char, 64> target{};
        while (!ended) {
            gaps += ::readlink(path.c_str(), target.data(), target.size()) < 0 ? 1 : 0;
        }
    });
    for (int step = 1; step <= 500; ++step) {
        KFileUtil::CreateSymbolicLink(std::to_string(step), path);
    }
    ended = true;
    reader.join();
    EXPECT_EQ(gaps, 0);
    EXPECT_THAT(tree.List(), ElementsAre("l link -> 500"));
}

TEST_F(KFileUtilTest, RefusesAnythingElseThatStandsThere) {
    tree.Write("file", "x");
    tree.Directory("lib");
    tree.Fifo("queue");
    const std::vector<std::string> before = tree.List();
    for (const char* name : {"file", "lib", "queue"}) {
        EXPECT_EQ(CodeOfLink("new", name), unsigned{EEXIST}) << name;
    }
    EXPECT_EQ(tree.List(), before);
}

TEST_F(KFileUtilTest, ALinkInAMissingDirectoryIsAnErrorThatNamesIt) {
    const KError error = ErrorOf([&] { KFileUtil::CreateSymbolicLink("x", tree.Path("no/link")); });
    EXPECT_EQ(error.GetCode(), unsigned{ENOENT});
    EXPECT_EQ(error.GetInfo().GetString(), SystemInfo(tree.Path("no/link"), ENOENT));
}

TEST_F(KFileUtilTest, ALinkBehindAnUntrustedLinkIsRefused) {
    tree.Directory("real");
    tree.Directory("open", 0777);
    tree.Link("open/dir", "../real");
    EXPECT_EQ(CodeOfLink("x", "open/dir/link"), unsigned{ELOOP});
    EXPECT_THAT(tree.List("real"), testing::IsEmpty());
}

TEST_F(KFileUtilTest, ALinkBehindATrustedLinkIsLaid) {
    SKIP_UNLESS_ROOT("lay a link that is trusted");
    tree.Directory("real");
    tree.Link("dir", "real");
    EXPECT_EQ(CodeOfLink("x", "dir/link"), 0U);
    EXPECT_THAT(tree.List("real"), ElementsAre("l link -> x"));
}

TEST_F(KFileUtilTest, ALinkOfAnyoneIsReplacedAndNotFollowed) {
    tree.Write("victim", "x");
    tree.Directory("open", 0777);
    tree.Link("open/link", "../victim");
    EXPECT_EQ(CodeOfLink("new", "open/link"), 0U);
    EXPECT_EQ(tree.LinkTarget("open/link"), "new");
    EXPECT_EQ(tree.Read("victim"), "x");
}

TEST_F(KFileUtilTest, TheLongestNameIsLaidAndReplaced) {
    const std::string name(255, 'n');
    EXPECT_EQ(CodeOfLink("one", name), 0U);
    EXPECT_EQ(CodeOfLink("two", name), 0U);
    EXPECT_THAT(tree.List(), ElementsAre("l " + name + " -> two"));
    EXPECT_EQ(CodeOfLink("x", name + "n"), unsigned{ENAMETOOLONG});
}

// Deleting

TEST_F(KFileUtilTest, DeletesAndReportsAStatus) {
    tree.Write("file", "x");
    tree.Link("link", "file");
    EXPECT_EQ(KFileUtil::DeleteFile(tree.Path("link")), 0U);
    EXPECT_TRUE(tree.Exists("file"));
    EXPECT_EQ(KFileUtil::DeleteFile(tree.Path("file")), 0U);
    EXPECT_EQ(KFileUtil::DeleteFile(tree.Path("file")), unsigned{ENOENT});
    EXPECT_NE(KFileUtil::DeleteFile(""), 0U);
}

TEST_F(KFileUtilTest, NeverDeletesADirectory) {
    tree.Directory("empty");
    EXPECT_NE(KFileUtil::DeleteFile(tree.Path("empty")), 0U);
    EXPECT_TRUE(tree.Exists("empty"));
}

TEST_F(KFileUtilTest, DeletesNothingBehindAnUntrustedLink) {
    tree.Write("real/file", "x");
    tree.Directory("open", 0777);
    tree.Link("open/dir", "../real");
    EXPECT_EQ(KFileUtil::DeleteFile(tree.Path("open/dir/file")), unsigned{ELOOP});
    EXPECT_TRUE(tree.Exists("real/file"));
}

// Modes

TEST_F(KFileUtilTest, ReadsPermissionSetIdAndStickyBits) {
    tree.Write("file", "x", 06755);
    tree.Directory("lib", 01777);
    tree.Link("link", "file");
    EXPECT_EQ(KFileUtil::GetModeFlags(tree.Path("file")), 06755U);
    EXPECT_EQ(KFileUtil::GetModeFlags(tree.Path("lib")), 01777U);
    EXPECT_EQ(KFileUtil::GetModeFlags(tree.Path("link")), 06755U);
}

TEST_F(KFileUtilTest, TheModeOfAMissingFileIsAnErrorThatNamesIt) {
    const std::string path = tree.Path("missing");
    const KError read = ErrorOf([&] { KFileUtil::GetModeFlags(path); });
    EXPECT_EQ(read.GetCode(), unsigned{ENOENT});
    EXPECT_EQ(read.GetInfo().GetString(), SystemInfo(path, ENOENT));
    const KError set = ErrorOf([&] { KFileUtil::SetModeFlags(path, 0644); });
    EXPECT_EQ(set.GetCode(), unsigned{ENOENT});
    EXPECT_EQ(set.GetInfo().GetString(), SystemInfo(path, ENOENT));
}

TEST_F(KFileUtilTest, SetsAllBitsWhateverTheUmask) {
    const UmaskGuard mask(077);
    tree.Write("file", "x", 0600);
    KFileUtil::SetModeFlags(tree.Path("file"), 06755);
    EXPECT_EQ(tree.Mode("file"), 06755U);
    KFileUtil::SetModeFlags(tree.Path("file"), 0);
    EXPECT_EQ(tree.Mode("file"), 0U);
    KFileUtil::SetModeFlags(tree.Path("file"), 0444);
    EXPECT_EQ(tree.Mode("file"), 0444U);
}

TEST_F(KFileUtilTest, SetsNoModeBehindAnUntrustedLink) {
    tree.Write("real/file", "x", 0600);
    tree.Directory("open", 0777);
    tree.Link("open/dir", "../real");
    tree.Link("open/file", "../real/file");
    EXPECT_EQ(CodeOfSetMode("open/dir/file", 0666), unsigned{ELOOP});
    EXPECT_EQ(CodeOfSetMode("open/file", 0666), unsigned{ELOOP});
    EXPECT_EQ(tree.Mode("real/file"), 0600U);
}

TEST_F(KFileUtilTest, SetsTheModeBehindATrustedLink) {
    SKIP_UNLESS_ROOT("lay a link that is trusted");
    tree.Write("real/file", "x", 0600);
    tree.Link("file", "real/file");
    EXPECT_EQ(CodeOfSetMode("file", 0640), 0U);
    EXPECT_EQ(tree.Mode("real/file"), 0640U);
}

TEST_F(KFileUtilTest, SetsAModeWithoutHangingOnAFifo) {
    const HangGuard guard;
    tree.Fifo("queue", 0600);
    static_cast<void>(CodeOfSetMode("queue", 0644));
    EXPECT_EQ(tree.List().size(), 1U);
}

TEST_F(KFileUtilTest, TheModeOfAnothersFileIsAnError) {
    SKIP_UNLESS_ROOT("own what another may not change");
    tree.Write("file", "x", 0644);
    unsigned code = 0;
    AsNobody([&] { code = CodeOfSetMode("file", 0666); });
    EXPECT_EQ(code, unsigned{EPERM});
    EXPECT_EQ(tree.Mode("file"), 0644U);
}

TEST_F(KFileUtilTest, LeavesNoDescriptor) {
    tree.Write("file", "x");
    tree.Directory("lib");
    const std::vector<int> before = OpenDescriptors();
    EXPECT_EQ(CodeOfLink("x", "lib/link"), 0U);
    EXPECT_EQ(CodeOfLink("y", "lib/link"), 0U);
    EXPECT_NE(CodeOfLink("x", "file"), 0U);
    EXPECT_EQ(CodeOfSetMode("file", 0600), 0U);
    EXPECT_NE(CodeOfSetMode("lib/missing", 0600), 0U);
    EXPECT_NE(KFileUtil::DeleteFile(tree.Path("lib")), 0U);
    EXPECT_EQ(OpenDescriptors(), before);
}

} // namespace
} // namespace KTEST
