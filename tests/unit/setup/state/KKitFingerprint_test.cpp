// SPDX-License-Identifier: MIT
#include "../../../support/TemporaryTree.h"

#include <setup/KSetupStop.h>
#include <setup/state/KKitFingerprint.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

namespace {

using KSETUP::KInstalledKit;
using KSETUP::KKitFingerprint;

class KKitFingerprintTest : public ::testing::Test {
  protected:
    KKitFingerprintTest() {
        tree.Write("kit/install.ini", "script");
        tree.Write("kit/a/file", "bytes");
        tree.Link("kit/a/link", "file");
        tree.Directory("kit/empty");
    }

    KKitFingerprint Kit() const {
        return KKitFingerprint(std::make_shared<KSETUP::KKitLook>(tree.Path("kit")));
    }
    std::string Look() const { return Kit().GetLook(); }
    std::string Content() const { return Kit().ReadContent(); }
    void SetTime(const std::string& path, const std::filesystem::file_time_type& time) {
        std::filesystem::last_write_time(tree.Path(path), time);
    }

    KTEST::TemporaryTree tree;
    const std::filesystem::file_time_type later =
        std::filesystem::file_time_type::clock::now() + std::chrono::hours(1);
};

TEST_F(KKitFingerprintTest, IsTheSameForWhatWasNotTouched) {
    EXPECT_EQ(Look(), Look());
    EXPECT_EQ(Content(), Content());
    EXPECT_EQ(Look().size(), 64U);
}

TEST_F(KKitFingerprintTest, ATimeIsSeenByTheLookOnly) {
    const std::string look = Look();
    const std::string content = Content();
    SetTime("kit/a/file", later);
    EXPECT_NE(Look(), look);
    EXPECT_EQ(Content(), content);
}

TEST_F(KKitFingerprintTest, AContentOfTheSameSizeAndTimeIsSeenByReadingOnly) {
    SetTime("kit/a/file", later);
    const std::string look = Look();
    const std::string content = Content();
    tree.Write("kit/a/file", "BYTES");
    SetTime("kit/a/file", later);
    EXPECT_EQ(Look(), look);
    EXPECT_NE(Content(), content);
}

TEST_F(KKitFingerprintTest, ModesLinksAndNamesAreSeenByBoth) {
    std::string look = Look();
    std::string content = Content();
    const auto expectAnother = [&](const char* what) {
        EXPECT_NE(Look(), look) << what;
        EXPECT_NE(Content(), content) << what;
        look = Look();
        content = Content();
    };
    ::chmod(tree.Path("kit/a/file").c_str(), 0600);
    expectAnother("mode");
    tree.Remove("kit/a/link");
    expectAnother("a link that is gone");
    tree.Link("kit/a/link", "elsewhere");
    expectAnother("link");
    tree.Directory("kit/more");
    expectAnother("directory");
    std::filesystem::rename(tree.Path("kit/a/file"), tree.Path("kit/a/fil"));
    expectAnother("name");
}

TEST_F(KKitFingerprintTest, AFileWithAKnownDigestIsNotRead) {
    const std::string content = Content();
    const std::string path = tree.Path("kit/a/file");
    const KSETUP::KFileDigest digest = KSETUP::DigestFile(path);
    KKitFingerprint::KnownFiles known{{path, {digest.size, digest.sha256}}};
    tree.Write("kit/a/file", "BYTES");
    EXPECT_EQ(Kit().ReadContent(known), content);
    known.at(path).size = 4;
    EXPECT_NE(Kit().ReadContent(known), content);
}

TEST_F(KKitFingerprintTest, ReadingCanBeStopped) {
    const KKitFingerprint kit = Kit();
    EXPECT_THROW(kit.ReadContent({}, [] { return true; }), KSETUP::KSetupStop);
}

TEST_F(KKitFingerprintTest, IsRememberedUntilItIsRemoved) {
    const std::string base = tree.Path("base");
    EXPECT_FALSE(KInstalledKit::Read("svc", base).has_value());
    KInstalledKit{"look", "content", "manifest"}.Write("svc", base);
    const auto read = KInstalledKit::Read("svc", base);
    ASSERT_TRUE(read.has_value());
    EXPECT_EQ(read->look + read->content + read->manifest, "lookcontentmanifest");
    KInstalledKit::Remove("svc", base);
    EXPECT_FALSE(KInstalledKit::Read("svc", base).has_value());
}

TEST_F(KKitFingerprintTest, OneThatCannotBeUnderstoodIsNone) {
    const std::string base = tree.Path("base");
    KInstalledKit{"look", "content", "manifest"}.Write("svc", base);
    for (const char* text : {"", "nonsense", "{}", "{\"format\":\"other\",\"formatVersion\":1}"}) {
        tree.Write("base/svc/fingerprint", text);
        EXPECT_FALSE(KInstalledKit::Read("svc", base).has_value()) << text;
    }
}

} // namespace
