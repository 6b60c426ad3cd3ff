// SPDX-License-Identifier: MIT
#include "../../support/NameOfRow.h"
#include "KFileFixture.h"

#include <sup++/KDirectory.h>
#include <sup++/SvcFile.h>

#include <cerrno>

namespace KTEST {
namespace {

using KSUP::KFile;
using testing::ElementsAre;

class KFileSecondNameTest : public KFileTest {
  protected:
    KFileSecondNameTest() { tree.Write("from/file", "bytes"); }

    unsigned Link(const std::string& file, const std::string& name) {
        return KFile::Link(tree.Path(file), nullptr, tree.Path(name), nullptr);
    }
    bool IsOne(const std::string& left, const std::string& right) const {
        return tree.Status(left).st_ino == tree.Status(right).st_ino;
    }
};

TEST_F(KFileSecondNameTest, GivesAFileAnotherName) {
    tree.Directory("to");
    EXPECT_EQ(Link("from/file", "to/name"), 0U);
    EXPECT_TRUE(IsOne("from/file", "to/name"));
}

TEST_F(KFileSecondNameTest, ByDirectoriesThatAreHeldOpen) {
    tree.Directory("to");
    KSUP::KDirectory from(tree.Path("from"), KSUP::KDirectory::Purpose::Read);
    KSUP::KDirectory to(tree.Path("to"), KSUP::KDirectory::Purpose::Write);
    EXPECT_EQ(KFile::Link(tree.Path("from/file"), &from, tree.Path("to/name"), &to), 0U);
    EXPECT_TRUE(IsOne("from/file", "to/name"));
}

TEST_F(KFileSecondNameTest, ReplacesNothing) {
    tree.Write("to/name", "there");
    tree.Link("to/link", "name");
    EXPECT_EQ(Link("from/file", "to/name"), unsigned{EEXIST});
    EXPECT_EQ(Link("from/file", "to/link"), unsigned{EEXIST});
    EXPECT_EQ(tree.Read("to/name"), "there");
}

TEST_F(KFileSecondNameTest, TellsWhatIsMissing) {
    EXPECT_EQ(Link("from/none", "from/name"), unsigned{ENOENT});
    EXPECT_EQ(Link("from/file", "none/name"), unsigned{ENOENT});
}

TEST_F(KFileSecondNameTest, IsToldAsAFileThatWasWritten) {
    std::vector<std::string> told;
    const auto listen = [](void* to, unsigned what, const char* path) noexcept {
        static_cast<std::vector<std::string>*>(to)->push_back(std::to_string(what) + path);
    };
    ASSERT_EQ(SvcSetWriteListener(listen, &told), 0U);
    EXPECT_EQ(Link("from/file", "from/name"), 0U);
    EXPECT_NE(Link("from/file", "from/name"), 0U);
    ASSERT_EQ(SvcSetWriteListener(nullptr, nullptr), 0U);
    EXPECT_THAT(told, ElementsAre(std::to_string(SvcWroteFile) + tree.Path("from/name")));
}

TEST_F(KFileSecondNameTest, IsNotLaidBehindALinkOfSomebodyElse) {
    SKIP_UNLESS_ROOT("lay a link that is not trusted");
    tree.Directory("to");
    tree.Directory("theirs", 0777);
    tree.Link("theirs/to", "../to");
    tree.SetOwner("theirs", nobodyId, nobodyId);
    EXPECT_EQ(Link("from/file", "theirs/to/name"), unsigned{ELOOP});
    EXPECT_FALSE(tree.Exists("to/name"));
}

} // namespace
} // namespace KTEST
