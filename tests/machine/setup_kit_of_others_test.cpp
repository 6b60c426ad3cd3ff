// SPDX-License-Identifier: MIT
//
// A kit that others than root can change is refused; what the refusal says to do helps.
#include "SetupRig.h"

#include <string>

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class SetupKitOfOthersTest : public KTEST::SetupProgramTest {
  protected:
    ~SetupKitOfOthersTest() override { Run("rm -rf /root/kit"); }
};

TEST_F(SetupKitOfOthersTest, TakingTheRightAwayHelps) {
    Run("chown -R 65534 KIT; chmod -R go+w KIT");
    const Outcome refused = RunSetup("install");
    EXPECT_EQ(refused.exitCode, 66);
    EXPECT_THAT(refused.err, HasSubstr("(chown -R root, chmod -R go-w)"));
    const Outcome mended = Run("chown -R root KIT; chmod -R go-w KIT; SETUP install --kit KIT");
    EXPECT_EQ(mended.exitCode, 0) << mended.err;
}

TEST_F(SetupKitOfOthersTest, CopyingItHelps) {
    Run("chown -R 65534 KIT; chmod -R go+w KIT; SETUP kit seal --kit KIT");
    EXPECT_THAT(RunSetup("install").err, HasSubstr("(cp -R KIT /root/)"));
    const Outcome copied = Run("umask 022; cp -R KIT /root/; SETUP install --kit /root/kit");
    EXPECT_EQ(copied.exitCode, 0) << copied.err;
}

TEST_F(SetupKitOfOthersTest, NobodyIsToldToTakeAHomeFromItsOwner) {
    Run("chown 65534 TREE");
    const Outcome refused = RunSetup("install");
    EXPECT_EQ(refused.exitCode, 66);
    EXPECT_THAT(
        refused.err,
        AllOf(
            HasSubstr(tree.Path() + ": "), HasSubstr("(cp -R KIT /root/)"), Not(HasSubstr("chown"))
        )
    );
    const Outcome copied = Run("cp -R KIT /root/; SETUP install --kit /root/kit");
    EXPECT_EQ(copied.exitCode, 0) << copied.err;
}

} // namespace
