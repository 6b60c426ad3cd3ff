// SPDX-License-Identifier: MIT
//
// How the file of a profile is written where a signal interrupts the system's calls.
#include "../../../faults/failcall.h"
#include "../../../support/NameOfRow.h"
#include "../../../support/ServiceErrors.h"
#include "../../../support/TemporaryTree.h"
#include "../../sup++/Common.h"

#include <cerrno>

#include <sys/files/KFileReplacement.h>

namespace KTEST {
namespace {

using KSYS::FileIdentity;
using KSYS::KFileReplacement;

struct InterruptionRow {
    const char* name;
    const char* call;
    bool isWrittenOver; ///< the directory lets no file be renamed in it
};

class KFileReplacementInterruptionTest : public testing::Test,
                                         public testing::WithParamInterface<InterruptionRow> {
  protected:
    KFileReplacementInterruptionTest() { tree.Directory("d"); }
    /// Reads the file and puts `text` into its place.
    ///
    /// Returns  the status of the step that failed, or 0
    unsigned Change(const std::string& text) const {
        KFileReplacement lock({::geteuid(), {tree.Path("locks")}});
        std::string former;
        FileIdentity identity;
        bool isReplaced = false;
        if (const unsigned status = lock.Take(tree.Path("d/a.ini").c_str()); status != 0) {
            return status;
        }
        if (const unsigned status = lock.Read(former, identity); status != 0) {
            return status;
        }
        return lock.Write(text, 0644, identity, isReplaced);
    }
    TemporaryTree tree;
};

TEST_P(KFileReplacementInterruptionTest, IsBegunAgain) {
    const InterruptionRow& row = GetParam();
    unsigned nth = 0;
    unsigned calls = 0;
    do { // until none is left to interrupt
        ++nth;
        tree.SetMode("d", 0755);
        tree.Write("d/a.ini", "the former text, which is longer\n");
        GiveToNobody(tree, "d/a.ini");
        GiveToNobody(tree, "d");
        tree.SetMode("d", row.isWrittenOver ? 0555 : 0755);
        tree.Directory("locks", 0700);
        GiveToNobody(tree, "locks");
        unsigned status = 0;
        AsNobody([&] {
            failcall_arm(row.call, nth, EINTR, 0);
            status = Change("new\n");
            calls = failcall_disarm();
        });
        EXPECT_EQ(status, 0U) << "call " << nth;
        EXPECT_EQ(tree.Read("d/a.ini"), "new\n") << "call " << nth;
    } while (calls >= nth && nth < 100);
    EXPECT_GT(nth, 1U) << "it is not called at all";
    EXPECT_LT(nth, 100U) << "a loop without end?";
}

INSTANTIATE_TEST_SUITE_P(
    OfACall,
    KFileReplacementInterruptionTest,
    testing::Values(
        InterruptionRow{"ThatOpensANewFile", "openat", false},
        InterruptionRow{"ThatOpensTheFileItself", "openat", true},
        InterruptionRow{"ThatWrites", "write", false},
        InterruptionRow{"ThatWritesOver", "write", true},
        InterruptionRow{"ThatCutsTheRest", "ftruncate", true},
        InterruptionRow{"ThatFlushesANewFile", "fsync", false},
        InterruptionRow{"ThatFlushesTheFileItself", "fsync", true},
        InterruptionRow{"ThatLocks", "flock", false}
    ),
    NameOfRow()
);

/// Room for a longer text is taken before it is written.
TEST_F(KFileReplacementInterruptionTest, LeavesNoEmptyRoomWhereItCannotWrite) {
    tree.Write("d/a.ini", "former\n");
    GiveToNobody(tree, "d/a.ini");
    GiveToNobody(tree, "d");
    tree.SetMode("d", 0555);
    tree.Directory("locks", 0700);
    GiveToNobody(tree, "locks");
    unsigned status = 0;
    AsNobody([&] {
        failcall_arm("write", 1, EIO, 0);
        status = Change("a text that is longer than the former\n");
        static_cast<void>(failcall_disarm());
    });
    EXPECT_EQ(status, EIO);
    EXPECT_EQ(tree.Read("d/a.ini"), "former\n");
}

struct OwnerRow {
    const char* name;
    uid_t owner; ///< of the directory
    mode_t mode;
    bool isKept;
};

class KFileReplacementOwnerTest : public testing::Test,
                                  public testing::WithParamInterface<OwnerRow> {};

/// A file that somebody laid there must not get them what is written in its place; where nobody else
/// can lay one, its owner is the product's user.
TEST_P(KFileReplacementOwnerTest, IsKeptWhereNobodyElseLaysFiles) {
    if (!IsRoot()) {
        GTEST_SKIP() << "needs root";
    }
    TemporaryTree tree;
    tree.Write("d/a.ini", "former\n");
    tree.SetOwner("d/a.ini", 1234, 2345);
    tree.SetMode("d/a.ini", 04760);
    tree.SetOwner("d", GetParam().owner, 0);
    tree.SetMode("d", GetParam().mode);
    KFileReplacement lock({0, {tree.Path("locks")}});
    FileIdentity identity;
    bool isReplaced = false;
    ASSERT_EQ(lock.Take(tree.Path("d/a.ini").c_str()), 0U);
    ASSERT_EQ(lock.Write("new\n", 0644, identity, isReplaced), 0U);
    const struct stat status = tree.Status("d/a.ini");
    EXPECT_EQ(status.st_uid, GetParam().isKept ? 1234U : 0U);
    EXPECT_EQ(status.st_gid, GetParam().isKept ? 2345U : 0U);
    EXPECT_EQ(tree.Mode("d/a.ini"), GetParam().isKept ? 04760U : 0640U);
}

INSTANTIATE_TEST_SUITE_P(
    InADirectory,
    KFileReplacementOwnerTest,
    testing::Values(
        OwnerRow{"OfRoot", 0, 0755, true},
        OwnerRow{"OfAnotherUser", 1234, 0755, false},
        OwnerRow{"ThatItsGroupMayWrite", 0, 0775, false},
        OwnerRow{"ThatAllMayWrite", 0, 0777, false},
        OwnerRow{"ThatAllMayWriteWithTheStickyBit", 0, 01777, false}
    ),
    NameOfRow()
);

} // namespace
} // namespace KTEST
