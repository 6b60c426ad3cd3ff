// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/output/TextFormat.h>
#include <setup/plan/RunRefusals.h>
#include <setup/preflight/Preflight.h>
#include <setup/preflight/VersionOrder.h>

#include <sys/processes/ProcessIsolation.h>

namespace KSETUP {

namespace {

std::string ToText(const KVersion& version) {
    return version.text + " (build " + std::to_string(version.buildNumber) + ")";
}

} // namespace

void RequireRoot() {
    if (!KSYS::IsRoot()) {
        throw KSetupFailure(
            ExitCode::notRoot, "Only root can install and remove products. Try it with sudo."
        );
    }
}

void RequireSpace(const KPlan& plan, const std::vector<std::string>& alsoWritten) {
    for (const KPlan::Space& space : plan.ReadSpace(alsoWritten)) {
        if (!space.HasBytes()) {
            throw KSetupFailure(
                ExitCode::cannotWrite,
                "the file system of " + space.directory + " has too little space: " +
                    BytesInWords(space.needed + KPlan::Space::spareBytes) + " needed, " +
                    BytesInWords(space.available) + " free. Nothing was changed. Make room there."
            );
        }
        if (!space.HasFiles()) {
            throw KSetupFailure(
                ExitCode::cannotWrite,
                "the file system of " + space.directory + " has too few inodes: " +
                    std::to_string(space.filesNeeded + KPlan::Space::spareFiles) + " needed, " +
                    std::to_string(space.filesAvailable) +
                    " free. Nothing was changed. Delete files there that nobody needs."
            );
        }
    }
}

void RequireWritable(const KPlan& plan) {
    if (const std::string why = WhyNotWritable(plan); !why.empty()) {
        throw KSetupFailure(ExitCode::cannotWrite, why + ". Nothing was changed.");
    }
}

void RequireServiceManager(const KPlan& plan) {
    if (HasServices(plan) && !IsSystemdRunning()) {
        throw KSetupFailure(
            ExitCode::noService,
            "the script has services, and systemd does not run here. Nothing was changed. "
            "--offline-services leaves them for the next boot."
        );
    }
}

void RequireNoDowngrade(
    const std::string& product, const KVersion& installed, const KVersion& wanted
) {
    const auto order = CompareVersions(installed.text, wanted.text);
    if (order > 0 || (order == 0 && installed.buildNumber > wanted.buildNumber)) {
        throw KSetupFailure(
            ExitCode::usage,
            product + " " + ToText(installed) + " is installed, which is newer than " +
                ToText(wanted) +
                ". Nothing was changed. --allow-downgrade installs the older one over it."
        );
    }
}

} // namespace KSETUP
