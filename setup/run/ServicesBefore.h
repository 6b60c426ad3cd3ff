// SPDX-License-Identifier: MIT
#pragma once

#include <setup/output/KRunReport.h>
#include <setup/plan/KPlan.h>
#include <setup/state/KBackupIndex.h>

#include <string>
#include <vector>

namespace KSETUP {

/// \file
/// Services beside the files of a backup: how they were before a run, and how they are brought back.
///
/// Thread   the main thread's

/// The services that a plan installs, removes, starts or stops, as they are now.
///
/// Throws   KSetupFailure (ExitCode::noService) when systemd does not tell
std::vector<KServiceBefore> LookAtServices(const KPlan& plan);

/// Stops those that run now and did not before; with `filesDiffer` all that run: their files are
/// about to be others. What fails is appended to `failures`.
void StopServices(
    const std::vector<KServiceBefore>& services,
    bool filesDiffer,
    KPutBackReport& report,
    std::vector<KText>& failures
);

/// Has systemd read the unit files, and starts those that ran before and do not now.
void StartServices(
    const std::vector<KServiceBefore>& services,
    KPutBackReport& report,
    std::vector<KText>& failures
);

} // namespace KSETUP
