// SPDX-License-Identifier: MIT
#include <setup/rules/KCommandRule.h>
#include <sup++/KErrorSource.h>
#include <sup++/KShellCommand.h>
#include <sup++/SvcDispatch.h>

#include <string>

namespace KSETUP {

namespace {

constexpr KSUP::KErrorSource errorSource{"setup/KCommandRule"};

} // namespace

void RunCommandLine(
    const KINS::KInstallRuleManagerBase& manager, const KSUP::KString& commandLine
) {
    KSUP::KShellCommand shell;
    shell.Execute(commandLine);
    bool isCancelled = false;
    while (!isCancelled && shell.IsThreadActive()) {
        SvcPollingDispatch();
        isCancelled = manager.IsCancelled();
    }
    if (shell.IsThreadActive()) {
        shell.Stop(true);
        return; // the manager tells of the stop
    }
    if (const int code = shell.GetExitStatus(); code != 0) {
        // Not of the kind Process, which says that it could not be started. The exit code is the reason:
        // whoever tells people needs it by itself.
        const std::string exitCode = std::to_string(code);
        errorSource.RaiseAs(
            {KSUP::KErrorKind::Own, KSUP::KOperation::Execute, commandLine, exitCode},
            KSUP::TraceLevel::setup,
            KSUP::ErrorCode::processFailed,
            "the command failed with exit code " + exitCode + ": " + commandLine
        );
    }
}

void KCommandRule::Execute() {
    const KSUP::KString command = Get(KSetupField::Command);
    manager->SetCurrentRuleStatus("Running command " + command);
    RunCommandLine(*manager, command);
}

} // namespace KSETUP
