// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/KSetupStop.h>
#include <setup/kit/KitSeal.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>

namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

class KitSealTest : public ::testing::Test {
  protected:
    KitSealTest() {
        tree.Write("kit/install.ini", "[install]\n");
        tree.Write("kit/bin/tool", "bytes", 0755);
    }
    std::size_t Seal() { return KSETUP::WriteSeal(tree.Path("kit")); }
    /// What the kit is refused with; empty when it is fine.
    std::string Verify(KSETUP::KSealExtent extent = KSETUP::KSealExtent::Whole) {
        try {
            KSETUP::VerifySeal(tree.Path("kit"), extent);
        } catch (const KSETUP::KSetupFailure& failure) {
            return failure.what();
        }
        return {};
    }

    static int Shell(const std::string& command) {
        return std::system(command.c_str()); // NOLINT: the very program is the point
    }

    KTEST::TemporaryTree tree;
};

TEST_F(KitSealTest, ASealIsSortedAndInTheFormatOfSha256sum) {
    EXPECT_EQ(Seal(), 2U);
    EXPECT_EQ(
        tree.Read("kit/SHA256SUMS"),
        "#mode 0755\n"
        "277089d91c0bdf4f2e6862ba7e4a07605119431f5d13f726dd352b06f1b206a9  bin/tool\n"
        "#mode 0644\n"
        "490cd15464f572c67f425b1e7797ca92464fc380858d76aa8fad245ec33c0b97  install.ini\n"
    );
    EXPECT_EQ(Verify(), "");
}

TEST_F(KitSealTest, WhatWasReadIsKnownByItsPath) {
    tree.Link("kit/link", "bin/tool");
    tree.Link("kit/copy", tree.Path("kit/install.ini"));
    EXPECT_THAT(KSETUP::VerifySeal(tree.Path("kit")), IsEmpty()) << "it has no seal";
    EXPECT_EQ(Seal(), 4U);
    std::map<std::string, std::string> sums;
    for (const auto& [path, digest] : KSETUP::VerifySeal(tree.Path("kit"))) {
        EXPECT_EQ(digest.size, std::filesystem::file_size(path));
        sums[path] = digest.sha256.substr(0, 4);
    }
    EXPECT_THAT(
        sums,
        UnorderedElementsAre(
            Pair(tree.Path("kit/bin/tool"), "2770"),
            Pair(tree.Path("kit/install.ini"), "490c"),
            Pair(tree.Path("kit/link"), "2770"),
            Pair(tree.Path("kit/copy"), "490c"),
            Pair(
                tree.Path("kit/SHA256SUMS"),
                KSETUP::DigestBytes(tree.Read("kit/SHA256SUMS")).substr(0, 4)
            )
        )
    );
}

TEST_F(KitSealTest, ARemovalNeedsNoPayloadButWhatIsThereIsTrue) {
    Seal();
    tree.Remove("kit/bin/tool");
    EXPECT_THAT(Verify(), HasSubstr("bin/tool: missing"));
    EXPECT_EQ(Verify(KSETUP::KSealExtent::WhatIsThere), "");
    tree.Write("kit/install.ini", "[remove]\n");
    EXPECT_THAT(Verify(KSETUP::KSealExtent::WhatIsThere), HasSubstr("install.ini: changed"));
}

TEST_F(KitSealTest, Sha256sumAgrees) {
    tree.Write("kit/a b", "1");
    tree.Write("kit/back\\slash", "2");
    tree.Write("kit/new\nline", "3");
    tree.Write("kit/return\r", "4");
    tree.Write(
        "kit/gr\xC3\xB6\xC3\x9F"
        "e",
        "5"
    );
    tree.Write("kit/empty", "");
    tree.Write("kit/large", KTEST::ArbitraryBytes(200000));
    EXPECT_EQ(Seal(), 9U);
    EXPECT_EQ(Verify(), "");
    const std::string command =
        "cd '" + tree.Path("kit") + "' && sha256sum --strict --quiet -c SHA256SUMS";
    EXPECT_EQ(Shell(command), 0);
}

