// SPDX-License-Identifier: MIT
#include <ins/KInstallRuleManagerBase.h>
#include <ins/KProcessRuleBase.h>
#include <sup++/KErrorSource.h>
#include <sup++/KShellCommand.h>
#include <sup++/KUtil.h>
#include <sup++/SvcDispatch.h>

#include <typeinfo>

using KSUP::KLogPrefix;
using KSUP::KLogTypes;
using KSUP::KString;

namespace KINS {

namespace {

constexpr KSUP::KErrorSource errorSource{"ins/KProcessRuleBase"};
constexpr unsigned stopTimeoutMs = 3000;

} // namespace

KProcessRuleBase::KProcessRuleBase(KInstallRuleManagerBase* owner, const KString& line)
    : KInstallRule(owner, line) {}

KProcessRuleBase::~KProcessRuleBase() = default;

void KProcessRuleBase::Execute() {
    // Once more: a macro may have another value by now.
    const KString expanded = manager->ExpandMacros(command);
    const KRuleOperation operation = KRuleLine::FindOperation(KRuleType::Process, action);
    if (operation == KRuleOperation::Start) {
        Start(expanded);
    } else if (operation == KRuleOperation::Stop) {
        StopProgram(expanded);
    }
    // Any other action does nothing, and is meant to, unlike the service rule's.
}

void KProcessRuleBase::Start(const KString& expanded) {
    log << KLogPrefix(LogName()) << "Starting process: " << expanded << KLogTypes::EndEntry;
    manager->SetCurrentRuleStatus("Starting process " + expanded);
    try {
        KSUP::KShellCommand shell;
        shell.Execute(expanded);
        bool cancelled = false;
        while (!cancelled && shell.IsThreadActive()) {
            SvcPollingDispatch();
            cancelled = manager->IsCancelled();
        }
        if (shell.IsThreadActive()) {
            shell.Stop();
        }
    } catch (const KSUP::KError& cause) {
        Fail("Failed to start process ", expanded, cause);
    }
}

void KProcessRuleBase::StopProgram(const KString& expanded) {
    log << KLogPrefix(LogName()) << "Stopping process: " << expanded << KLogTypes::EndEntry;
    manager->SetCurrentRuleStatus("Stopping process " + expanded);
    try {
        KSUP::KUtil::KillProcess(expanded, stopTimeoutMs);
    } catch (const KSUP::KError& cause) {
        Fail("Failed to stop process ", expanded, cause);
    }
}

/// The cause goes into the log and becomes the reason; callers learn that a process failed, by one
/// code.
void KProcessRuleBase::Fail(
    const char* logText, const KString& expanded, const KSUP::KError& cause
) {
    log << KLogPrefix(LogName()) << logText << expanded << " " << cause << KLogTypes::EndEntry;
    errorSource.RaiseAs(
        {KSUP::KErrorKind::Process,
         cause.GetOperation(),
         cause.GetPath(),
         cause.HasInfo() ? cause.GetInfo().GetString() : cause.GetSummary()},
        KSUP::TraceLevel::setup,
        KSUP::ErrorCode::processFailed,
        KSUP::KVariant(),
        __builtin_LINE(),
        "Execute"
    );
}

KString KProcessRuleBase::LogName() const {
    return KSUP::KUtil::GetClassNameFromTypeInfo(typeid(*this));
}

KString KProcessRuleBase::Description() const {
    return "Execute command " + ruleLine;
}

void KProcessRuleBase::ParseRule(const std::vector<KString>& fields) {
    KRuleLine line = ReadFields(KRuleType::Process, fields);
    if (line.GetProblem() != KRuleLine::Problem::None) {
        errorSource.RaiseAs(
            line.GetErrorDetail(), KSUP::TraceLevel::rule, KSUP::ErrorCode::malformedRule, ruleLine
        );
    }
    action = line.GetOperationText();
    command = line.Take(KRuleField::Command);
}

} // namespace KINS
