// SPDX-License-Identifier: MIT
#include "../../../faults/failcall.h"
#include "../../../support/TemporaryTree.h"

#include <setup/KSetupFailure.h>
#include <setup/state/KKeptKit.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <string>

namespace {

using KSETUP::KKeptKit;

class KKeptKitTest : public ::testing::Test {
  protected:
    KKeptKitTest() {
        tree.Write("kit/product.ini", "first");
        tree.Write("kit/install.ini", "script");
        tree.Write("kit/a/b/tool", "bytes", 0755);
        tree.Write("kit/other", "bytes");
    }

    void Write(const std::set<std::string>& files) {
        KKeptKit::Write("svc", tree.Path("kit"), files, {}, {}, tree.Path("base"));
    }

    KTEST::TemporaryTree tree;
};

TEST_F(KKeptKitTest, HasTheFilesAtTheirPlacesWithTheirModes) {
    Write({"a/b/tool"});
    EXPECT_EQ(KKeptKit::FindDirectory("svc", tree.Path("base")), tree.Path("base/svc/kit"));
    EXPECT_EQ(tree.Read("base/svc/kit/product.ini"), "first");
    EXPECT_EQ(tree.Mode("base/svc/kit/a/b/tool"), 0755U);
    EXPECT_EQ(tree.Mode("base/svc/kit"), 0700U);
    EXPECT_FALSE(tree.Exists("base/svc/kit/other"));
}

TEST_F(KKeptKitTest, IsReplacedAsAWhole) {
    Write({"a/b/tool"});
    tree.Write("base/svc/kit.new/stale", "of a run that was killed");
    tree.Write("kit/product.ini", "second");
    Write({"other"});
    EXPECT_EQ(tree.Read("base/svc/kit/product.ini"), "second");
    EXPECT_TRUE(tree.Exists("base/svc/kit/other"));
    EXPECT_FALSE(tree.Exists("base/svc/kit/a"));
    EXPECT_FALSE(tree.Exists("base/svc/kit.new"));
}

TEST_F(KKeptKitTest, TheFormerOneStaysWhereAFileIsMissing) {
    Write({});
    EXPECT_THROW(Write({"missing"}), KSETUP::KSetupFailure);
    EXPECT_EQ(tree.Read("base/svc/kit/product.ini"), "first");
}

TEST_F(KKeptKitTest, CanBeWrittenFromItself) {
    Write({"other"});
    KKeptKit::Write("svc", tree.Path("base/svc/kit"), {"other"}, {}, {}, tree.Path("base"));
    EXPECT_TRUE(tree.Exists("base/svc/kit/other"));
}

TEST_F(KKeptKitTest, StaysWhileSomethingElseIsRemembered) {
    Write({});
    tree.Write("base/svc/manifest", "");
    KKeptKit::RemoveUnlessNeeded("svc", tree.Path("base"));
    EXPECT_TRUE(tree.Exists("base/svc/kit/product.ini"));
}

TEST_F(KKeptKitTest, GoesWithTheRest) {
    Write({"a/b/tool"});
    KKeptKit::RemoveUnlessNeeded("svc", tree.Path("base"));
    EXPECT_FALSE(tree.Exists("base/svc/kit"));
    KKeptKit::RemoveUnlessNeeded("svc", tree.Path("base"));
    KKeptKit::RemoveUnlessNeeded("none", tree.Path("base"));
    EXPECT_FALSE(KKeptKit::FindDirectory("none", tree.Path("base")).has_value());
}

/// Root runs what is kept at the removal, so it is held against the seal that the run read.
TEST_F(KKeptKitTest, OfASealedKitOnlyWhatWasSealedIsKept) {
    KSETUP::KDigests sealed;
    for (const char* name : {"product.ini", "install.ini", "lib/off.sh"}) {
        tree.Write(std::string("kit/") + name, name);
        sealed[tree.Path("kit/") + name] = KSETUP::DigestFile(tree.Path("kit/") + name);
    }
    const auto keep = [&] {
        KKeptKit::Write("svc", tree.Path("kit"), {"lib/off.sh"}, sealed, {}, tree.Path("base"));
    };
    keep();
    tree.Write("kit/lib/off.sh", "exchanged");
    EXPECT_THROW(keep(), KSETUP::KSetupFailure);
    EXPECT_EQ(tree.Read("base/svc/kit/lib/off.sh"), "lib/off.sh");
    KKeptKit::Write("svc", tree.Path("kit"), {"lib/off.sh"}, {}, {}, tree.Path("base"));
    EXPECT_EQ(tree.Read("base/svc/kit/lib/off.sh"), "exchanged") << "the attack without a seal";
}

TEST_F(KKeptKitTest, ListsADirectoryBeforeWhatIsInIt) {
    EXPECT_THAT(
        KKeptKit::ListPaths("svc", tree.Path("base")),
        ::testing::ElementsAre(tree.Path("base/svc/kit"))
    );
    Write({"a/b/tool"});
    const auto paths = KKeptKit::ListPaths("svc", tree.Path("base"));
    EXPECT_EQ(paths.front(), tree.Path("base/svc/kit"));
    EXPECT_THAT(paths, ::testing::Contains(tree.Path("base/svc/kit/a/b/tool")));
    const auto at = [&](const std::string& path) {
        return std::find(paths.begin(), paths.end(), tree.Path(path));
    };
    EXPECT_LT(at("base/svc/kit/a/b"), at("base/svc/kit/a/b/tool"));
}

/// What is taken for none would not be kept by a backup, and be deleted when it is put back.
TEST_F(KKeptKitTest, ThatCannotBeListedNowIsNotTakenForNone) {
    Write({});
    failcall_arm("readdir", 1, EIO, 0);
    EXPECT_THROW(KKeptKit::ListPaths("svc", tree.Path("base")), KSETUP::KSetupFailure);
    failcall_disarm();
}

} // namespace
