// SPDX-License-Identifier: MIT
//
// `ins-setup plan` on file systems that have too little room, or just enough, and questions that are
// refused.
#include "../support/NameOfRow.h"
#include "SetupRig.h"

#include <ostream>
#include <string>

#include <nlohmann/json.hpp>

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using Json = nlohmann::json;

/// A product of 2 MiB whose target is a file system of its own.
class SetupPlanTest : public KTEST::SetupProgramTest {
  protected:
    SetupPlanTest() {
        tree.Write("kit/lib/svc", std::string(twoMiB, 'x'), 0755);
        tree.Directory("product");
    }
    ~SetupPlanTest() override { Run("umount TREE/product"); }

    void GivenFileSystem(const std::string& options) {
        const Outcome mounted = Run("mount -t tmpfs -o " + options + " none TREE/product");
        ASSERT_EQ(mounted.exitCode, 0) << mounted.err;
    }
    /// What the plan says of that file system.
    Json SpaceOf(const Json& plan) const {
        for (const Json& space : plan.value("space", Json::array())) {
            if (space.value("directory", "") == tree.Path("product")) {
                return space;
            }
        }
        return Json::object();
    }

    static constexpr std::size_t twoMiB = 2U << 20U;
};

TEST_F(SetupPlanTest, TooLittleSpaceIsToldAndAnswered) {
    GivenFileSystem("size=1m");
    const Outcome plan = RunSetup("plan install");
    EXPECT_EQ(plan.exitCode, 73);
    EXPECT_THAT(
        plan.out,
        AllOf(
            HasSubstr(
                "File system of " + tree.Path("product") + ": 2.0 MiB needed and 8.0 MiB to spare, "
            ),
            HasSubstr("That is not enough.")
        )
    );
    EXPECT_THAT(plan.err, IsEmpty());
    EXPECT_THAT(tree.List("product"), IsEmpty());
}

TEST_F(SetupPlanTest, TooLittleSpaceIsInTheObject) {
    GivenFileSystem("size=1m");
    const Outcome answer = RunSetup("plan install", "--json");
    EXPECT_EQ(answer.exitCode, 73);
    const Json plan = Json::parse(answer.out, nullptr, false);
    ASSERT_TRUE(plan.is_object()) << answer.out;
    EXPECT_EQ(plan.value("exitCode", 0), 73);
    EXPECT_EQ(plan.value("result", ""), "failed");
    const Json space = SpaceOf(plan);
    EXPECT_GE(space.value("bytesNeeded", 0U), twoMiB) << plan;
    EXPECT_LE(space.value("bytesFree", twoMiB), twoMiB / 2) << plan;
    EXPECT_EQ(space.value("bytesToSpare", 0U), 8U << 20U) << plan;
    EXPECT_EQ(space.value("filesToSpare", 0U), 16U) << plan;
    EXPECT_FALSE(space.value("enough", true)) << plan;
}

TEST_F(SetupPlanTest, ARemovalNeedsNoRoom) {
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    ASSERT_EQ(
        Run("mkdir TREE/log; mount -t tmpfs -o size=16k none TREE/log; mount --bind TREE/log "
            "/var/log")
            .exitCode,
        0
    );
    const Outcome plan = RunSetup("plan remove");
    const Outcome removed = RunSetup("remove", "--yes");
    Run("umount /var/log TREE/log");
    EXPECT_EQ(plan.exitCode, 0) << plan.out << plan.err;
    EXPECT_EQ(removed.exitCode, 0) << removed.out << removed.err;
}

/// Whatever a script does, each install writes a log and leaves a state: what a plan finds wrong
/// there is what a run would refuse.
TEST_F(SetupPlanTest, AFullPlaceOfTheLogIsToldAsInARun) {
    ASSERT_EQ(Run("mount -t tmpfs -o size=16k none /var/log").exitCode, 0);
    const Outcome plan = RunSetup("plan install");
    const Outcome install = RunSetup("install");
    Run("umount /var/log");
    EXPECT_EQ(plan.exitCode, 73) << plan.out << plan.err;
    EXPECT_THAT(plan.out, HasSubstr("File system of /var/log: "));
    EXPECT_EQ(install.exitCode, 73) << install.out << install.err;
    EXPECT_THAT(install.err, HasSubstr("the file system of /var/log has too little space"));
}

TEST_F(SetupPlanTest, AFullPlaceOfTheStateIsToldAsInARun) {
    ASSERT_EQ(
        Run("mkdir -p /var/lib/ins++; mount -t tmpfs -o size=16k none /var/lib/ins++").exitCode, 0
    );
    const Outcome plan = RunSetup("plan install");
    const Outcome install = RunSetup("install");
    Run("umount /var/lib/ins++");
    EXPECT_EQ(plan.exitCode, 73) << plan.out << plan.err;
    EXPECT_THAT(plan.out, HasSubstr("File system of /var/lib/ins++: "));
    EXPECT_EQ(install.exitCode, 73) << install.out << install.err;
}

