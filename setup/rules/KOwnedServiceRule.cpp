// SPDX-License-Identifier: MIT
#include <ins/KInstallRuleManagerBase.h>
#include <setup/plan/UnitFiles.h>
#include <setup/rules/KOwnedServiceRule.h>
#include <setup/state/KManifest.h>
#include <sup++/SvcFile.h>

namespace KSETUP {

using KINS::KRuleOperation;

KOwnedServiceRule::KOwnedServiceRule(
    KINS::KInstallRuleManagerBase& owner,
    const KSUP::KString& line,
    const KServiceOverrides& servicesBefore,
    KRunChanges& runChanges
)
    : KServiceRule(&owner, line),
      before(servicesBefore),
      changes(runChanges) {}

KOwnedServiceRule::~KOwnedServiceRule() = default;

void KOwnedServiceRule::Execute() {
    const std::string name = serviceName.c_str();
    const auto does = KINS::KRuleLine::FindOperation(KINS::KRuleType::Service, action);
    const bool comesUp = does == KRuleOperation::Install || does == KRuleOperation::Start;
    if (comesUp && before.masked.contains(name)) {
        changes.keptServices[name] = "masked";
        return;
    }
    if (does == KRuleOperation::Start && before.stopped.contains(name)) {
        changes.keptServices.try_emplace(name, "stopped");
        return;
    }
    KServiceRule::Execute();
    if (does == KRuleOperation::Install && before.disabled.contains(name)) {
        // systemd reads it when the machine comes up; until then nothing asks for the link.
        for (const std::string& entry : FindUnitEntries(name)) {
            if (const auto link = LookAtEntry(entry); link && !link->target.empty()) {
                static_cast<void>(SvcDeleteFile(0, entry.c_str()));
            }
        }
        std::string& state = changes.keptServices[name];
        state = before.stopped.contains(name) ? "disabled and stopped" : "disabled";
    }
}

} // namespace KSETUP
