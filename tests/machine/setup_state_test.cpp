// SPDX-License-Identifier: MIT
//
// What ins-setup remembers of its runs, also where that is damaged, and what it tells of runs that
// go on or did not come to their end.
#include "SetupRig.h"

#include <filesystem>
#include <string>

namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

class SetupStateTest : public KTEST::SetupProgramTest {
  protected:
    static constexpr const char* directory = "/var/lib/ins++/setuptest";
    static constexpr const char* notUnderstood = "state cannot be understood";

    void GivenDamage(const std::string& name) {
        const std::string file = std::string(directory) + "/" + name;
        ASSERT_EQ(Run("mkdir -p -m 700 /var/lib/ins++ " + std::string(directory)).exitCode, 0);
        ASSERT_EQ(Run("echo x > " + file + "; chmod 600 " + file).exitCode, 0);
    }
    /// A run that waits in a rule until "go" is there.
    void GivenScriptThatWaits() {
        GivenScript(
            "process=start,touch " + tree.Path("started") + "; n=0; until [ -e " + tree.Path("go") +
            " ] || [ $((n += 1)) -gt 3000 ]; do sleep 0.01; done\n"
        );
    }
    static constexpr const char* whenStarted =
        "n=0; until [ -e TREE/started ] || [ $((n += 1)) -gt 3000 ]; do sleep 0.01; done; ";
};

TEST_F(SetupStateTest, ADamagedManifestHoldsNoRemovalUp) {
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    GivenDamage("manifest");
    const Outcome removed = RunSetup("remove");
    EXPECT_EQ(removed.exitCode, 0) << removed.err;
    EXPECT_THAT(removed.err, IsEmpty());
    EXPECT_THAT(
        removed.out,
        AllOf(
            HasSubstr("Setup Test is removed from "),
            HasSubstr("\n/var/lib/ins++/setuptest/manifest could not be understood")
        )
    );
    EXPECT_FALSE(fs::exists(directory));
    EXPECT_THAT(KTEST::Slurp(setupLog), HasSubstr("End remove of Setup Test 1.5 (build 9): done"));
    EXPECT_EQ(RunSetup("status").out, "Setup Test is not installed.\n");
}

TEST_F(SetupStateTest, ADamagedStateIsToldAndMendedByTheNextInstall) {
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    GivenDamage("state");
    const Outcome status = RunSetup("status");
    EXPECT_EQ(status.exitCode, 0) << status.err;
    EXPECT_THAT(status.out, AllOf(HasSubstr(notUnderstood), HasSubstr("is installed in")));
    const Outcome next = RunSetup("install");
    EXPECT_EQ(next.exitCode, 0) << next.err;
    EXPECT_THAT(next.out, HasSubstr(notUnderstood));
    EXPECT_FALSE(fs::exists(stateFile));
    EXPECT_THAT(RunSetup("status").out, Not(HasSubstr("understood")));
}

TEST_F(SetupStateTest, ADamagedStateHoldsNoRemovalUp) {
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    GivenDamage("state");
    const Outcome removed = RunSetup("remove");
    EXPECT_EQ(removed.exitCode, 0) << removed.err;
    EXPECT_THAT(removed.out, AllOf(HasSubstr(notUnderstood), HasSubstr("is removed from")));
    EXPECT_FALSE(tree.Exists("product"));
    EXPECT_FALSE(fs::exists(directory));
}

TEST_F(SetupStateTest, ADamagedStateOfAProductThatIsNotInstalledIsToldToo) {
    GivenDamage("state");
    const Outcome status = RunSetup("status");
    EXPECT_EQ(status.exitCode, 3) << status.err;
    EXPECT_THAT(status.out, HasSubstr(notUnderstood));
    const Outcome removed = RunSetup("remove");
    EXPECT_EQ(removed.exitCode, 0) << removed.err;
    EXPECT_THAT(removed.out, AllOf(HasSubstr(notUnderstood), HasSubstr("nothing to remove")));
    EXPECT_EQ(RunSetup("install").exitCode, 0);
    EXPECT_FALSE(fs::exists(stateFile));
}

} // namespace
