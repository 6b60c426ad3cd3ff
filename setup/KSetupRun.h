// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KInstaller.h>
#include <setup/KServiceReason.h>
#include <setup/KSetupArguments.h>
#include <setup/KSetupKit.h>
#include <setup/KSetupProgress.h>
#include <setup/KSetupSignals.h>
#include <sup++/KError.h>
#include <sup++/KString.h>

#include <cstdint>
#include <string>

namespace KSETUP {

/// One install or removal, from the checks before it to the report after it.
///
/// Borrows the kit.
class KSetupRun {
  public:
    explicit KSetupRun(const KSetupKit& kitToUse) : kit(kitToUse) {}

    /// Both return the program's exit code, having said what was done.
    ///
    /// Throws   KSetupFailure when nothing was begun
    ///
    /// `offlineServices` leaves starting and stopping services for the next boot, where systemd does
    /// not run
    int Install(const std::string& givenPath, bool offlineServices);
    int Remove();

  private:
    void Prepare();
    /// Lets what commands write go into a file beside the setup log: whether a command failed does not
    /// matter to the run, so this is the only place that tells.
    void NameCommandOutput();
    /// Where that is, as a line of its own; empty when this run's commands have written nothing.
    std::string CommandOutputLine() const;
    void Load(const std::string& path);
    std::string ChooseProductPath(const std::string& givenPath) const;
    int Watch(const std::string& path);
    void AnswerSignal();
    int ReportDone(const std::string& path);
    int ReportError(const KSUP::KError& error, const std::string& path);
    /// Where the log is, and its last lines.
    std::string LogEnd();

    const KSetupKit& kit;
    KSetupSignals signals;
    KSetupProgress progress;
    KServiceReason serviceReason;
    bool installs = true;
    KSUP::KString commandOutput;
    std::uintmax_t commandOutputSize = 0; // before the run
    unsigned maxCount = 0;                // the main thread's
    unsigned workerMaxCount = 0; // the worker thread's, which may report before Start is back
    KINS::KInstaller installer;  // last: its run uses the rest
};

/// Says whether the product is installed, and which version. Returns the exit code.
int ReportStatus();

} // namespace KSETUP
