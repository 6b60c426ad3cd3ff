// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/plan/KPlan.h>
#include <setup/rules/KFileSharing.h>
#include <setup/run/PlannedPaths.h>
#include <sup++/SvcFile.h>

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <system_error>

#include <bundle/KWorkPlace.h>
#include <bundle/UnpackedTable.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace KSETUP;

/// A kit with "a" and "b" in a directory that a bundle was unpacked to, and a product place.
class KFileSharingTest : public ::testing::Test {
  protected:
    KFileSharingTest() {
        tree.Directory("product");
        tree.Directory("kit");
    }

    /// The targets that are shared: "K" and "P" in a line are the kit's and the product's directory.
    /// They are linked too, one after the other, and "!" stands behind one that could not be.
    std::string Shared(const std::string& lines, const std::string& kit) {
        std::string script = "[install]\n";
        for (const char byte : lines) {
            script += byte == 'K' ? kit : byte == 'P' ? tree.Path("product") : std::string(1, byte);
        }
        const std::string relative = kit.substr(tree.Path().size() + 1);
        tree.Write(relative + "/a", "A");
        tree.Write(relative + "/b", "B");
        tree.Write(relative + "/install.ini", script);
        KPlannedTree planned(KPlannedTree::Below::Disk, kit);
        const KPlan plan(
            KScript(KSUP::KString(kit + "/install.ini")),
            "install",
            [](const KSUP::KString& text) { return text; },
            planned,
            KChangePolicy(ownership, tree.Path("product"), KChangePolicy::Options())
        );
        const std::vector<KCopy> lasting = LastingCopies(plan, kit);
        beforeLinks();
        KFileSharing sharing(plan, lasting, kit);
        std::string names;
        for (const KCopy& copy : lasting) {
            const std::string target(copy.target);
            if (sharing.IsShared(target)) {
                const KSUP::KString source = std::string(copy.source).c_str();
                KFileDigest digest;
                const bool isDone = sharing.Link(source, nullptr, target.c_str(), nullptr, digest);
                names += (names.empty() ? "" : " ") + target.substr(target.rfind('/') + 1);
                names += isDone ? "" : "!";
                digests[target.substr(target.rfind('/') + 1)] = digest;
            }
        }
        return names;
    }
    std::string SharedOfBundle(const std::string& lines) {
        place = std::make_unique<KBUNDLE::KWorkPlace>(tree.Path());
        return Shared(lines, place->GetPath());
    }

