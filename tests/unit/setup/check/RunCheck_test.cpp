// SPDX-License-Identifier: MIT
#include "GivenKit.h"

#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/check/RunCheck.h>
#include <setup/plan/KDiskView.h>

#include <gmock/gmock.h>

#include <filesystem>
#include <memory>

#include <nlohmann/json.hpp>

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class RunCheckTest : public KTEST::GivenKit {
  protected:
    /// What the command prints; its exit code is kept.
    std::string Output() {
        WriteKit();
        arguments.kit = arguments.kit.empty() ? tree.Path("kit") : arguments.kit;
        ::testing::internal::CaptureStdout();
        try {
            exitCode = KSETUP::RunCheck(arguments);
        } catch (...) {
            ::testing::internal::GetCapturedStdout();
            throw;
        }
        return ::testing::internal::GetCapturedStdout();
    }
    nlohmann::json Answer() {
        arguments.json = true;
        return nlohmann::json::parse(Output());
    }

    KSETUP::KSetupArguments arguments;
    int exitCode = -1;
};

constexpr char anError[] = "File=delete,old,$pathTarget$";
constexpr char aWarning[] = "file=delete, old,$pathTarget$";

TEST_F(RunCheckTest, ASoundKitIsOneLine) {
    EXPECT_EQ(Output(), "Kit " + tree.Path("kit") + ": nothing is wrong with its script.\n");
    EXPECT_EQ(exitCode, 0);
}

TEST_F(RunCheckTest, AnErrorIsALineForEditors) {
    Install(anError);
    EXPECT_EQ(
        Output(),
        tree.Path("kit/install.ini") +
            ":2:1: error: unknown rule type \"File\"; write \"file\" "
            "[unknown-type]\n" +
            "Kit " + tree.Path("kit") + ": 1 error, 0 warnings.\n"
    );
    EXPECT_EQ(exitCode, KSETUP::ExitCode::malformedScript);
}

TEST_F(RunCheckTest, AWarningIsNoFailure) {
    Install(aWarning);
    EXPECT_THAT(Output(), StartsWith(tree.Path("kit/install.ini") + ":2:13: warning: the blank"));
    EXPECT_EQ(exitCode, KSETUP::ExitCode::done);
}

TEST_F(RunCheckTest, StrictMakesAWarningAnError) {
    Install(aWarning);
    arguments.strict = true;
    const std::string output = Output();
    EXPECT_THAT(output, HasSubstr(":2:13: error: the blank"));
    EXPECT_THAT(output, HasSubstr("1 error, 0 warnings."));
    EXPECT_EQ(exitCode, KSETUP::ExitCode::malformedScript);
}

TEST_F(RunCheckTest, StrictLeavesASoundKitAlone) {
    arguments.strict = true;
    Output();
    EXPECT_EQ(exitCode, KSETUP::ExitCode::done);
}

TEST_F(RunCheckTest, FindingsAreInTheOrderOfTheFile) {
    Install(std::string(aWarning) + "\n" + anError);
    const std::string output = Output();
    EXPECT_LT(output.find(":2:13: warning"), output.find(":3:1: error"));
}

TEST_F(RunCheckTest, ARunIsToldOfErrorsOnly) {
    Install(std::string(aWarning) + "\n" + anError);
    WriteKit();
    const KSETUP::KSetupKit kit(tree.Path("kit"));
    const auto found =
        KSETUP::CheckKitForErrors(kit, "", std::make_shared<KSETUP::KDiskView>()).findings;
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found.front().rule, "unknown-type");
}

TEST_F(RunCheckTest, PathsAreShownAsTheKitWasGiven) {
    Install(anError);
    WriteKit();
    arguments.kit = std::filesystem::relative(tree.Path("kit")).string() + "/.";
    EXPECT_THAT(
        Output(),
        StartsWith(std::filesystem::relative(tree.Path("kit")).string() + "/install.ini:2:1:")
    );
}

