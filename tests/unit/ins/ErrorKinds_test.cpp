// SPDX-License-Identifier: MIT
//
// By its kind and code a program tells every error of the engine from every other, without its words
// and without the name of a source.
#include "../../support/EngineRig.h"
#include "../../support/ErrorProbe.h"
#include "Injected.h"

#include <ins/KServiceRule.h>
#include <ins/unx/lin/KInstallPathManager.h>
#include <sup++/KErrorCode.h>
#include <sup++/SvcProcess.h>

#include <gmock/gmock.h>

#include <cerrno>

namespace {

using KSUP::KError;
using KSUP::KErrorKind;
using KSUP::KOperation;
using KTEST::ErrorOf;
using ::testing::HasSubstr;

class ErrorKindsTest : public KTEST::RuleTest {
  protected:
    KError ErrorOfRun(const char* type, std::string_view line) {
        return ErrorOf([&] { Run(type, line); });
    }
};

/// Looks for the record's link in a temporary tree instead of /etc.
class RecordAtLink : public KINS::KInstallPathManager {
  public:
    RecordAtLink(KINS::KInstaller* installer, std::string link)
        : KInstallPathManager(installer),
          linkPath(std::move(link)) {}

    KSUP::KString ExpandMacros(const KSUP::KString&) const override { return linkPath; }

