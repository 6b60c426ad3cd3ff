// SPDX-License-Identifier: MIT
#pragma once

#include <setup/rules/KOwnRule.h>

namespace KSETUP {

/// `command=run,COMMAND LINE`: runs a command as process=start does, with the difference that the
/// line goes to its end, commas too, and that an exit code other than 0 ends the run.
class KCommandRule : public KOwnRule {
  public:
    using KOwnRule::KOwnRule;
    /// Throws   KSUP::KError 172 with the exit code and the command
    void Execute() override;
};

/// Runs a command line of a rule to its end, or until the run is to stop.
///
/// Throws   KSUP::KError 172 for one that cannot be started, or that fails; of the latter the path is the
///          command line, and the reason the exit code
void RunCommandLine(const KINS::KInstallRuleManagerBase& manager, const KSUP::KString& commandLine);

} // namespace KSETUP
