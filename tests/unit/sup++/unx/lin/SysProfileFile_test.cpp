// SPDX-License-Identifier: MIT
//
// How the file of a profile is written where a signal interrupts the system's calls.
#include "../../../../faults/failcall.h"
#include "../../../../support/NameOfRow.h"
#include "../../../../support/TemporaryTree.h"
#include "../../Common.h"

#include <sup++/unx/lin/SysProfileFile.h>

#include <cerrno>

namespace KTEST {
namespace {

using KSUP::Sys::FileIdentity;
using KSUP::Sys::KProfileLock;

struct InterruptionRow {
    const char* name;
    const char* call;
    bool isWrittenOver; ///< the directory lets no file be renamed in it
};

class SysProfileFileInterruptionTest : public testing::Test,
                                       public testing::WithParamInterface<InterruptionRow> {
  protected:
    /// Reads the file and puts `text` into its place.
    ///
    /// Returns  the status of the step that failed, or 0
    unsigned Change(const std::string& text) const {
        KProfileLock lock;
        std::string former;
        FileIdentity identity;
        bool isReplaced = false;
        if (const unsigned status = lock.Take(tree.Path("a.ini").c_str()); status != 0) {
            return status;
        }
        if (const unsigned status = lock.Read(former, identity); status != 0) {
            return status;
        }
        return lock.Write(text, 0644, identity, isReplaced);
    }
    TemporaryTree tree;
};

TEST_P(SysProfileFileInterruptionTest, IsBegunAgain) {
    const InterruptionRow& row = GetParam();
    for (unsigned nth = 1; nth < 100; ++nth) {
        tree.Write("a.ini", "the former text, which is longer\n", 0640);
        const BindMount mount(row.isWrittenOver ? tree.Path("a.ini") : "");
        failcall_arm(row.call, nth, EINTR, 0);
        const unsigned status = Change("new\n");
        const unsigned calls = failcall_disarm();
        EXPECT_EQ(status, 0U) << "call " << nth;
        EXPECT_EQ(tree.Read("a.ini"), "new\n") << "call " << nth;
        if (calls < nth) {
            ASSERT_GT(nth, 1U) << "it is not called at all";
            return;
        }
    }
    FAIL() << "still called: a loop without end?";
}

} // namespace
} // namespace KTEST
