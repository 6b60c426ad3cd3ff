// SPDX-License-Identifier: MIT
//
// What a bundle holds is decoded ahead of what is written: bundles that are larger than what is decoded
// at a time.
#include "../../faults/failcall.h"
#include "../../support/TemporaryTree.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <thread>

#include <bundle/KBundleError.h>
#include <bundle/UnpackBundle.h>
#include <bundle/WriteBundle.h>
#include <pthread.h>
#include <sys/files/FileCalls.h>

namespace {

using KBUNDLE::KBundleError;
using ::testing::HasSubstr;

constexpr std::size_t mebibyte = std::size_t{1} << 20U;

/// That no thread can be had, for as long as it lives: its stack would be too large.
class KNoThreads {
  public:
    KNoThreads() {
        ::pthread_getattr_default_np(&before);
        ::pthread_attr_t none = before;
        ::pthread_attr_setstacksize(&none, std::size_t{1} << 47U);
        ::pthread_setattr_default_np(&none);
    }
    ~KNoThreads() { ::pthread_setattr_default_np(&before); }
    KNoThreads(const KNoThreads&) = delete;
    KNoThreads& operator=(const KNoThreads&) = delete;

  private:
    ::pthread_attr_t before{};
};

class KFramesTest : public ::testing::Test {
  protected:
    KFramesTest() {
        tree.Write("head", "the program");
        tree.Write("kit/sub/a", one);
        tree.Write("kit/sub/b", other);
        tree.Write("kit/sub/c", "small");
        tree.Write("kit/sub/d", KTEST::ArbitraryBytes(2 * mebibyte, 3));
        tree.Directory("out");
        KBUNDLE::WriteBundle(
            {.head = tree.Path("head"), .directory = tree.Path("kit"), .place = "/opt/it"},
            tree.Path("it.run")
        );
    }

    /// Exchanges the byte that lies so far behind the begin.
    void Damage(std::size_t at) {
        std::string bytes = tree.Read("it.run");
        bytes[at] = static_cast<char>(~bytes[at]);
        tree.Write("it.run", bytes);
    }

    /// Unpacks it into "out".
    std::string Refusal(const std::function<bool()>& shallStop = {}) {
        KSYS::KDescriptor file;
        struct stat status {};
        EXPECT_EQ(KSYS::OpenRegular(tree.Path("it.run").c_str(), file, status), 0U);
        try {
            const KBUNDLE::KBundleReader bundle(file.Get(), "it.run");
            if (armed != 0) {
                failcall_arm("pread", armed, EIO, 0);
            }
            UnpackBundle(bundle, tree.Path("out"), KBUNDLE::BundlePart::Everything, shallStop);
        } catch (const KBundleError& error) {
            failcall_disarm();
            kind = error.GetKind();
            return error.what();
        }
        failcall_disarm();
        return "";
    }

    void ExpectWhole() {
        for (const char* name : {"a", "b", "c", "d"}) {
            const std::string path = std::string("sub/") + name;
            EXPECT_TRUE(tree.Read("out/" + path) == tree.Read("kit/" + path)) << name;
        }
    }

    KTEST::TemporaryTree tree;
    const std::string one = KTEST::ArbitraryBytes(2 * mebibyte + 7);
    const std::string other = KTEST::ArbitraryBytes(2 * mebibyte, 2);
    unsigned armed = 0;
    KBundleError::Kind kind{};
};

TEST_F(KFramesTest, FilesOfManyPiecesComeOutAsTheyWerePacked) {
    EXPECT_EQ(Refusal(), "");
    ExpectWhole();
}

TEST_F(KFramesTest, TheSameWhereNoThreadCanBeHad) {
    const KNoThreads none;
    ASSERT_THROW(std::thread([] {}), std::system_error);
    EXPECT_EQ(Refusal(), "");
    ExpectWhole();
}

TEST_F(KFramesTest, TheFileThatIsDamagedIsNamedAndThoseBeforeItAreWhole) {
    Damage(tree.Read("it.run").size() - mebibyte);
    EXPECT_THAT(Refusal(), HasSubstr("sub/d was changed"));
    EXPECT_EQ(kind, KBundleError::Kind::Damaged);
    EXPECT_TRUE(tree.Read("out/sub/a") == one);
    EXPECT_TRUE(tree.Read("out/sub/b") == other);
    EXPECT_EQ(tree.Read("out/sub/c"), "small");
}

TEST_F(KFramesTest, AnErrorOfTheDiskIsThatOfWhoeverUnpacks) {
    armed = 3;
    EXPECT_EQ(Refusal(), "it.run: Input/output error.");
    EXPECT_EQ(kind, KBundleError::Kind::CannotRead);
}

TEST_F(KFramesTest, ItStopsInBetween) {
    unsigned asked = 0;
    EXPECT_EQ(Refusal([&] { return ++asked == 5; }), "Stopped on request.");
    EXPECT_EQ(kind, KBundleError::Kind::Stopped);
    EXPECT_EQ(asked, 5U);
}

} // namespace