TEST_F(SetupPlanTest, WhatIsToSpareCountsAsInARun) {
    GivenFileSystem("size=9m");
    const Outcome plan = RunSetup("plan install");
    EXPECT_EQ(plan.exitCode, 73);
    EXPECT_THAT(plan.out, HasSubstr(": 2.0 MiB needed and 8.0 MiB to spare, 9.0 MiB free; "));
    const Outcome install = RunSetup("install");
    EXPECT_EQ(install.exitCode, 73);
    EXPECT_THAT(install.err, HasSubstr("too little space: 10.0 MiB needed, 9.0 MiB free."));
}

TEST_F(SetupPlanTest, ARemovalIsOfWhatIsInstalled) {
    ASSERT_EQ(RunSetup("install").exitCode, 0);
    Run("sed -i s/1.5/1.4/ KIT/product.ini");
    EXPECT_THAT(RunSetup("plan remove").out, HasSubstr("Removing Setup Test 1.5 (build 9) from "));
    const Json plan = Json::parse(RunSetup("plan remove", "--json").out, nullptr, false);
    ASSERT_TRUE(plan.is_object());
    EXPECT_EQ(plan.value("version", ""), "1.5");
    EXPECT_EQ(plan.value("buildNumber", 0), 9);
    EXPECT_EQ(Json::parse(RunSetup("plan install", "--json").out).value("version", ""), "1.4");
}

TEST_F(SetupPlanTest, TooFewInodesAreTold) {
    GivenFileSystem("size=64m,nr_inodes=3");
    const Outcome plan = RunSetup("plan install");
    EXPECT_EQ(plan.exitCode, 73);
    EXPECT_THAT(plan.out, HasSubstr("That is not enough."));
    EXPECT_FALSE(SpaceOf(Json::parse(RunSetup("plan install", "--json").out)).value("enough", true)
    );
}

TEST_F(SetupPlanTest, ARoomyFileSystemIsEnough) {
    GivenFileSystem("size=64m");
    const Outcome plan = RunSetup("plan install");
    EXPECT_EQ(plan.exitCode, 0) << plan.out;
    EXPECT_THAT(plan.out, Not(HasSubstr("not enough")));
    EXPECT_TRUE(SpaceOf(Json::parse(RunSetup("plan install", "--json").out)).value("enough", false)
    );
}

struct RefusedQuestion {
    const char* name;
    const char* line;
    const char* command;
    int exitCode;
    const char* message; ///< a part of it
};

std::ostream& operator<<(std::ostream& out, const RefusedQuestion& question) {
    return out << question.name;
}

class SetupRefusedQuestionTest : public KTEST::SetupProgramTest,
                                 public ::testing::WithParamInterface<RefusedQuestion> {};

TEST_P(SetupRefusedQuestionTest, IsToldByExactlyOneObject) {
    const Outcome refused = Run(std::string("SETUP ") + GetParam().line + " --json");
    EXPECT_EQ(refused.exitCode, GetParam().exitCode);
    ASSERT_EQ(refused.out.find('\n') + 1, refused.out.size()) << refused.out;
    const Json answer = Json::parse(refused.out, nullptr, false);
    ASSERT_TRUE(answer.is_object()) << refused.out;
    EXPECT_EQ(answer.value("command", ""), GetParam().command);
    EXPECT_EQ(answer.value("result", ""), "refused");
    EXPECT_EQ(answer.value("exitCode", -1), GetParam().exitCode);
    EXPECT_THAT(answer["error"].value("text", ""), HasSubstr(GetParam().message));
    EXPECT_THAT(refused.err, HasSubstr(GetParam().message));
    EXPECT_EQ(refused.err.find(GetParam().message), refused.err.rfind(GetParam().message));
}

INSTANTIATE_TEST_SUITE_P(
    Of,
    SetupRefusedQuestionTest,
    ::testing::Values(
        RefusedQuestion{
            "PlanInstallWithoutAKit",
            "plan install --kit /nonex",
            "plan install",
            66,
            "/nonex: no such directory"},
        RefusedQuestion{
            "PlanRemoveWithoutAKit",
            "plan remove --kit /nonex",
            "plan remove",
            66,
            "/nonex: no such directory"},
        RefusedQuestion{
            "MacrosWithoutAKit", "macros --kit /nonex", "macros", 66, "/nonex: no such directory"},
        RefusedQuestion{
            "PlanInstallInTheSystem",
            "plan install --kit KIT /usr",
            "plan install",
            64,
            "\"/usr\" cannot be used"},
        RefusedQuestion{
            "PlanRemoveFromTheSystem",
            "plan remove --kit KIT /usr",
            "plan remove",
            64,
            "\"/usr\" cannot be used"},
        RefusedQuestion{
            "MacrosOfTheSystem", "macros --kit KIT /usr", "macros", 64, "\"/usr\" cannot be used"},
        RefusedQuestion{
            "PlanRemoveOfNothing", "plan remove --kit KIT", "plan remove", 3, "is not installed:"},
        RefusedQuestion{
            "CheckWithoutAKit", "check --kit /nonex", "check", 66, "/nonex: no such directory"},
        RefusedQuestion{
            "KitWithAnUnknownOption", "kit seal --quickly", "kit seal", 64, "--quickly"},
        RefusedQuestion{
            "PlanWithAnUnknownOption", "plan install --quickly", "plan install", 64, "--quickly"}
    ),
    KTEST::NameOfRow()
);

} // namespace