TEST_F(KitSealTest, AKitWithoutASealIsFine) {
    EXPECT_EQ(Verify(), "");
    EXPECT_FALSE(KSETUP::IsSealed(tree.Path("kit")));
}

TEST_F(KitSealTest, AChangedFileIsNamed) {
    Seal();
    tree.Write("kit/bin/tool", "Bytes", 0755);
    EXPECT_THAT(Verify(), HasSubstr("\n    bin/tool: changed"));
}

TEST_F(KitSealTest, AnotherModeIsNamedWhichSha256sumDoesNotSee) {
    Seal();
    tree.SetMode("kit/bin/tool", 04755);
    EXPECT_THAT(Verify(), HasSubstr("\n    bin/tool: sealed as mode 0755, now mode 4755"));
    const std::string command = "cd '" + tree.Path("kit") + "' && sha256sum --strict -c SHA256SUMS";
    EXPECT_EQ(Shell(command + " > /dev/null"), 0);
    tree.SetMode("kit/bin/tool", 0775); // which no run takes, and a copy has not
    EXPECT_EQ(Verify(), "");
}

TEST_F(KitSealTest, ALinkToTheSameBytesElsewhereIsNamed) {
    tree.Write("kit/bin/other", "bytes", 0755);
    tree.Link("kit/link", "bin/tool");
    Seal();
    tree.Remove("kit/link");
    tree.Link("kit/link", "bin/other");
    EXPECT_THAT(Verify(), HasSubstr("link: sealed as link bin/tool, now link bin/other"));
    tree.Remove("kit/link");
    tree.Write("kit/link", "bytes", 0755);
    EXPECT_THAT(Verify(), HasSubstr("link: sealed as link bin/tool, now mode 0755"));
}

TEST_F(KitSealTest, WhereALinkLeadsMayHaveAnyLetters) {
    tree.Write("kit/a\nb\\", "1");
    tree.Link("kit/link", "a\nb\\");
    Seal();
    EXPECT_EQ(Verify(), "");
}

TEST_F(KitSealTest, ASealOfSha256sumSaysNothingOfModes) {
    const std::string command =
        "cd '" + tree.Path("kit") +
        "' && sha256sum bin/tool install.ini > sums && { echo '# mine'; cat "
        "sums; } > SHA256SUMS && rm sums";
    EXPECT_EQ(Shell(command), 0);
    tree.SetMode("kit/bin/tool", 0700);
    EXPECT_EQ(Verify(), "");
}

TEST_F(KitSealTest, AMissingFileIsNamed) {
    Seal();
    tree.Remove("kit/bin/tool");
    EXPECT_THAT(Verify(), HasSubstr("\n    bin/tool: missing"));
}

TEST_F(KitSealTest, AFileThatNobodyListedIsNamed) {
    Seal();
    tree.Write("kit/bin/.hidden", "");
    EXPECT_THAT(Verify(), HasSubstr("\n    bin/.hidden: not listed"));
}

TEST_F(KitSealTest, ALinkInsteadOfAFileCountsByWhatItLeadsTo) {
    tree.Link("kit/link", "bin/tool");
    EXPECT_EQ(Seal(), 3U);
    EXPECT_EQ(Verify(), "");
    tree.Remove("kit/link");
    tree.Link("kit/link", "install.ini");
    EXPECT_THAT(Verify(), HasSubstr("\n    link: changed"));
}

/// Where a link leads to, the file can be another one by the time it is copied.
TEST_F(KitSealTest, ALinkThatLeadsOutOfTheKitIsRefused) {
    tree.Write("beside", "outside");
    tree.Link("round", "kit/bin/tool");
    tree.Write("kit/out", "outside");
    EXPECT_EQ(Seal(), 3U);
    EXPECT_EQ(Verify(), "");
    for (const std::string& target : {tree.Path("beside"), std::string("../beside")}) {
        tree.Remove("kit/out");
        tree.Link("kit/out", target);
        EXPECT_THAT(Verify(), HasSubstr("\n    out: a link that leads out of the kit")) << target;
        EXPECT_THROW(Seal(), KSETUP::KSetupFailure) << target;
    }
    tree.Remove("kit/out");
    tree.Link("kit/out", "../round"); // and in again
    EXPECT_THAT(Verify(), HasSubstr("\n    out: a link that leads out of the kit"));
}

