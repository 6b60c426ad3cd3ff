// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/plan/KDiskView.h>
#include <setup/state/KKitLook.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

namespace {

using KSETUP::KDiskView;
using KSETUP::KKitLook;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

class KKitLookTest : public ::testing::Test {
  protected:
    KKitLookTest() {
        tree.Write("kit/a/file", "bytes", 0640);
        tree.Write("kit/a/inner/deep", "");
        tree.Write("kit/a.txt", "x");
        tree.Link("kit/link", "a/file");
        tree.Directory("kit/empty");
        look = std::make_shared<const KKitLook>(tree.Path("kit"));
    }

    static std::vector<std::string> Names(const std::vector<KDiskView::Name>& names) {
        std::vector<std::string> all;
        for (const KDiskView::Name& name : names) {
            all.push_back(std::string(name.Get()) + (name.isDirectory ? "/" : ""));
        }
        return all;
    }
    std::vector<std::string> Below(const std::string& directory) const {
        std::vector<std::string> paths;
        const auto entries = look->Find(directory); // a range of a temporary ends with it
        for (const KKitLook::Entry& entry : *entries) {
            paths.emplace_back(look->PathOf(entry));
        }
        return paths;
    }

    KTEST::TemporaryTree tree;
    std::shared_ptr<const KKitLook> look;
};

TEST_F(KKitLookTest, WhatIsInADirectoryIsFoundByIt) {
    EXPECT_THAT(Below(""), UnorderedElementsAre("a", "a.txt", "empty", "link"));
    EXPECT_THAT(Below("a"), UnorderedElementsAre("a/file", "a/inner"));
    EXPECT_THAT(Below("a/inner"), ElementsAre("a/inner/deep"));
    EXPECT_THAT(Below("empty"), ElementsAre());
    EXPECT_FALSE(look->Find("a.txt").has_value());
    EXPECT_FALSE(look->Find("link").has_value());
    EXPECT_FALSE(look->Find("missing").has_value());
}

TEST_F(KKitLookTest, EachEntryIsThereAsItStood) {
    std::set<std::string> seen;
    for (const KKitLook::Entry& entry : look->GetEntries()) {
        const std::string path = look->PathOf(entry);
        EXPECT_TRUE(seen.insert(path).second) << path;
        EXPECT_STREQ(look->TargetOf(entry), path == "link" ? "a/file" : "") << path;
        if (path == "a/file") {
            EXPECT_EQ(entry.status.mode, S_IFREG | 0640U);
            EXPECT_EQ(entry.status.bytes, 5U);
        }
    }
    EXPECT_EQ(seen.size(), 7U);
}

TEST_F(KKitLookTest, AViewShowsTheKitAsTheLookHasSeenIt) {
    KDiskView fresh;
    KDiskView view(look);
    for (const char* directory : {"kit", "kit/a", "kit/a/inner", "kit/empty"}) {
        const std::string path = tree.Path(directory);
        EXPECT_EQ(Names(view.ListSources(path)), Names(fresh.ListSources(path))) << path;
    }
    for (const char* name : {"kit/a/file", "kit/a", "kit/link"}) {
        const KSETUP::KPlannedEntry& seen = view.Look(tree.Path(name));
        const KSETUP::KPlannedEntry& there = fresh.Look(tree.Path(name));
        EXPECT_EQ(seen.kind, there.kind) << name;
        EXPECT_EQ(seen.mode, there.mode) << name;
        EXPECT_EQ(seen.bytes, there.bytes) << name;
        EXPECT_EQ(seen.isShared, there.isShared) << name;
        EXPECT_EQ(seen.GetTarget(), there.GetTarget()) << name;
    }
    tree.Write("kit/empty/later", "");
    KDiskView another(look);
    EXPECT_THAT(Names(another.ListSources(tree.Path("kit/empty"))), ElementsAre());
}

/// A wildcard may go through a link, and to where no kit is.
TEST_F(KKitLookTest, AViewAsksTheDiskForWhatTheLookHasNot) {
    tree.Write("other/file", "");
    tree.Link("kit/out", tree.Path("other"));
    KDiskView view(std::make_shared<const KKitLook>(tree.Path("kit")));
    EXPECT_THAT(Names(view.ListSources(tree.Path("kit/out"))), ElementsAre("file"));
    EXPECT_THAT(Names(view.ListSources(tree.Path("other"))), ElementsAre("file"));
    tree.Write("kit beside/file", ""); // its name begins like the kit's
    EXPECT_THAT(Names(view.ListSources(tree.Path("kit beside"))), ElementsAre("file"));
}

TEST_F(KKitLookTest, AKitThatCannotBeReadIsRefused) {
    try {
        const KKitLook none(tree.Path("missing"));
        FAIL() << "went on";
    } catch (const KSETUP::KSetupFailure& failure) {
        EXPECT_EQ(failure.GetExitCode(), KSETUP::ExitCode::noKit);
        EXPECT_THAT(failure.what(), ::testing::HasSubstr("All of a kit has to be readable."));
    }
}

} // namespace
