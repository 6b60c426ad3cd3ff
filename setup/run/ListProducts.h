// SPDX-License-Identifier: MIT
#pragma once

#include <setup/output/KRunReport.h>

namespace KSETUP {

/// `ins-setup list`: what the machine remembers of products that ins-setup installed, with a quick
/// look at whether each is as it was installed. Takes no lock: a run that goes on is told.
///
/// Throws   KSetupFailure with ExitCode::notRoot for a user who may not look
void FillList(KRunReport& report);

} // namespace KSETUP