    /// As if "a" had been unpacked of a bundle to this directory, by this process.
    void Unpack(const std::string& directory) {
        KBUNDLE::KBundleTable table;
        table.entries.push_back({.name = "a", .mode = 0640, .byteCount = 1, .sha256 = sum});
        table.entries.back().seconds = 1'000'000'000;
        table.entries.back().nanoseconds = 123'456'789;
        kept.push_back(KBUNDLE::KeepTable(table, directory));
        EXPECT_TRUE(kept.back().IsOpen());
    }
    /// What the table says.
    static void SetUnpackedTime(const std::string& path) {
        const std::array<timespec, 2> times{{{0, UTIME_OMIT}, {1'000'000'000, 123'456'789}}};
        EXPECT_EQ(::utimensat(AT_FDCWD, path.c_str(), times.data(), 0), 0);
    }

    KTEST::TemporaryTree tree;
    /// Of nothing, so that it is known where it comes from.
    static constexpr KBUNDLE::KSha256Bytes sum{0xAB, 0xCD};
    std::function<void()> beforeLinks = [] {};
    std::map<std::string, KFileDigest> digests; // of what was linked, by name
    std::vector<KSYS::KDescriptor> kept;
    const KOwnership ownership{"svc", false, tree.Path("base")};
    std::unique_ptr<KBUNDLE::KWorkPlace> place;
};

TEST_F(KFileSharingTest, NewFilesOfAnUnpackedBundleAreShared) {
    EXPECT_EQ(SharedOfBundle("file=copy,a,K,P\nfile=copy,b,K,P\n"), "a b");
    EXPECT_EQ(tree.Status("product/a").st_nlink, 2U);
    EXPECT_EQ(tree.Read("product/b"), "B");
}

TEST_F(KFileSharingTest, WhatWasDigestedWhenItWasUnpackedIsNotReadAgain) {
    place = std::make_unique<KBUNDLE::KWorkPlace>(tree.Path());
    Unpack(place->GetPath());
    beforeLinks = [&] {
        SetUnpackedTime(place->GetPath() + "/a");
        ASSERT_EQ(::chmod((place->GetPath() + "/a").c_str(), 0640), 0);
    };
    EXPECT_EQ(Shared("file=copy,a,K,P\nfile=copy,b,K,P\n", place->GetPath()), "a b");
    EXPECT_EQ(digests["a"].sha256, "abcd" + std::string(60, '0'));
    EXPECT_EQ(digests["a"].size, 1U);
    EXPECT_EQ(digests["a"].mode, 0640U);
    EXPECT_EQ(digests["b"].sha256, "") << "which the table does not have";
}

TEST_F(KFileSharingTest, WhatWasWrittenToSinceItWasUnpackedIsReadAgain) {
    place = std::make_unique<KBUNDLE::KWorkPlace>(tree.Path());
    Unpack(place->GetPath());
    EXPECT_EQ(Shared("file=copy,a,K,P\n", place->GetPath()), "a");
    EXPECT_EQ(digests["a"].sha256, "");
}

TEST_F(KFileSharingTest, WhatAnotherBundleHadIsNotTakenForIt) {
    place = std::make_unique<KBUNDLE::KWorkPlace>(tree.Path());
    Unpack(tree.Path("product"));
    beforeLinks = [&] { SetUnpackedTime(place->GetPath() + "/a"); };
    EXPECT_EQ(Shared("file=copy,a,K,P\n", place->GetPath()), "a");
    EXPECT_EQ(digests["a"].sha256, "");
}

/// Or a failure of the disk while it was unpacked would be told to nobody.
TEST_F(KFileSharingTest, TheFlushGoesByWhatWasOpenBeforeTheUnpacking) {
    ASSERT_EQ(SvcBeginWriteTracking(), 0U);
    EXPECT_EQ(SharedOfBundle("file=copy,a,K,P\n"), "a");
    int known = 0;
    for (const auto& open : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code closed; // the walk's own
        known += std::filesystem::read_symlink(open.path(), closed) == place->GetPath() ? 1 : 0;
    }
    static_cast<void>(SvcEndWriteTracking());
    EXPECT_EQ(known, 2); // the lock's, and what is flushed by
}

TEST_F(KFileSharingTest, AKitInADirectoryOfTheUnpackedBundleIsSharedToo) {
    place = std::make_unique<KBUNDLE::KWorkPlace>(tree.Path());
    EXPECT_EQ(Shared("file=copy,a,K,P\n", place->GetPath() + "/kit"), "a");
}

TEST_F(KFileSharingTest, NothingOfAnotherKitIs) {
    EXPECT_EQ(Shared("file=copy,a,K,P\n", tree.Path("kit")), "");
}

TEST_F(KFileSharingTest, NothingOfABundleThatSomebodyElseUnpackedIs) {
    place = std::make_unique<KBUNDLE::KWorkPlace>(tree.Path());
    const std::string theirs = place->GetPath() + "-1";
    const std::string relative = theirs.substr(tree.Path().size() + 1);
    tree.Directory(relative, 0700);
    EXPECT_EQ(Shared("file=copy,a,K,P\n", theirs), "");
}

TEST_F(KFileSharingTest, ASourceIsSharedOnce) {
    EXPECT_EQ(SharedOfBundle("file=copy,a,K,P\nfile=copy,a,K,P,c\n"), "a c!");
    EXPECT_FALSE(tree.Exists("product/c"));
}

TEST_F(KFileSharingTest, WhatIsReplacedIsNot) {
    tree.Write("product/a", "former");
    EXPECT_EQ(SharedOfBundle("file=copy,a,K,P\nfile=copy,b,K,P\n"), "b");
}

TEST_F(KFileSharingTest, ConfigurationIsNot) {
    EXPECT_EQ(SharedOfBundle("config=copy,a,K,P\nfile=copy,b,K,P\n"), "b");
}

TEST_F(KFileSharingTest, WhatARuleGivesRightsIsNot) {
    EXPECT_EQ(SharedOfBundle("file=copy,a,K,P\nmode=set,P/a,0755\nfile=copy,b,K,P\n"), "b");
}

TEST_F(KFileSharingTest, WhatIsMadeInADirectoryWithRightsOfARuleIsNot) {
    EXPECT_EQ(
        SharedOfBundle(
            "directory=create,P/d\nmode=set,P/d,2755\nfile=copy,a,K,P/d\nfile=copy,b,K,P\n"
        ),
        "b"
    );
}

TEST_F(KFileSharingTest, WhatInheritsFromItsDirectoryIsNot) {
    tree.Directory("product/d", 02755);
    EXPECT_EQ(SharedOfBundle("file=copy,a,K,P/d\nfile=copy,b,K,P\n"), "b");
}

TEST_F(KFileSharingTest, NothingIsWhereACommandRuns) {
    EXPECT_EQ(SharedOfBundle("file=copy,a,K,P\ncommand=run,true\n"), "");
}

TEST_F(KFileSharingTest, WhatIsMadeInADirectoryThatIsYetToBeMadeIsShared) {
    tree.Directory("product");
    EXPECT_EQ(SharedOfBundle("directory=create,P/d\nfile=copy,a,K,P/d\n"), "a!");
}

} // namespace
