// SPDX-License-Identifier: MIT
#include "GivenKit.h"

#include <gmock/gmock.h>

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

/// Lines of [install], and the check that finds something in the one of this number, or nothing.
struct ServiceChecksTestRow {
    const char* name;
    const char* rule;
    unsigned line; ///< 0: silent
    const char* lines;

    friend void PrintTo(const ServiceChecksTestRow& row, std::ostream* out) { *out << row.name; }
};

class ServiceChecksTest : public KTEST::GivenKit,
                          public ::testing::WithParamInterface<ServiceChecksTestRow> {
  protected:
    ServiceChecksTest() { File("doc/a"); }
};

TEST_P(ServiceChecksTest, TellsTheMistakeAndNotTheNearMiss) {
    Install(GetParam().lines);
    if (GetParam().line == 0) {
        EXPECT_THAT(Findings(GetParam().rule), ::testing::IsEmpty());
    } else {
        EXPECT_THAT(
            TheFinding(GetParam().rule),
            StartsWith("install.ini:" + std::to_string(GetParam().line) + ":")
        );
    }
}

INSTANTIATE_TEST_SUITE_P(
    Lines,
    ServiceChecksTest,
    ::testing::Values(
        ServiceChecksTestRow{
            "StopBeforeInstall",
            "failing-service",
            2,
            "service=stop,svc\n"
            "directory=create,$pathTargetBinX86_64$\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x"},
        ServiceChecksTestRow{
            "StartBeforeInstall",
            "failing-service",
            4,
            "directory=create,$pathTargetBinX86_64$\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
            "service=start,svc\n"
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x"},
        ServiceChecksTestRow{
            "RelativeProgram", "failing-service", 2, "service=install,svc,Service,bin/svc,-x"},
        ServiceChecksTestRow{
            "OpenQuote",
            "failing-service",
            4,
            "directory=create,$pathTargetBinX86_64$\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x 'a"},
        ServiceChecksTestRow{"NameWithABlank", "failing-service", 2, "service=start,my svc"},
        ServiceChecksTestRow{
            "RemoveBeforeInstall",
            "failing-service",
            0,
            "service=remove,svc\n"
            "directory=create,$pathTargetBinX86_64$\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x\n"
            "service=start,svc"},
        ServiceChecksTestRow{
            "ClosedQuote",
            "failing-service",
            0,
            "directory=create,$pathTargetBinX86_64$\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x 'a b'"},
        ServiceChecksTestRow{
            "CommandMayInstall",
            "failing-service",
            0,
            "process=start,register\n"
            "service=stop,svc\n"
            "directory=create,$pathTargetBinX86_64$\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x"},
        ServiceChecksTestRow{
            "NeverInstalled", "service-not-installed", 2, "service=start,inspp-none"},
        ServiceChecksTestRow{
            "NeverInstalledAndStopped", "service-not-installed", 2, "service=stop,inspp-none"},
        ServiceChecksTestRow{
            "InstalledByAnotherName",
            "service-not-installed",
            5,
            "directory=create,$pathTargetBinX86_64$\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x\n"
            "service=start,svcd"},
        ServiceChecksTestRow{
            "Installed",
            "service-not-installed",
            0,
            "directory=create,$pathTargetBinX86_64$\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x\n"
            "service=start,svc"},
        ServiceChecksTestRow{
            "UnitFileComesAlong",
            "service-not-installed",
            0,
            "file=copy,svc,$pathSourceBinX86_64$,/etc/systemd/system,other.service\n"
            "service=start,other"},
        ServiceChecksTestRow{
            "RemovedOnly", "service-not-installed", 0, "service=remove,inspp-none"},
        ServiceChecksTestRow{
            "ProgramIsNotMade",
            "service-program",
            2,
            "service=install,svc,Service,$pathTargetBinX86_64$other,-x"},
        ServiceChecksTestRow{
            "ProgramIsNotExecutable",
            "service-program",
            4,
            "directory=create,$pathTarget$doc\n"
            "file=copy,a,$pathSource$doc,$pathTarget$doc\n"
            "service=install,svc,Service,$pathTarget$doc/a,-x"},
        ServiceChecksTestRow{
            "ProgramIsCopiedLater",
            "service-program",
            2,
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x"},
        ServiceChecksTestRow{
            "ProgramOfTheSystem",
            "service-program",
            0,
            "service=install,svc,Service,/usr/bin/inspp-none,$pathTarget$x"},
        ServiceChecksTestRow{
            "CommandMayMakeTheProgram",
            "service-program",
            0,
            "process=start,make\n"
            "service=install,svc,Service,$pathTargetBinX86_64$other,-x"},
        ServiceChecksTestRow{
            "ProgramIsCopiedBefore",
            "service-program",
            0,
            "directory=create,$pathTargetBinX86_64$\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x\n"
            "service=start,svc"},
        ServiceChecksTestRow{
            "RunningServiceIsReplaced",
            "running-service",
            5,
            "directory=create,$pathTargetBinX86_64$\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x\n"
            "service=start,svc"},
        ServiceChecksTestRow{
            "ServiceIsRemovedFirst",
            "running-service",
            0,
            "service=remove,svc\n"
            "directory=create,$pathTargetBinX86_64$\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x\n"
            "service=start,svc"},
        ServiceChecksTestRow{
            "ServiceIsStoppedBehindTheCopy",
            "running-service",
            0,
            "directory=create,$pathTargetBinX86_64$\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x\n"
            "service=stop,svc\n"
            "service=start,svc"},
        ServiceChecksTestRow{
            "ProgramIsStopped",
            "running-service",
            0,
            "process=stop,svc\n"
            "directory=create,$pathTargetBinX86_64$\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x\n"
            "service=start,svc"},
        ServiceChecksTestRow{
            "CommandRestarts",
            "running-service",
            0,
            "directory=create,$pathTargetBinX86_64$\n"
            "file=copy,svc,$pathSourceBinX86_64$,$pathTargetBinX86_64$\n"
            "service=install,svc,Service,$pathTargetBinX86_64$svc,-x\n"
            "service=start,svc\n"
            "process=start,systemctl restart svc"},
        ServiceChecksTestRow{
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

} // namespace
