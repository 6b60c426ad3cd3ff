// SPDX-License-Identifier: MIT
#include <ins/KInstallRuleManagerBase.h>
#include <ins/KServiceRule.h>
#include <sup++/KErrorSource.h>
#include <sup++/KUtil.h>
#include <sup++/SvcData.h>
#include <sup++/SvcMessage.h>
#include <sup++/SvcService.h>

using KSUP::KLogPrefix;
using KSUP::KLogTypes;
using KSUP::KString;
using KSUP::KUtil;

namespace KINS {

namespace {

constexpr KSUP::KErrorSource errorSource{"ins/KServiceRule"};

// Of the engine's catalogue, 44.
constexpr unsigned removingMessage = 0x2C0001;
constexpr unsigned installingMessage = 0x2C0002;
constexpr unsigned startingMessage = 0x2C0003;
constexpr unsigned stoppingMessage = 0x2C0004;

// A removal goes on after this. Unregistering stops what does not stop by itself.
constexpr unsigned removalStopMs = 30000;

constexpr unsigned stoppedState = 1;
constexpr unsigned runningState = 4;

/// The words of the call that failed last on this thread are the reason.
[[noreturn]] void RaiseStatus(
    unsigned status,
    const KSUP::KVariant& info = KSUP::KVariant(),
    unsigned line = __builtin_LINE(),
    const char* function = __builtin_FUNCTION()
) {
    errorSource.RaiseAs(
        {KSUP::KErrorKind::Service, KSUP::KOperation::None, {}, SvcGetServiceErrorText()},
        KSUP::TraceLevel::setup,
        status,
        info,
        line,
        function
    );
}

} // namespace

KServiceRule::KServiceRule(KInstallRuleManagerBase* owner, const KString& line)
    : KInstallRule(owner, line) {}

KServiceRule::~KServiceRule() = default;

void KServiceRule::Execute() {
    switch (KRuleLine::FindOperation(KRuleType::Service, action)) {
    case KRuleOperation::Remove:
        RemoveService();
        break;
    case KRuleOperation::Install:
        InstallService();
        break;
    case KRuleOperation::Stop:
        StopService();
        break;
    case KRuleOperation::Start:
        StartService();
        break;
    default:
        log << KLogPrefix(LogName()) << "Unrecognized service control rule " << action
            << KLogTypes::EndEntry;
        errorSource.Raise(KSUP::TraceLevel::setup, KSUP::ErrorCode::malformedRule);
    }
}

KString KServiceRule::Description() const {
    return "Service control " + ruleLine;
}

void KServiceRule::ParseRule(const std::vector<KString>& fields) {
    KRuleLine line = ReadFields(KRuleType::Service, fields);
    if (line.GetProblem() != KRuleLine::Problem::None) {
        log << KLogPrefix(LogName()) << "Invalid service rule detected " << ruleLine
            << KLogTypes::EndEntry;
        errorSource.RaiseAs(
            line.GetErrorDetail(),
            KSUP::TraceLevel::setup,
            KSUP::ErrorCode::malformedRule,
            "Invalid service rule"
        );
    }
    action = line.GetOperationText();
    serviceName = line.Take(KRuleField::ServiceName);
    displayName = line.Take(KRuleField::DisplayName);
    program = line.Take(KRuleField::Program);
    arguments = line.Take(KRuleField::Arguments);
}

unsigned KServiceRule::InstallService() {
    SetStatus(installingMessage);
    log << KLogPrefix(LogName()) << "Installing service " << serviceName << " " << displayName
        << " " << program << " " << arguments << KLogTypes::EndEntry;
    const unsigned status = SvcCreateService(
        0, serviceName.c_str(), displayName.c_str(), program.c_str(), arguments.c_str()
    );
    if (status != 0) {
        log << KLogPrefix(LogName()) << "Failed to create service " << KLogTypes::StatusCode
            << " ('" << status << "')" << KLogTypes::EndEntry;
        RaiseStatus(status, "Failed to install service");
    }
    return 0;
}

void KServiceRule::RemoveService() {
    SetStatus(removingMessage);
    unsigned status = SvcStopServiceEx(0, serviceName.c_str(), removalStopMs);
    if (status != 0) {
        log << KLogPrefix(LogName()) << "Failed to stop service " << KLogTypes::StatusCode << status
            << KLogTypes::EndEntry;
    }
    status = SvcDeleteService(0, serviceName.c_str());
    if (status != 0) {
        log << KLogPrefix(LogName()) << "Failed to delete service " << KLogTypes::StatusCode
            << status << KLogTypes::EndEntry;
    }
}

unsigned KServiceRule::StartService() {
    SetStatus(startingMessage);
    log << KLogPrefix(LogName()) << "Starting service: " << serviceName << KLogTypes::EndEntry;
    const unsigned status = SvcStartService(0, serviceName.c_str());
    if (status != 0) {
        RaiseStatus(status);
    }
    return 0;
}

unsigned KServiceRule::StopService() {
    SetStatus(stoppingMessage);
    log << KLogPrefix(LogName()) << "Stopping service: " << serviceName << KLogTypes::EndEntry;
    const unsigned status = SvcStopService(0, serviceName.c_str());
    if (status != 0) {
        RaiseStatus(status);
    }
    return 0;
}

bool KServiceRule::IsServiceRunning() {
    unsigned state = stoppedState;
    const char* const name = SvcGetProductText(SvcGetOEMDataEx()->serviceName);
    // Ignored: a service that cannot be asked about leaves the state, and is not known to run.
    static_cast<void>(SvcGetServiceStatus(0, name, &state));
    return state == runningState;
}

KString KServiceRule::LogName() const {
    return KUtil::GetClassNameFromTypeInfo(typeid(*this));
}

void KServiceRule::SetStatus(unsigned messageId) {
    manager->SetCurrentRuleStatus(SvcGetMessagePtr(messageId));
}

} // namespace KINS
