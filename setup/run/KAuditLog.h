// SPDX-License-Identifier: MIT
#pragma once

#include <setup/output/KRunReport.h>
#include <sup++/KLog.h>

#include <string>

namespace KSETUP {

/// Writes down that a run began and how it ended: in the setup log, around what the engine writes
/// there, and in the system's journal as one structured entry each.
///
/// The journal's entries have the fields INSPP_COMMAND, INSPP_PRODUCT, INSPP_VERSION,
/// INSPP_PRODUCT_PATH, INSPP_RESULT ("started", "done", "failed", "cancelled"), of a failure
/// INSPP_ERROR, and of a signed kit, or one that had to be, INSPP_SIGNATURE. A system without a
/// journal has the log only.
///
/// Thread   the main thread's
class KAuditLog {
  public:
    /// Throws   KSetupFailure when the setup log cannot be opened
    static void Begin(const KRunReport& report, const std::string& kit);
    /// Before the end of a run that was to be put back, what became of that. `log` as below.
    static void RolledBack(const KRunReport& report, KSUP::KLog& log);
    /// `log` is the installer's, which is open by now.
    static void End(const KRunReport& report, KSUP::KLog& log);
};

} // namespace KSETUP