TEST_F(KitSealTest, ASealThatIsALinkOutOfTheKitIsRefused) {
    Seal();
    tree.Write("sums", tree.Read("kit/SHA256SUMS"));
    tree.Remove("kit/SHA256SUMS");
    tree.Link("kit/SHA256SUMS", "../sums");
    EXPECT_THAT(Verify(), HasSubstr("SHA256SUMS: this link leads out of the kit"));
}

TEST_F(KitSealTest, WhatIsNoFileIsNeitherSealedNorPassedOver) {
    Seal();
    tree.Link("kit/directory", "/usr");
    EXPECT_THAT(Verify(), HasSubstr("directory: neither a file nor a link to one"));
    const std::string before = tree.Read("kit/SHA256SUMS");
    EXPECT_THROW(Seal(), KSETUP::KSetupFailure);
    EXPECT_EQ(tree.Read("kit/SHA256SUMS"), before);
}

TEST_F(KitSealTest, ManyFindingsAreCutShort) {
    Seal();
    for (int index = 0; index < 30; ++index) {
        tree.Write("kit/extra" + std::to_string(index), "");
    }
    EXPECT_THAT(Verify(), HasSubstr("and 10 more"));
}

class BrokenSealTest : public KitSealTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(BrokenSealTest, IsRefused) {
    tree.Write("kit/SHA256SUMS", GetParam());
    EXPECT_NE(Verify(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Seals,
    BrokenSealTest,
    ::testing::Values(
        "",
        "\n",
        "nonsense\n",
        "277089d9  bin/tool\n",
        "277089d91c0bdf4f2e6862ba7e4a07605119431f5d13f726dd352b06f1b206a9 bin/tool\n",
        "277089d91c0bdf4f2e6862ba7e4a07605119431f5d13f726dd352b06f1b206a9  /etc/passwd\n",
        "277089d91c0bdf4f2e6862ba7e4a07605119431f5d13f726dd352b06f1b206a9  ../kit/bin/tool\n",
        "277089d91c0bdf4f2e6862ba7e4a07605119431f5d13f726dd352b06f1b206a9  bin/tool\n"
        "277089d91c0bdf4f2e6862ba7e4a07605119431f5d13f726dd352b06f1b206a9  bin/tool\n",
        "\\277089d91c0bdf4f2e6862ba7e4a07605119431f5d13f726dd352b06f1b206a9  bin/to\\ol\n",
        "277089d91c0bdf4f2e6862ba7e4a07605119431f5d13f726dd352b06f1b206a9  bin/tool\n"
    )
);

TEST_F(KitSealTest, ASealThatLeadsNowhereIsNoKitWithoutASeal) {
    tree.Link("kit/SHA256SUMS", "gone");
    EXPECT_NE(Verify(), "");
}

TEST_F(KitSealTest, ACheckStopsBeforeTheNextChunk) {
    tree.Write("kit/large", KTEST::ArbitraryBytes(5000000));
    Seal();
    tree.Write("kit/large", KTEST::ArbitraryBytes(5000001)); // never found out
    unsigned asked = 0;
    try {
        KSETUP::VerifySeal(tree.Path("kit"), KSETUP::KSealExtent::Whole, [&] {
            return ++asked == 5;
        });
        FAIL() << "went on";
    } catch (const KSETUP::KSetupStop& stop) {
        EXPECT_STREQ(stop.what(), "Stopped on request. Nothing was changed.");
    }
    EXPECT_EQ(asked, 5U);
}

} // namespace