TEST_F(RunCheckTest, TheProgramsOwnKitIsShownFromWhereItWasCalled) {
    Install(anError);
    WriteKit();
    const KSETUP::KSetupKit kit(tree.Path("kit")); // from now on the program's own
    const std::filesystem::path former = std::filesystem::current_path();
    const auto shownFrom = [&](const std::string& directory) {
        std::filesystem::current_path(directory);
        ::testing::internal::CaptureStdout();
        KSETUP::RunCheck(KSETUP::KSetupArguments());
        std::filesystem::current_path(former);
        return ::testing::internal::GetCapturedStdout();
    };
    EXPECT_THAT(shownFrom(tree.Path("kit")), StartsWith("install.ini:2:1: error"));
    EXPECT_THAT(shownFrom(tree.Path()), StartsWith("kit/install.ini:2:1: error"));
    EXPECT_THAT(shownFrom("/usr"), StartsWith(tree.Path("kit/install.ini") + ":2:1: error"));
}

TEST_F(RunCheckTest, BytesThatCouldDoHarmAreNotShown) {
    Install("Fi\x1b[2Jle=a,\xFF");
    const std::string output = Output();
    EXPECT_THAT(output, HasSubstr("\"Fi?[2Jle\""));
    EXPECT_EQ(output.find('\x1b'), std::string::npos);
}

TEST_F(RunCheckTest, JsonIsOneObject) {
    Install(std::string(aWarning) + "\n" + anError);
    const nlohmann::json answer = Answer();
    EXPECT_EQ(answer["schema"], 1);
    EXPECT_EQ(answer["command"], "check");
    EXPECT_EQ(answer["result"], "failed");
    EXPECT_EQ(answer["exitCode"], 65);
    EXPECT_EQ(answer["kit"], tree.Path("kit"));
    EXPECT_EQ(answer["errors"], 1);
    EXPECT_EQ(answer["warnings"], 1);
    const nlohmann::json expected = {
        {"severity", "error"},
        {"file", "install.ini"},
        {"line", 3},
        {"column", 1},
        {"text", "File"},
        {"rule", "unknown-type"},
        {"message", "unknown rule type \"File\""},
        {"advice", "write \"file\""},
    };
    EXPECT_EQ(answer["findings"].size(), 2U);
    EXPECT_EQ(answer["findings"][1], expected);
    EXPECT_EQ(exitCode, KSETUP::ExitCode::malformedScript);
}

TEST_F(RunCheckTest, JsonOfASoundKitHasAnEmptyList) {
    const nlohmann::json answer = Answer();
    EXPECT_EQ(answer["result"], "done");
    EXPECT_EQ(answer["exitCode"], 0);
    EXPECT_EQ(answer["findings"], nlohmann::json::array());
}

TEST_F(RunCheckTest, JsonIsAsciiWhateverTheScriptHolds) {
    Install("Gr\xC3\xB6\xFF\x1b\x9B=a");
    arguments.json = true;
    for (const char byte : Output()) {
        EXPECT_TRUE((byte >= ' ' && byte < '\x7F') || byte == '\n');
    }
}

TEST_F(RunCheckTest, WithoutAKitItIsRefused) {
    arguments.kit = tree.Path("none");
    try {
        Output();
        FAIL() << "not refused";
    } catch (const KSETUP::KSetupFailure& failure) {
        EXPECT_EQ(failure.GetExitCode(), KSETUP::ExitCode::noKit);
    }
}

TEST_F(RunCheckTest, WithoutAKitJsonTellsSo) {
    arguments.kit = tree.Path("none");
    const nlohmann::json answer = Answer();
    EXPECT_EQ(answer["result"], "refused");
    EXPECT_EQ(answer["exitCode"], 66);
    EXPECT_THAT(answer["error"]["text"].get<std::string>(), HasSubstr("no such directory"));
    EXPECT_EQ(exitCode, KSETUP::ExitCode::noKit);
}

} // namespace
