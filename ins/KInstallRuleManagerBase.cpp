// SPDX-License-Identifier: MIT
#include <ins/KDirectoryRule.h>
#include <ins/KFileRule.h>
#include <ins/KInstallRuleManagerBase.h>
#include <ins/KInstaller.h>
#include <ins/KProcessRule.h>
#include <ins/KProfileRule.h>
#include <ins/KSectionRule.h>
#include <ins/KServiceRule.h>
#include <ins/Names.h>
#include <sup++/KError.h>
#include <sup++/KErrorSource.h>
#include <sup++/KUtil.h>
#include <sup++/SvcCommandLine.h>
#include <sup++/SvcData.h>
#include <sup++/Txt.h>

#include <cmath>
#include <memory>
#include <optional>
#include <utility>

using KSUP::KLogPrefix;
using KSUP::KLogTypes;
using KSUP::KMutex;
using KSUP::KString;
using KSUP::KUtil;
using KSUP::KVariant;

namespace KINS {

namespace {

constexpr KSUP::KErrorSource errorSource{"ins/KInstallRuleManagerBase"};

/// Raw, because AddRule(rule), to which it goes, takes a plain pointer and owns it at once.
KInstallRule* Make(KRuleType type, KInstallRuleManagerBase* manager, const KString& line) {
    switch (type) {
    case KRuleType::File:
        return new KFileRule(manager, line);
    case KRuleType::Directory:
        return new KDirectoryRule(manager, line);
    case KRuleType::Section:
        return new KSectionRule(manager, line);
    case KRuleType::Process:
        return new KProcessRule(manager, line);
    case KRuleType::Service:
        return new KServiceRule(manager, line);
    case KRuleType::Profile:
        return new KProfileRule(manager, line);
    case KRuleType::None:
        break;
    }
    return nullptr;
}

/// All rules of a class share a state, so its type's name is the key.
KString StateKey(const KInstallRuleBase* rule) {
    // For a null rule the language itself throws the std::bad_typeid that callers are promised.
    const char* name = typeid(*rule).name();
    // The mark of a type that is known to one library only; it is no part of the name.
    return name[0] == '*' ? name + 1 : name;
}

} // namespace

/// What a program has attached to the manager, and what the rule at work has said.
struct KInstallRuleManagerBase::KAttachments {
    KString className;                // for the log; empty until it is needed
    std::optional<KLogPrefix> prefix; // of the entries of rules: the class's name
    RuleFactory factory;
    RunListener listener;
    KSUP::KOperation operation = KSUP::KOperation::None;
    KString target; // what `operation` is done to
    /// Of the current status. It becomes a text where the status is asked for, which happens some
    /// times a second; a copy reports for each of its chunks.
    double percentage = noPercentage;
};

KInstallRuleManagerBase::KInstallRuleManagerBase(KInstaller* owner)
    : KBase("KInstallRuleManager", true),
      log(&owner->GetLog()),
      installer(owner),
      rules(true),
      attachments(std::make_unique<KAttachments>()) {}

KInstallRuleManagerBase::~KInstallRuleManagerBase() = default;

const KString& KInstallRuleManagerBase::LogName() const {
    KString& name = attachments->className;
    if (name.IsEmpty()) { // not in a constructor, where the class is not yet the real one
        name = KUtil::GetClassNameFromTypeInfo(typeid(*this));
    }
    return name;
}

void KInstallRuleManagerBase::LoadSection(const KString& section) {
    const KMutex::KLock hold(lock);
    *log << KLogPrefix(LogName()) << "Processing section -> " << section << KLogTypes::EndEntry;
    LoadOneSection(section);
    LoadOneSection(section + "." + SvcGetGlobalDataEx()->architecture);
}

void KInstallRuleManagerBase::LoadOneSection(const KString& section) {
    // A copy for each call: section rules load others in the middle of this enumeration.
    const KSUP::KProfile script = installer->GetInstallProfile();
    script.BeginKeyEnum(section, nullptr);
    while (script.EnumKey(nullptr, false)) {
        // The proposed product path stands among the rules of the script and is none.
        if (Txtcmp(script.GetKeyName().c_str(), Names::defaultPathKey) != 0) {
            AddRule(script.GetKeyName(), script.GetKeyValue());
        }
    }
}

void KInstallRuleManagerBase::LoadCommandLineRules() {
    // All values are read before the first rule is added, so that a command line with an error adds
    // none. No lock: each AddRule takes it.
    std::vector<KString> values;
    char buffer[512];
    unsigned cursor = 0;
    for (;;) {
        const unsigned status = SvcEnumerateStringFromCommandLine(
            0,
            SvcGetGlobalDataEx()->commandLine,
            "",
            Names::addProfileLineOption,
            sizeof(buffer),
            &cursor,
            buffer
        );
        if (status == KSUP::ErrorCode::notFound) {
            break;
        }
        if (status != 0) {
            errorSource.Raise(
                KSUP::TraceLevel::setup,
                status,
                "Error parsing command line string while loading command line installer rules"
            );
        }
        values.emplace_back(buffer);
    }
    for (const KString& value : values) {
        AddRule("profile", KString("put,") + Names::recordFile + "," + value);
    }
}

void KInstallRuleManagerBase::AddRule(const KString& type, const KString& line) {
    const KMutex::KLock hold(lock);
    if (attachments->factory) {
        if (std::unique_ptr<KInstallRule> made = attachments->factory(*this, type, line)) {
            AddRule(made.release()); // which owns it at once
            return;
        }
    }
    if (const KRuleTypeInfo* known = KRuleLine::FindType(type)) {
        AddRule(Make(known->type, this, line));
        return;
    }
    *log << KLogPrefix(LogName()) << "Unknown rule " << type << " " << line << KLogTypes::EndEntry;
    const KRuleLine read = KRuleLine::Read(type, line, [](const KString& text) { return text; });
    errorSource.RaiseAs(
        read.GetErrorDetail(), KSUP::TraceLevel::setup, KSUP::ErrorCode::malformedRule
    );
}

void KInstallRuleManagerBase::AddRule(KInstallRule* rule) {
    std::unique_ptr<KInstallRule> owned(rule);
    const KMutex::KLock hold(lock);
    owned->Initialize();
    LogRule("Adding rule -> ", *owned);
    rules.Append(owned);
}

void KInstallRuleManagerBase::ExecuteRules() {
    const KMutex::KLock hold(lock);
    bool cancelled = false;
    // By index, with the size read anew: a rule may add others while the lock is released.
    for (std::size_t index = 0; !cancelled && index < rules.GetCount(); ++index) {
        KInstallRule* rule = rules[index];
        LogRule("Executing rule -> ", *rule);
        cancelled = IsCancelled();
        if (!cancelled) {
            ExecuteRule(*rule);
        }
    }
    // Also behind the last rule: what it was stopped in may be half done.
    if (cancelled || IsCancelled()) {
        errorSource.Raise(KSUP::TraceLevel::rule, KSUP::ErrorCode::cancelled);
    }
}

void KInstallRuleManagerBase::LogRule(const char* what, const KInstallRule& rule) {
    if (log->IsOpen()) { // a description is no small text, and nobody would read it
        std::optional<KLogPrefix>& prefix = attachments->prefix;
        if (!prefix.has_value()) {
            prefix.emplace(LogName());
        }
        *log << *prefix << what << &rule << KLogTypes::EndEntry;
    }
}

void KInstallRuleManagerBase::ExecuteRule(KInstallRule& rule) {
    attachments->operation = KSUP::KOperation::None;
    attachments->target = KString();
    TellRule(KRunEvent::Kind::RuleStarted, rule);
    {
        const KMutex::KRelease release(lock);
        rule.Execute();
    }
    if (rule.ShouldCount()) {
        ++completedCount;
        TellRule(KRunEvent::Kind::RuleDone, rule);
    }
}

void KInstallRuleManagerBase::TellRule(KRunEvent::Kind kind, const KInstallRule& rule) {
    if (attachments->listener && rule.ShouldCount()) {
        Tell(kind, rule.Description(), noPercentage);
    }
}

void KInstallRuleManagerBase::Tell(KRunEvent::Kind kind, const KString& text, double percentage) {
    const KAttachments& attached = *attachments;
    if (attached.listener) {
        const unsigned done = kind == KRunEvent::Kind::RuleDone ? 1 : 0;
        attached.listener(
            {kind, completedCount - done, text, percentage, attached.operation, attached.target}
        );
    }
}

void KInstallRuleManagerBase::SetCurrentRuleStatus(const KString& text, double value) {
    const KMutex::KLock hold(lock);
    if (callback) {
        callback(text, value);
    }
    currentStatus = text;
    attachments->percentage = value;
    Tell(KRunEvent::Kind::Status, text, value);
}

void KInstallRuleManagerBase::SetCurrentRuleStatus(const KString& text) {
    SetCurrentRuleStatus(text, noPercentage);
}

KString KInstallRuleManagerBase::GetCurrentRuleStatus() const {
    const KMutex::KLock hold(lock);
    const double percentage = attachments->percentage;
    if (percentage == noPercentage) {
        return currentStatus;
    }
    return currentStatus + " (" + KUtil::NumberToString<double>(std::ceil(percentage), false) +
           "%)";
}

void KInstallRuleManagerBase::Clear() {
    const KMutex::KLock hold(lock);
    rules.Release();
    completedCount = 0;
}

unsigned int KInstallRuleManagerBase::GetCompletedCount() const {
    const KMutex::KLock hold(lock);
    return completedCount;
}

KString KInstallRuleManagerBase::ExpandMacros(const KString& text) const {
    return installer->ExpandMacros(text);
}

unsigned int KInstallRuleManagerBase::GetRuleCount() const {
    const KMutex::KLock hold(lock);
    unsigned int count = 0;
    for (std::size_t index = 0; index < rules.GetCount(); ++index) {
        count += rules[index]->ShouldCount() ? 1U : 0U;
    }
    return count;
}

void KInstallRuleManagerBase::SetRuleState(const KInstallRuleBase* rule, const KVariant& value) {
    const KMutex::KLock hold(lock);
    ruleStates.insert_or_assign(StateKey(rule), value);
}

KVariant& KInstallRuleManagerBase::GetRuleState(const KInstallRuleBase* rule) const {
    const KMutex::KLock hold(lock);
    const auto state = ruleStates.find(StateKey(rule));
    if (state == ruleStates.end()) {
        errorSource.Raise(KSUP::TraceLevel::rule, KSUP::ErrorCode::notFound);
    }
    return state->second;
}

bool KInstallRuleManagerBase::IsCancelled() const {
    return installer->IsCancelled();
}

unsigned int KInstallRuleManagerBase::ParseRuleOrderId(const KString& line) const {
    const KMutex::KLock hold(lock);
    try {
        return KUtil::StringToNumber<unsigned int>(line.Split(',', '\0', true, false).first, false);
    } catch (const KSUP::KError&) {
        return 1; // a line that tells no number is as good as first
    }
}

KString KInstallRuleManagerBase::ParseRuleType(const KString& line) const {
    const KMutex::KLock hold(lock);
    return KUtil::Lowerify(line.Split(',', '\0', true, false).first);
}

void KInstallRuleManagerBase::SetCallback(StatusCallback statusCallback) {
    callback = std::move(statusCallback);
}

void KInstallRuleManagerBase::SetRuleFactory(RuleFactory ruleFactory) {
    const KMutex::KLock hold(lock);
    attachments->factory = std::move(ruleFactory);
}

void KInstallRuleManagerBase::SetRunListener(RunListener runListener) {
    const KMutex::KLock hold(lock);
    attachments->listener = std::move(runListener);
}

void KInstallRuleManagerBase::SetCurrentTarget(KSUP::KOperation operation, const KString& path) {
    const KMutex::KLock hold(lock);
    attachments->operation = operation;
    attachments->target = path;
}

KString KInstallRuleManagerBase::GetCurrentTarget() const {
    const KMutex::KLock hold(lock);
    return attachments->target;
}

KSUP::KLog& KInstallRuleManagerBase::GetInstallLog() {
    return installer->GetLog();
}

} // namespace KINS
