// SPDX-License-Identifier: MIT
#include "../GivenPlan.h"

#include <setup/ExitCode.h>
#include <setup/plan/RunRefusals.h>
#include <setup/preflight/Preflight.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

namespace {

using namespace KSETUP;
using ::testing::HasSubstr;

using PreflightTest = KTEST::GivenPlan;

TEST_F(PreflightTest, EnoughSpaceIsFine) {
    tree.Write("kit/a", "small");
    const KPlan plan = PlanOf("file=copy,a," + tree.Path("kit") + "," + tree.Path());
    EXPECT_EQ(CodeOf([&] { RequireSpace(plan); }), 0) << words;
}

TEST_F(PreflightTest, TooLittleSpaceIsRefusedWithTheAmounts) {
    constexpr std::uintmax_t bytes = 16U << 20U; // written ones: holes need no space
    tree.Write("kit/a", std::string(bytes, 'x'));
    const auto room = std::filesystem::space(tree.Path()).free; // for root
    std::string lines;
    for (std::uintmax_t copies = 0; copies <= room / bytes * 2; ++copies) {
        lines += "file=copy,a," + tree.Path("kit") + "," + tree.Path() + "," +
                 std::to_string(copies) + "\n";
    }
    const KPlan plan = PlanOf(lines);
    EXPECT_EQ(CodeOf([&] { RequireSpace(plan); }), ExitCode::cannotWrite);
    EXPECT_THAT(words, HasSubstr(" has too little space: "));
    EXPECT_THAT(words, HasSubstr("iB needed, "));
    EXPECT_THAT(words, HasSubstr("Nothing was changed."));
}

TEST_F(PreflightTest, APlaceThatCanBeWrittenIsFine) {
    const KPlan plan = PlanOf("directory=create," + tree.Path("a/b/c"));
    EXPECT_EQ(CodeOf([&] { RequireWritable(plan); }), 0) << words;
}

TEST_F(PreflightTest, AFileInTheWayIsRefused) {
    tree.Write("a", "no directory");
    const KPlan plan = PlanOf("directory=create," + tree.Path("a/b"));
    EXPECT_EQ(CodeOf([&] { RequireWritable(plan); }), ExitCode::cannotWrite);
    EXPECT_THAT(words, HasSubstr(tree.Path("a") + " cannot be written to: it is no directory"));
}

TEST_F(PreflightTest, AFileInTheWayIsFoundAboveWhatIsMissing) {
    tree.Write("a", "no directory");
    tree.Write("kit/f", "");
    const KPlan plan = PlanOf("file=copy,f," + tree.Path("kit") + "," + tree.Path("a/b/c/d"));
    EXPECT_EQ(CodeOf([&] { RequireWritable(plan); }), ExitCode::cannotWrite);
    EXPECT_THAT(words, HasSubstr(tree.Path("a") + " cannot be written to: it is no directory"));
}

TEST_F(PreflightTest, ServicesNeedAManagerOnlyWhereThereAreAny) {
    EXPECT_FALSE(KSETUP::HasServices(PlanOf("directory=create,/a")));
    EXPECT_TRUE(KSETUP::HasServices(PlanOf("service=start,dps")));
    EXPECT_EQ(CodeOf([&] { RequireServiceManager(PlanOf("directory=create,/a")); }), 0);
}

TEST_F(PreflightTest, ADowngradeIsRefusedAndSaysHowToDoIt) {
    EXPECT_EQ(CodeOf([] { RequireNoDowngrade("DPS", {"2.1", 7}, {"2.1", 7}); }), 0);
    EXPECT_EQ(CodeOf([] { RequireNoDowngrade("DPS", {"2.1", 7}, {"2.2", 1}); }), 0);
    EXPECT_EQ(CodeOf([] { RequireNoDowngrade("DPS", {"2.1", 8}, {"2.1", 7}); }), ExitCode::usage);
    EXPECT_THAT(
        words, HasSubstr("DPS 2.1 (build 8) is installed, which is newer than 2.1 (build 7)")
    );
    EXPECT_THAT(words, HasSubstr("--allow-downgrade"));
    EXPECT_EQ(CodeOf([] { RequireNoDowngrade("DPS", {"2.10", 1}, {"2.9", 7}); }), ExitCode::usage);
}

} // namespace