  private:
    std::string linkPath;
};

class RecordErrorTest : public KTEST::EngineTest {
  protected:
    KError ErrorOfPut() {
        return ErrorOf([&] { paths.PutInstalledProductInformation("1.0", 1); });
    }
    RecordAtLink paths{installer.get(), tree.Path("link")};
};

TEST_F(RecordErrorTest, AMissingLinkIsToldWithItsPathAndTheSystemsWords) {
    const KError error = ErrorOfPut();
    EXPECT_EQ(error.GetKind(), KErrorKind::RecordLink);
    EXPECT_EQ(error.GetCode(), KSUP::ErrorCode::notFound);
    EXPECT_EQ(error.GetPath(), tree.Path("link"));
    EXPECT_EQ(error.GetReason(), "No such file or directory");
    EXPECT_FALSE(error.HasInfo());
}

TEST_F(RecordErrorTest, ARelativeLinkIsOfTheSameKindWithAnotherCode) {
    tree.Link("link", "p/lin/x86/svc");
    const KError error = ErrorOfPut();
    EXPECT_EQ(error.GetKind(), KErrorKind::RecordLink);
    EXPECT_EQ(error.GetCode(), KSUP::ErrorCode::relativeLink);
}

TEST_F(RecordErrorTest, AMissingRecordFileIsNoInvalidArgumentOfTheCallers) {
    tree.Link("link", tree.Path("p/lin/x86/svc"));
    const KError error = ErrorOfPut();
    EXPECT_EQ(error.GetKind(), KErrorKind::RecordFile);
    EXPECT_EQ(error.GetCode(), KSUP::ErrorCode::invalidArgument);
    EXPECT_EQ(error.GetPath(), tree.Path("p/config/dps.ini"));
    EXPECT_FALSE(error.HasInfo());
}

TEST_F(RecordErrorTest, ADiskThatFailsIsTheSystems) {
    tree.Link("link", tree.Path("p/lin/x86/svc"));
    tree.Write("p/config/dps.ini", "");
    KTEST::Injection inject;
    inject.SvcFlushWrites = [] { return unsigned{ENOSPC}; };
    const KError error = ErrorOfPut();
    EXPECT_TRUE(error.IsSystemError());
    EXPECT_EQ(error.GetCode(), unsigned{ENOSPC});
    EXPECT_EQ(error.GetOperation(), KOperation::Write);
}

TEST_F(ErrorKindsTest, ADeletionThatFailsIsTheSystemsWithItsPath) {
    tree.Directory("kept");
    const KError error = ErrorOfRun("file", "delete,kept,@T@");
    EXPECT_TRUE(error.IsSystemError());
    EXPECT_EQ(error.GetCode(), unsigned{EISDIR});
    EXPECT_EQ(error.GetOperation(), KOperation::Delete);
    EXPECT_EQ(error.GetPath(), tree.Path("kept"));
    EXPECT_EQ(error.GetReason(), "Is a directory");
    EXPECT_FALSE(error.HasInfo());
}

TEST_F(ErrorKindsTest, ACopySaysWhetherReadingOrWritingFailed) {
    tree.Write("from/a", "a");
    const KError unread = ErrorOfRun("file", "copy,none,@T@/from,@T@");
    EXPECT_EQ(unread.GetOperation(), KOperation::Read);
    EXPECT_EQ(unread.GetPath(), tree.Path("from/none"));
    const KError unwritten = ErrorOfRun("file", "copy,a,@T@/from,@T@/nowhere");
    EXPECT_EQ(unwritten.GetOperation(), KOperation::Write);
    EXPECT_EQ(unwritten.GetPath(), tree.Path("nowhere/a"));
}

TEST_F(ErrorKindsTest, AProcessThatCannotBeStartedTellsWhy) {
    const std::string output = tree.Path("none/output");
    ASSERT_EQ(SvcSetCommandOutput(output.c_str()), 0U);
    const KError error = ErrorOfRun("process", "start,true");
    ASSERT_EQ(SvcSetCommandOutput(nullptr), 0U);
    EXPECT_EQ(error.GetKind(), KErrorKind::Process);
    EXPECT_EQ(error.GetCode(), KSUP::ErrorCode::processFailed);
    EXPECT_EQ(error.GetReason(), output + ": No such file or directory");
    EXPECT_FALSE(error.HasInfo());
}

TEST_F(ErrorKindsTest, AServiceCallThatFailsCarriesItsWordsWhateverItsCode) {
    const KError error = ErrorOfRun("service", "start,my/own");
    EXPECT_EQ(error.GetKind(), KErrorKind::Service);
    EXPECT_EQ(error.GetCode(), KSUP::ErrorCode::invalidArgument);
    EXPECT_THAT(error.GetReason().c_str(), HasSubstr("my/own"));
    EXPECT_FALSE(error.HasInfo());
    KTEST::Injection inject;
    inject.SvcStopService = [](unsigned, const char*) { return unsigned{ENOSPC}; };
    const KError full = ErrorOfRun("service", "stop,a");
    EXPECT_EQ(full.GetKind(), KErrorKind::Service);
    EXPECT_FALSE(full.IsSystemError());
}

TEST_F(ErrorKindsTest, TheWordsOfAServiceCallReachAThreadThatDidNotMakeIt) {
    GivenScript("[remove]\nservice=start,my/own\n");
    Initialize();
    installer->StartUninstall(tree.Path("p"));
    EXPECT_THAT(ErrorOf([&] { WaitForEnd(); }).GetReason().c_str(), HasSubstr("my/own"));
}

TEST_F(ErrorKindsTest, WhatIsNoRuleIsOfTheKindRuleWhenItLoadsAndWhenItRuns) {
    EXPECT_EQ(RefusalOf("nonsense", "a").GetKind(), KErrorKind::Rule);
    EXPECT_EQ(RefusalOf("file", "copy").GetKind(), KErrorKind::Rule);
    EXPECT_EQ(RefusalOf("service", "start").GetKind(), KErrorKind::Rule);
    EXPECT_EQ(ErrorOfRun("service", "restart,a").GetKind(), KErrorKind::Rule);
}

TEST_F(ErrorKindsTest, AStoppedRunIsCancelled) {
    Add("directory", "create,@T@/made");
    installer->Stop();
    EXPECT_EQ(ErrorOf([&] { manager.ExecuteRules(); }).GetKind(), KErrorKind::Cancelled);
}

} // namespace
