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

KText VersionWords(const KVersion& version) {
    return Text("%s (build %s)", version.text, version.buildNumber);
}

} // namespace

void RequireRoot() {
    if (!KSYS::IsRoot()) {
        throw KSetupFailure(
            ExitCode::notRoot, Text("Only root can install and remove products. Try it with sudo.")
        );
    }
}

void RequireSpace(
    const KPlan& plan,
    const std::vector<std::string>& alsoWritten,
    const std::function<bool(const std::string& path)>& isThere
) {
    for (const KPlan::Space& space : plan.ReadSpace(alsoWritten, isThere)) {
        RequireSpace(space);
    }
}

void RequireSpace(const KPlan::Space& space) {
    if (!space.HasBytes()) {
        throw KSetupFailure(
            ExitCode::cannotWrite,
            Text(
                "the file system of %s has too little space: %s needed, %s free. Nothing was "
                "changed. Make room there.",
                space.directory,
                BytesInWords(space.needed + KPlan::Space::spareBytes),
                BytesInWords(space.available)
            )
        );
    }
    if (!space.HasFiles()) {
        throw KSetupFailure(
            ExitCode::cannotWrite,
            Text(
                "the file system of %s has too few inodes: %s needed, %s free. Nothing was "
                "changed. Delete files there that nobody needs.",
                space.directory,
                space.filesNeeded + KPlan::Space::spareFiles,
                space.filesAvailable
            )
        );
    }
}

void RequireWritable(const KPlan& plan) {
    if (const KText why = WhyNotWritable(plan); !why.empty()) {
        throw KSetupFailure(ExitCode::cannotWrite, Text("%s. Nothing was changed.", why));
    }
}

void RequireServiceManager(const KPlan& plan) {
    if (HasServices(plan) && !IsSystemdRunning()) {
        throw KSetupFailure(
            ExitCode::noService,
            Text("the script has services, and systemd does not run here. Nothing was changed. "
                 "--offline-services leaves them for the next boot.")
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
            Text(
                "%s %s is installed, which is newer than %s. Nothing was changed. "
                "--allow-downgrade installs the older one over it.",
                product,
                VersionWords(installed),
                VersionWords(wanted)
            )
        );
    }
}

} // namespace KSETUP
