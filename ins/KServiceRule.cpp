// SPDX-License-Identifier: MIT
#include <ins/KServiceRule.h>
#include <sup++/KErrorSource.h>
#include <sup++/KUtil.h>

#include <cerrno>

using KSUP::KLogPrefix;
using KSUP::KLogTypes;
using KSUP::KString;
using KSUP::KUtil;

namespace KINS {

namespace {

constexpr KSUP::KErrorSource errorSource{"ins/KServiceRule"};

} // namespace

KServiceRule::KServiceRule(KInstallRuleManagerBase* owner, const KString& line)
    : KInstallRule(owner, line) {}

KServiceRule::~KServiceRule() = default;

void KServiceRule::Execute() {
    if (action == "remove" || action == "install" || action == "stop" || action == "start") {
        // Loud, since a product whose service was left out is not installed.
        errorSource.Raise(
            KSUP::TraceLevel::setup, ENOSYS, "this version does not run service rules: " + ruleLine
        );
    }
    log << KLogPrefix(KUtil::GetClassNameFromTypeInfo(typeid(*this)))
        << "Unrecognized service control rule " << action << KLogTypes::EndEntry;
    errorSource.Raise(KSUP::TraceLevel::setup, KSUP::ErrorCode::malformedRule);
}

KString KServiceRule::Description() const {
    return "Service control " + ruleLine;
}

void KServiceRule::ParseRule(const std::vector<KString>& fields) {
    const std::size_t count = fields.size();
    if (count != 2 && count != 5) {
        log << KLogPrefix(KUtil::GetClassNameFromTypeInfo(typeid(*this)))
            << "Invalid service rule detected " << ruleLine << KLogTypes::EndEntry;
        errorSource.Raise(
            KSUP::TraceLevel::setup, KSUP::ErrorCode::malformedRule, "Invalid service rule"
        );
    }
    action = KUtil::Lowerify(fields[0]);
    serviceName = ExpandMacros(fields[1]);
    if (count == 5) {
        displayName = ExpandMacros(fields[2]);
        program = ExpandMacros(fields[3]);
        arguments = ExpandMacros(fields[4]);
    }
}

} // namespace KINS
