// SPDX-License-Identifier: MIT
#include "../../support/TemporaryTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include <bundle/KBundleError.h>
#include <bundle/UnpackBundle.h>
#include <bundle/WriteBundle.h>
#include <sys/files/FileCalls.h>

namespace {

using KBUNDLE::KBundleError;
using ::testing::HasSubstr;

/// A bundle of a few files, "it.run", which can be changed and unpacked.
class BundleFileTest : public ::testing::Test {
  protected:
    BundleFileTest() {
        tree.Write("head", "the program");
        tree.Write("kit/first", "in front", 0755);
        tree.Write("kit/empty", "");
        tree.Write("kit/sub/deep/large", large, 0600);
        tree.Directory("kit/none", 0711);
        tree.Directory("out");
        KBUNDLE::WriteBundle(
            {.head = tree.Path("head"), .directory = tree.Path("kit"), .place = "/opt/it"},
            tree.Path("it.run")
        );
        whole = tree.Read("it.run");
    }

    /// Reads it anew; with `unpack` into "out".
    std::string Refusal(bool unpack = true) {
        KSYS::KDescriptor file;
        struct stat status {};
        EXPECT_EQ(KSYS::OpenRegular(tree.Path("it.run").c_str(), file, status), 0U);
        try {
            const KBUNDLE::KBundleReader bundle(file.Get(), "it.run");
            if (unpack) {
                UnpackBundle(bundle, tree.Path("out"), part, shallStop);
            } else {
                VerifyBundle(bundle);
            }
        } catch (const KBundleError& error) {
            kind = error.GetKind();
            return error.what();
        }
        return "";
    }

