// SPDX-License-Identifier: MIT
#include "GivenKit.h"

#include <gmock/gmock.h>

namespace {

using ::testing::HasSubstr;

class ServiceChecksTest : public KTEST::GivenKitWithMistake {
  protected:
    ServiceChecksTest() { File("doc/a"); }
};

TEST_P(ServiceChecksTest, TellsTheMistakeAndNotTheNearMiss) {
    ExpectTheFindingOrNone();
}

INSTANTIATE_TEST_SUITE_P(
    Lines,
    ServiceChecksTest,
    ::testing::Values(
        KTEST::FindingRow{
            "StopBeforeInstall",
            "failing-service",
            2,
            "service=stop,svc\n"
            "directory=create,$pathTargetBinX86_64$\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x"},
        KTEST::FindingRow{
            "StartBeforeInstall",
            "failing-service",
            4,
            "directory=create,$pathTargetBinX86_64$\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
            "service=start,svc\n"
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x"},
        KTEST::FindingRow{
            "RelativeProgram", "failing-service", 2, "service=install,svc,Service,bin/svc,-x"},
        KTEST::FindingRow{
            "OpenQuote",
            "failing-service",
            4,
            "directory=create,$pathTargetBinX86_64$\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x 'a"},
        KTEST::FindingRow{
            "AProgramAndItsArguments",
            "unconfined-service",
            2,
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x"},
        KTEST::FindingRow{"NameWithABlank", "failing-service", 2, "service=start,my svc"},
        KTEST::FindingRow{
            "RemoveBeforeInstall",
            "failing-service",
            0,
            "service=remove,svc\n"
            "directory=create,$pathTargetBinX86_64$\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x\n"
            "service=start,svc"},
        KTEST::FindingRow{
            "ClosedQuote",
            "failing-service",
            0,
            "directory=create,$pathTargetBinX86_64$\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x 'a b'"},
        KTEST::FindingRow{
            "CommandMayInstall",
            "failing-service",
            0,
            "process=start,register\n"
            "service=stop,svc\n"
            "directory=create,$pathTargetBinX86_64$\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x"},
        KTEST::FindingRow{"NeverInstalled", "service-not-installed", 2, "service=start,inspp-none"},
        KTEST::FindingRow{
            "NeverInstalledAndStopped", "service-not-installed", 2, "service=stop,inspp-none"},
        KTEST::FindingRow{
            "InstalledByAnotherName",
            "service-not-installed",
            5,
            "directory=create,$pathTargetBinX86_64$\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x\n"
            "service=start,svcd"},
        KTEST::FindingRow{
            "Installed",
            "service-not-installed",
            0,
            "directory=create,$pathTargetBinX86_64$\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x\n"
            "service=start,svc"},
        KTEST::FindingRow{
            "UnitFileComesAlong",
            "service-not-installed",
            0,
            "file=copy,svc,$pathSourceBinX86_64$,/etc/systemd/system,other.service\n"
            "service=start,other"},
        KTEST::FindingRow{"RemovedOnly", "service-not-installed", 0, "service=remove,inspp-none"},
        KTEST::FindingRow{
            "ProgramIsNotMade",
            "service-program",
            2,
            "service=install,svc,Service,$pathTargetBinX86_64$other,-x"},
        KTEST::FindingRow{
            "ProgramIsNotExecutable",
            "service-program",
            4,
            "directory=create,$pathTarget$doc\n"
            "file=copy,a,$pathSource$doc,$pathTarget$doc\n"
            "service=install,svc,Service,$pathTarget$doc/a,-x"},
        KTEST::FindingRow{
            "ProgramIsCopiedLater",
            "service-program",
            2,
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x"},
        KTEST::FindingRow{
            "ProgramOfTheSystem",
            "service-program",
            0,
            "service=install,svc,Service,/usr/bin/inspp-none,$pathTarget$x"},
        KTEST::FindingRow{
            "CommandMayMakeTheProgram",
            "service-program",
            0,
            "process=start,make\n"
            "service=install,svc,Service,$pathTargetBinX86_64$other,-x"},
        KTEST::FindingRow{
            "ProgramIsCopiedBefore",
            "service-program",
            0,
            "directory=create,$pathTargetBinX86_64$\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x\n"
            "service=start,svc"},
        KTEST::FindingRow{
            "RunningServiceIsReplaced",
            "running-service",
            5,
            "directory=create,$pathTargetBinX86_64$\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x\n"
            "service=start,svc"},
        KTEST::FindingRow{
            "ServiceIsRemovedFirst",
            "running-service",
            0,
            "service=remove,svc\n"
            "directory=create,$pathTargetBinX86_64$\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x\n"
            "service=start,svc"},
        KTEST::FindingRow{
            "ServiceIsStoppedBehindTheCopy",
            "running-service",
            0,
            "directory=create,$pathTargetBinX86_64$\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x\n"
            "service=stop,svc\n"
            "service=start,svc"},
        KTEST::FindingRow{
            "ProgramIsStopped",
            "running-service",
            0,
            "process=stop,svc\n"
            "directory=create,$pathTargetBinX86_64$\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x\n"
            "service=start,svc"},
        KTEST::FindingRow{
            "CommandRestarts",
            "running-service",
            0,
            "directory=create,$pathTargetBinX86_64$\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x\n"
            "service=start,svc\n"
            "process=start,systemctl restart svc"},
        KTEST::FindingRow{
            "ServiceIsNotStarted",
            "running-service",
            0,
            "directory=create,$pathTargetBinX86_64$\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x"}
    ),
    KTEST::NameOfRow()
);

using ServiceMessagesTest = KTEST::GivenKit;

TEST_F(ServiceMessagesTest, AnEarlyStopIsAnErrorWithAWayOut) {
    Install("service=stop,svc\nservice=install,svc,Service,/usr/bin/true,-x");
    EXPECT_EQ(
        TheFinding("failing-service"),
        "install.ini:2:14 error [svc] a first install has no service svc here: it is installed "
        "only "
        "by a later line, so this fails; write service=remove,svc here, which stops it too and "
        "does "
        "not fail where there is none"
    );
}

TEST_F(ServiceMessagesTest, AWarningIsAllowedByItsName) {
    Install("; check: allow service-not-installed\nservice=start,inspp-none");
    EXPECT_FALSE(Finds("service-not-installed"));
}

/// A kit with a unit file of its own.
class UnconfinedServicesTest : public KTEST::GivenKit {
  protected:
    bool IsFound(const std::string& lines) {
        tree.Write("kit/unit/svc.service", "[Service]\nExecStart=/etc/svc/svc\n" + lines);
        Install("config=replace,svc.service,$pathSource$unit,/etc/systemd/system\n"
                "service=install,svc");
        return Finds("unconfined-service");
    }
};

TEST_F(UnconfinedServicesTest, OneThatOnlyNamesItsProgramIsTold) {
    EXPECT_TRUE(IsFound(""));
    EXPECT_THAT(
        TheFinding("unconfined-service"), HasSubstr("the service svc runs as root, and nothing")
    );
}

TEST_F(UnconfinedServicesTest, RootByItsNameIsRoot) {
    EXPECT_TRUE(IsFound("User=root\nProtectSystem=no\n"));
}

TEST_F(UnconfinedServicesTest, SettingsOfAnotherSectionDoNotCount) {
    EXPECT_TRUE(IsFound("[Install]\nUser=svc\n"));
}

TEST_F(UnconfinedServicesTest, AUserIsEnough) {
    EXPECT_FALSE(IsFound("User=svc\n"));
}

TEST_F(UnconfinedServicesTest, RootThatMayDoLittleIsEnough) {
    EXPECT_FALSE(IsFound("CapabilityBoundingSet=\n"));
}

TEST_F(UnconfinedServicesTest, OfAUnitFileThatIsNotTheKitsNothingIsTold) {
    Install("service=install,inspp-none");
    EXPECT_FALSE(Finds("unconfined-service"));
}

} // namespace
