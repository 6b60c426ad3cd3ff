// SPDX-License-Identifier: MIT
#include <ins/KInstaller.h>
#include <setup/ExitCode.h>
#include <setup/run/Answers.h>
#include <setup/run/RunWords.h>

namespace KSETUP {

void FillStatus(
    const KSetupKit& /*kit*/, const KSetupArguments& /*arguments*/, KRunReport& report
) {
    const KINS::KInstaller installer;
    report.product = KSetupKit::GetProductName().c_str();
    if (!installer.IsProductInstalled()) {
        report.result = KRunResult::NotInstalled;
        report.exitCode = ExitCode::notInstalled;
        return;
    }
    const KInstalledRecord record = ReadRecord(installer);
    report.version = record.version;
    report.buildNumber = record.buildNumber;
    report.productPath = record.path;
}

} // namespace KSETUP
