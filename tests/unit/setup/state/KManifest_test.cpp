// SPDX-License-Identifier: MIT
#include "../../../faults/failcall.h"
#include "../../../support/TemporaryTree.h"

#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/state/KManifest.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>

namespace {

using KSETUP::KManifest;
using KSETUP::KSetupFailure;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class KManifestTest : public ::testing::Test {
  protected:
    void SetUp() override {
        tree.Write("p/file", "abc", 0755);
        tree.Write("p/a\nb\xFF", std::string(3000000, 'x'));
        tree.Write("p/conf", "key=value\n");
        tree.Link("p/link", "file");
    }
    std::vector<std::string> Paths() const {
        return {
            tree.Path("p"),
            tree.Path("p/file"),
            tree.Path("p/a\nb\xFF"),
            tree.Path("p/conf"),
            tree.Path("p/link"),
            tree.Path("p/none")};
    }
    std::string Base() const { return tree.Path("base"); }
    /// Writes a manifest, reads it and tells what differs, "PATH WORDS" with the tree left out.
    std::vector<std::string> Differences(const std::set<std::string>& mayChange = {}) {
        std::vector<std::string> lines;
        for (const auto& one : KManifest::Read("dps", Base())->Verify(mayChange)) {
            lines.push_back(one.path.substr(tree.Path("p").size() + 1) + " " + one.words.English());
        }
        return lines;
    }
    void GivenManifest() { KManifest(Paths()).Write("dps", Base()); }

    KTEST::TemporaryTree tree;
};

TEST_F(KManifestTest, WhatWasWrittenIsRead) {
    const KManifest manifest(Paths());
    manifest.Write("dps", Base());
    EXPECT_EQ(KManifest::Read("dps", Base())->GetEntries(), manifest.GetEntries());
    EXPECT_EQ(manifest.GetEntries().size(), 5u);
    EXPECT_EQ(tree.Mode("base/dps/manifest"), 0600u);
}

/// What was digested while a run copied is not read again, unless it has become another file.
TEST_F(KManifestTest, ADigestOfAFileOfAnotherSizeDoesNotCount) {
    tree.Write("p/same", "bytes");
    tree.Write("p/other", "bytes");
    KSETUP::KFileDigest known;
    known.sha256 = "known";
    known.size = 5;
    const std::string same = tree.Path("p/same");
    const std::string other = tree.Path("p/other");
    KSETUP::KKeptDigests digests{{same, known}};
    known.size = 4;
    digests[other] = known;
    const KManifest manifest({same, other}, digests);
    EXPECT_EQ(manifest.Find(tree.Path("p/same"))->digest, "known");
    EXPECT_EQ(
        manifest.Find(tree.Path("p/other"))->digest, KSETUP::DigestFile(tree.Path("p/other")).sha256
    );
}

/// Those of a directory are looked at by the open directory.
TEST_F(KManifestTest, ALookAtManyPathsSeesWhatALookAtEachDoes) {
    tree.Write("q/first", "1");
    tree.Write("q/second", "22");
    tree.Link("q/third", "second");
    tree.Link("way", "q");
    KSETUP::KEntryLook look;
    for (const char* name :
         {"p",
          "p/conf",
          "p/file",
          "p/file/x",
          "p/file/y",
          "p/link",
          "p/none",
          "q",
          "q/first",
          "q/second",
          "q/third",
          "none/a",
          "none/b",
          "none/c",
          "way/first",
          "way/second",
          "p/file"}) {
        const std::string path = tree.Path(name);
        unsigned whyMissing = 0;
        unsigned whyAlone = 0;
        EXPECT_EQ(look.At(path, whyMissing), KSETUP::LookAtEntry(path, &whyAlone)) << path;
        EXPECT_EQ(whyMissing, whyAlone) << path;
    }
    for (int times = 0; times < 3; ++times) {
        unsigned whyMissing = 0;
        EXPECT_EQ(look.At("/", whyMissing), KSETUP::LookAtEntry("/"));
    }
}

TEST_F(KManifestTest, ALookAtManyPathsSeesADirectoryThatWasMadeAnew) {
    KSETUP::KEntryLook look;
    unsigned whyMissing = 0;
    EXPECT_FALSE(look.At(tree.Path("new/a"), whyMissing));
    EXPECT_FALSE(look.At(tree.Path("new/b"), whyMissing));
    tree.Write("new/c", "bytes");
    EXPECT_TRUE(look.At(tree.Path("new/c"), whyMissing));
}

/// More than is written at a time.
TEST_F(KManifestTest, AManifestOfManyFilesIsWhole) {
    constexpr std::size_t count = 1000;
    std::vector<std::string> paths;
    for (std::size_t index = 0; index < count; ++index) {
        const std::string name = "p/many/" + std::to_string(index);
        tree.Write(name, name);
        paths.push_back(tree.Path(name));
    }
    const KManifest manifest(paths);
    manifest.Write("dps", Base());
    ASSERT_GT(tree.Read("base/dps/manifest").size(), std::size_t{2} * 65536);
    EXPECT_EQ(KManifest::Read("dps", Base())->GetEntries(), manifest.GetEntries());
    EXPECT_EQ(manifest.GetEntries().size(), count);
}

TEST_F(KManifestTest, TheProductIsReadWithoutTheRest) {
    KManifest manifest(Paths());
    manifest.Write("dps", Base());
    EXPECT_EQ(KManifest::ReadProduct("dps", Base()), std::nullopt);
    const KSETUP::KManifestProduct product{"2.1", 4, "/opt/dps"};
    manifest.SetProduct(product);
    manifest.Write("dps", Base());
    EXPECT_EQ(KManifest::ReadProduct("dps", Base()), product);
    EXPECT_EQ(KManifest::Read("dps", Base())->GetProduct(), product);
    EXPECT_EQ(KManifest::ReadProduct("none", Base()), std::nullopt);
}

TEST_F(KManifestTest, WhatIsLeftOfAProductIsNoInstalledOne) {
    KManifest manifest(Paths());
    manifest.SetProduct({"2.1", 4, "/opt/dps"});
    EXPECT_EQ(manifest.WithoutMissing().GetProduct(), std::nullopt);
}

TEST_F(KManifestTest, AFileHasItsDigest) {
    const auto entry = KManifest({tree.Path("p/file")}).GetEntries().at(tree.Path("p/file"));
    EXPECT_EQ(entry.digest, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(entry.size, 3u);
    EXPECT_EQ(entry.mode, 0755u);
}

TEST_F(KManifestTest, WhatWasLeftAloneDoesNotDiffer) {
    GivenManifest();
    EXPECT_THAT(Differences(), IsEmpty());
}

TEST_F(KManifestTest, EachDifferenceIsTold) {
    GivenManifest();
    tree.Write("p/file", "abd", 0755);
    tree.Write("p/a\nb\xFF", "short");
    tree.SetMode("p/conf", 0666);
    tree.Remove("p/link");
    tree.Link("p/link", "conf");
    EXPECT_THAT(
        Differences(),
        ElementsAre(
            "a\nb\xFF has 5 bytes instead of 3000000",
            "conf has mode 0666 instead of 0644",
            "file has another content of the same size",
            "link leads to conf instead of file"
        )
    );
}

TEST_F(KManifestTest, WhatIsGoneAndWhatChangedItsKindIsTold) {
    GivenManifest();
    tree.Remove("p/file");
    tree.Remove("p/conf");
    tree.Directory("p/conf");
    tree.Remove("p/link");
    tree.Fifo("p/link");
    EXPECT_THAT(
        Differences(),
        ElementsAre(
            "conf is a directory instead of a file",
            "file is missing",
            "link is a device, a queue or a socket instead of a link"
        )
    );
}

TEST_F(KManifestTest, AnEditedConfigurationIsNoDifference) {
    GivenManifest();
    tree.Write("p/conf", "key=another\n");
    EXPECT_THAT(Differences({tree.Path("p/conf")}), IsEmpty());
    tree.SetMode("p/conf", 0666);
    EXPECT_THAT(
        Differences({tree.Path("p/conf")}), ElementsAre("conf has mode 0666 instead of 0644")
    );
}

TEST_F(KManifestTest, AnUpgradeKeepsWhatIsStillThereAsItWasInstalled) {
    const KManifest former(Paths());
    tree.Remove("p/link");
    tree.Write("p/conf", "edited\n");
    KManifest manifest({tree.Path("p/file")});
    manifest.Merge(former);
    EXPECT_FALSE(manifest.GetEntries().contains(tree.Path("p/link")));
    EXPECT_EQ(
        manifest.GetEntries().at(tree.Path("p/conf")), former.GetEntries().at(tree.Path("p/conf"))
    );
}

TEST_F(KManifestTest, ARemovalLearnsWhatItLeftBehind) {
    const KManifest manifest(Paths());
    tree.Remove("p/file");
    tree.Remove("p/a\nb\xFF");
    tree.Remove("p/link");
    EXPECT_THAT(manifest.FindRemaining(), ElementsAre(tree.Path("p"), tree.Path("p/conf")));
}

TEST_F(KManifestTest, WhatWasInADirectoryThatIsGoneIsNotAskedFor) {
    tree.Write("p/sub/a", "a");
    tree.Write("p/sub/b", "b");
    tree.Write("p/sub-more", "beside it");
    const KManifest manifest(
        {tree.Path("p/sub"), tree.Path("p/sub-more"), tree.Path("p/sub/a"), tree.Path("p/sub/b")}
    );
    tree.Remove("p/sub");
    failcall_arm("fstatat", UINT_MAX, EIO, 0);
    EXPECT_THAT(manifest.FindRemaining(), ElementsAre(tree.Path("p/sub-more")));
    EXPECT_EQ(failcall_disarm(), 2U);
    EXPECT_EQ(manifest.WithoutMissing().GetEntries().size(), 1U);
}

TEST_F(KManifestTest, APathThatIsWrittenInTwoWaysIsOne) {
    KManifest({tree.Path("p//conf"), tree.Path("p/./conf")}).Write("dps", Base());
    EXPECT_EQ(KManifest::Read("dps", Base())->GetEntries().size(), 1u);
    tree.Write("p/conf", "key=another\n");
    EXPECT_THAT(Differences({tree.Path("p/x/../conf/")}), IsEmpty());
}

TEST_F(KManifestTest, APathThatCannotBeLookedAtIsAFailure) {
    const std::string tooLong = tree.Path("p/" + std::string(NAME_MAX + 1, 'x'));
    try {
        const KManifest manifest({tree.Path("p/file"), tooLong});
        ADD_FAILURE() << "it was left out";
    } catch (const KSetupFailure& failure) {
        EXPECT_EQ(failure.GetExitCode(), KSETUP::ExitCode::cannotWrite);
        EXPECT_THAT(failure.what(), HasSubstr(tooLong + ": File name too long"));
    }
}

TEST_F(KManifestTest, WhatIsNotThereIsLeftOut) {
    const KManifest manifest({tree.Path("p/file"), tree.Path("p/gone"), tree.Path("p/file/x")});
    EXPECT_EQ(manifest.GetEntries().size(), 1U);
}

TEST_F(KManifestTest, NoManifestIsNothing) {
    EXPECT_FALSE(KManifest::Read("dps", Base()).has_value());
    EXPECT_NO_THROW(KManifest::Remove("dps", Base()));
    EXPECT_FALSE(tree.Exists("base"));
}

TEST_F(KManifestTest, ARemovedManifestIsGone) {
    GivenManifest();
    KManifest::Remove("dps", Base());
    EXPECT_FALSE(KManifest::Read("dps", Base()).has_value());
}

class NoManifestTest : public KManifestTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(NoManifestTest, IsAClearFailure) {
    tree.Write("base/dps/manifest", GetParam(), 0600);
    try {
        KManifest::Read("dps", Base());
        ADD_FAILURE() << "it was read";
    } catch (const KSetupFailure& failure) {
        EXPECT_EQ(failure.GetExitCode(), KSETUP::ExitCode::malformedScript);
        EXPECT_THAT(failure.what(), HasSubstr("dps/manifest cannot be understood ("));
    }
}

#define MANIFEST_HEAD "{\"format\":\"ins++ manifest\",\"formatVersion\":1}\n"
INSTANTIATE_TEST_SUITE_P(
    Texts,
    NoManifestTest,
    ::testing::Values(
        "",
        "\n",
        "nonsense",
        MANIFEST_HEAD,
        MANIFEST_HEAD "{\"entries\":1}\n",
        MANIFEST_HEAD "{\"entries\":0}\n{\"entries\":0}\n",
        "{\"format\":\"ins++ manifest\",\"formatVersion\":2}\n{\"entries\":0}\n",
        MANIFEST_HEAD "{\"kind\":\"pipe\",\"path\":\"/a\"}\n{\"entries\":1}\n",
        MANIFEST_HEAD "{\"kind\":\"link\",\"path\":\"/a\"}\n{\"entries\":1}\n",
        MANIFEST_HEAD
        "{\"kind\":\"directory\",\"mode\":\"0755\",\"path\":\"/a\"}\n{\"entries\":1}\n",
        MANIFEST_HEAD "{\"kind\":\"directory\",\"mode\":493}\n{\"entries\":1}\n"
    )
);

TEST_F(KManifestTest, WhatCannotBeLookedAtIsNeitherThereNorGone) {
    const KManifest manifest({tree.Path("p/file")});
    failcall_arm("fstatat", 1, EIO, 1);
    EXPECT_THROW(static_cast<void>(manifest.WithoutMissing()), KSetupFailure);
    EXPECT_GT(failcall_disarm(), 0U);
    EXPECT_TRUE(manifest.WithoutMissing().GetEntries().contains(tree.Path("p/file")));
}

TEST_F(KManifestTest, ALinkThatCannotBeReadIsNotWrittenDownAsLeadingNowhere) {
    std::string words;
    failcall_arm("readlinkat", 1, EIO, 0);
    try {
        KManifest({tree.Path("p/link")});
    } catch (const KSetupFailure& failure) {
        words = failure.what();
    }
    failcall_disarm();
    EXPECT_THAT(words, HasSubstr("cannot read " + tree.Path("p/link") + ": Input/output error"));
}

} // namespace