    KTEST::TemporaryTree tree;
    const std::string large = std::string(1 << 20, 'x') + "end";
    std::string whole;
    KBUNDLE::BundlePart part = KBUNDLE::BundlePart::Everything;
    std::function<bool()> shallStop;
    KBundleError::Kind kind{};
};

TEST_F(BundleFileTest, IsUnpackedAsItWasPacked) {
    tree.Write("kit/first", "another, which is not in it");
    EXPECT_EQ(Refusal(), "");
    EXPECT_EQ(tree.Read("out/first"), "in front");
    EXPECT_EQ(tree.Mode("out/first"), 0755U);
    EXPECT_EQ(tree.Read("out/empty"), "");
    EXPECT_EQ(tree.Read("out/sub/deep/large"), tree.Read("kit/sub/deep/large"));
    EXPECT_EQ(tree.Mode("out/sub/deep/large"), 0600U);
    EXPECT_EQ(tree.Mode("out/none"), 0711U);
    EXPECT_EQ(
        std::filesystem::last_write_time(tree.Path("out/sub/deep/large")),
        std::filesystem::last_write_time(tree.Path("kit/sub/deep/large"))
    );
    EXPECT_EQ(
        std::filesystem::last_write_time(tree.Path("out/sub")),
        std::filesystem::last_write_time(tree.Path("kit/sub"))
    );
}

TEST_F(BundleFileTest, BeginsWithTheProgramAndIsTheSameEachTime) {
    EXPECT_TRUE(whole.starts_with("the program"));
    KBUNDLE::WriteBundle(
        {.head = tree.Path("head"), .directory = tree.Path("kit"), .place = "/opt/it"},
        tree.Path("again.run")
    );
    EXPECT_EQ(tree.Read("again.run"), whole);
    EXPECT_EQ(tree.Mode("it.run"), 0755U);
}

TEST_F(BundleFileTest, FilesInFrontComeWithoutTheOthers) {
    part = KBUNDLE::BundlePart::FilesInFront;
    EXPECT_EQ(Refusal(), "");
    EXPECT_TRUE(tree.Exists("out/first"));
    EXPECT_TRUE(tree.Exists("out/empty"));
    EXPECT_FALSE(tree.Exists("out/sub"));
}

/// Questions are answered in the user's language too.
TEST_F(BundleFileTest, TextsAreInFront) {
    tree.Write("kit/locale/de/words", "Worte");
    tree.Write("kit/localed/words", "of something else");
    std::filesystem::remove(tree.Path("it.run"));
    KBUNDLE::WriteBundle(
        {.head = tree.Path("head"), .directory = tree.Path("kit"), .place = ""}, tree.Path("it.run")
    );
    part = KBUNDLE::BundlePart::FilesInFront;
    EXPECT_EQ(Refusal(), "");
    EXPECT_EQ(tree.Read("out/locale/de/words"), "Worte");
    EXPECT_EQ(tree.Mode("out/locale/de"), tree.Mode("kit/locale/de"));
    EXPECT_TRUE(tree.Exists("out/first"));
    EXPECT_FALSE(tree.Exists("out/localed"));
    EXPECT_FALSE(tree.Exists("out/sub"));
}

TEST_F(BundleFileTest, OneThatIsCutAnywhereIsNotUnpacked) {
    for (std::size_t bytes = 0; bytes < whole.size(); ++bytes) {
        tree.Write("it.run", whole.substr(0, bytes));
        EXPECT_NE(Refusal(), "") << bytes;
        std::filesystem::remove_all(tree.Path("out"));
        tree.Directory("out");
    }
}

/// Some bits of a frame mean nothing; whatever is unpacked is what was packed.
TEST_F(BundleFileTest, AByteThatIsChangedAnywhereIsFoundOrMeansNothing) {
    unsigned found = 0;
    for (std::size_t at = 0; at < whole.size(); ++at) {
        std::string changed = whole;
        changed[at] = static_cast<char>(changed[at] ^ 1);
        tree.Write("it.run", changed);
        const bool isRefused = !Refusal().empty() || !Refusal(false).empty();
        EXPECT_TRUE(isRefused || tree.Read("out/sub/deep/large") == large) << at;
        found += isRefused ? 1 : 0;
        std::filesystem::remove_all(tree.Path("out"));
        tree.Directory("out");
    }
    EXPECT_GT(found, whole.size() * 9 / 10);
}

TEST_F(BundleFileTest, MoreFilesThanTheTableHasAreRefused) {
    // The data of this one with the table of another, which has a file less.
    std::filesystem::remove(tree.Path("kit/sub/deep/large"));
    KBUNDLE::WriteBundle(
        {.head = tree.Path("head"), .directory = tree.Path("kit"), .place = "/opt/it"},
        tree.Path("less.run")
    );
    const std::string less = tree.Read("less.run");
    auto end = *KBUNDLE::ReadBundleEnd(whole, whole.size());
    const auto other = *KBUNDLE::ReadBundleEnd(less, less.size());
    end.tableBytes = other.tableBytes;
    end.tableContentBytes = other.tableContentBytes;
    end.tableSha256 = other.tableSha256;
    tree.Write(
        "it.run",
        whole.substr(0, end.headBytes + end.dataBytes) +
            less.substr(other.headBytes + other.dataBytes, other.tableBytes) + ToBytes(end)
    );
    EXPECT_THAT(Refusal(), HasSubstr("more in it than its table says"));
    EXPECT_EQ(kind, KBundleError::Kind::Damaged);
}

TEST_F(BundleFileTest, WhatIsThereAlreadyIsNotWrittenThrough) {
    tree.Write("victim", "mine");
    tree.Link("out/first", tree.Path("victim"));
    EXPECT_THAT(Refusal(), HasSubstr("out/first"));
    EXPECT_EQ(kind, KBundleError::Kind::CannotWrite);
    EXPECT_EQ(tree.Read("victim"), "mine");
}

TEST_F(BundleFileTest, UnpackingStopsOnRequest) {
    unsigned pieces = 0;
    shallStop = [&] { return ++pieces > 2; };
    EXPECT_NE(Refusal(), "");
    EXPECT_EQ(kind, KBundleError::Kind::Stopped);
}

TEST_F(BundleFileTest, TheHeadIsVerifiedToo) {
    tree.Write("it.run", "The" + whole.substr(3));
    EXPECT_EQ(Refusal(), "");
    EXPECT_THAT(Refusal(false), HasSubstr("program in front"));
}

TEST_F(BundleFileTest, AFileOfAnotherKindIsNoBundle) {
    tree.Write("it.run", std::string(1000, 'x'));
    EXPECT_THAT(Refusal(), HasSubstr("no bundle"));
    EXPECT_EQ(kind, KBundleError::Kind::NoBundle);
}

TEST_F(BundleFileTest, LinksAreNotPacked) {
    tree.Link("kit/way", "/etc/passwd");
    EXPECT_THROW(
        KBUNDLE::WriteBundle(
            {.head = tree.Path("head"), .directory = tree.Path("kit"), .place = ""},
            tree.Path("links.run")
        ),
        KBundleError
    );
}

TEST_F(BundleFileTest, ItsNeedsAreWholeBlocks) {
    KSYS::KDescriptor file;
    struct stat status {};
    ASSERT_EQ(KSYS::OpenRegular(tree.Path("it.run").c_str(), file, status), 0U);
    const KBUNDLE::KBundleReader bundle(file.Get(), "it.run");
    const auto all = NeedsOf(bundle.GetTable(), KBUNDLE::BundlePart::Everything, 4096);
    EXPECT_EQ(all.entries, 6U); // three files, three directories
    EXPECT_EQ(all.bytes, 4096U * 4 + (1U << 20U) + 4096);
    const auto front = NeedsOf(bundle.GetTable(), KBUNDLE::BundlePart::FilesInFront, 4096);
    EXPECT_EQ(front.entries, 2U);
    EXPECT_EQ(front.bytes, 4096U);
}

} // namespace
