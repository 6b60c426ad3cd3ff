// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/plan/RunRefusals.h>
#include <setup/run/ServicesBefore.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include <sys/services/KServiceControl.h>

namespace KSETUP {

namespace {

namespace fs = std::filesystem;
using Kind = KPlannedAction::Kind;
constexpr const char* unitDirectory = "/etc/systemd/system";
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

bool HoldsLinks(const fs::path& directory) {
    const fs::path ending = directory.extension();
    return ending == ".wants" || ending == ".requires" || ending == ".upholds";
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
                    return one.name == action.path;
                });
            if (found == services.end()) {
                found = services.insert(found, KServiceBefore{action.path, std::nullopt, false});
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
            std::string("it is not known whether a service runs, so it could not be put back: ") +
                error.what() + ". Nothing was changed."
        );
    }
    return services;
}

std::vector<std::string> FindUnitEntries(const std::string& service) {
    const std::string unit = service + ".service";
    std::vector<std::string> entries;
    std::error_code unknown; // what cannot be looked at has none
    const auto add = [&](const fs::path& path) {
        if (fs::exists(fs::symlink_status(path, unknown))) {
            entries.push_back(path.string());
        }
    };
    add(fs::path(unitDirectory) / unit);
    for (fs::directory_iterator entry(unitDirectory, unknown), end; !unknown && entry != end;
         entry.increment(unknown)) {
        std::error_code none; // what is no link leads nowhere
        if (HoldsLinks(entry->path())) {
            add(entry->path() / unit);
        } else if (entry->path().filename() != unit && fs::read_symlink(entry->path(), none).filename() == unit) {
            add(entry->path());
        }
    }
    return entries;
}

void StopServices(
    const std::vector<KServiceBefore>& services,
    bool filesDiffer,
    KPutBackReport& report,
    std::vector<std::string>& failures
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
    std::vector<std::string>& failures
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
