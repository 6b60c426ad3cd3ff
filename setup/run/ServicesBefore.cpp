// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/plan/RunRefusals.h>
#include <setup/run/ServicesBefore.h>

#include <algorithm>

#include <sys/services/KServiceControl.h>

namespace KSETUP {

namespace {

using Kind = KPlannedAction::Kind;
constexpr unsigned starting = 2;
constexpr unsigned running = 4;

bool IsOfService(Kind kind) {
    return kind == Kind::InstallService || kind == Kind::RemoveService ||
           kind == Kind::StartService || kind == Kind::StopService;
}

/// One that systemd does not know does not run.
bool Runs(const std::string& service) {
    try {
        const unsigned state = KSYS::KServiceControl(service).GetState();
        return state == running || state == starting;
    } catch (const KSYS::KServiceError& error) {
        if (error.GetStatus() == KSYS::ServiceStatus::unknown ||
            error.GetStatus() == KSYS::ServiceStatus::invalidArgument) {
            return false; // the rule itself tells of a name that is none
        }
        throw;
    }
}

} // namespace

std::vector<KServiceBefore> LookAtServices(const KPlan& plan) {
    std::vector<KServiceBefore> services;
    for (const KPlannedRule& rule : plan.GetRules()) {
        for (const KPlannedAction& action : rule.actions) {
            if (!IsOfService(action.kind)) {
                continue;
            }
            auto found =
                std::find_if(services.begin(), services.end(), [&](const KServiceBefore& one) {
                    return one.name == *action.path;
                });
            if (found == services.end()) {
                found = services.insert(found, KServiceBefore{*action.path, std::nullopt, false});
            }
            found->isInstalled = found->isInstalled || action.kind == Kind::InstallService ||
                                 action.kind == Kind::RemoveService;
        }
    }
    try {
        for (KServiceBefore& service : services) {
            if (IsSystemdRunning()) {
                service.ran = Runs(service.name);
            }
        }
    } catch (const KSYS::KServiceError& error) {
        throw KSetupFailure(
            ExitCode::noService,
            Text(
                "it is not known whether a service runs, so it could not be put back: %s. Nothing "
                "was changed.",
                error.what()
            )
        );
    }
    return services;
}

void StopServices(
    const std::vector<KServiceBefore>& services,
    bool filesDiffer,
    KPutBackReport& report,
    std::vector<KText>& failures
) {
    for (const KServiceBefore& service : services) {
        try {
            if (!service.ran || (*service.ran && !filesDiffer) || !IsSystemdRunning() ||
                !Runs(service.name)) {
                continue;
            }
            KSYS::KServiceControl(service.name).Stop();
            if (!*service.ran) {
                report.stopped.push_back(service.name);
            }
        } catch (const KSYS::KServiceError& error) {
            failures.emplace_back(error.what());
        }
    }
}

void StartServices(
    const std::vector<KServiceBefore>& services,
    KPutBackReport& report,
    std::vector<KText>& failures
) {
    bool isRead = false;
    for (const KServiceBefore& service : services) {
        try {
            if (!service.ran || !IsSystemdRunning()) {
                continue;
            }
            KSYS::KServiceControl control(service.name);
            if (!isRead) {
                control.Reload();
                isRead = true;
            }
            if (*service.ran && !Runs(service.name)) {
                control.Start();
                report.restarted.push_back(service.name);
            }
        } catch (const KSYS::KServiceError& error) {
            failures.emplace_back(error.what());
        }
    }
}

} // namespace KSETUP
