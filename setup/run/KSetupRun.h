// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KInstaller.h>
#include <setup/kit/KSetupKit.h>
#include <setup/output/KSetupArguments.h>
#include <setup/output/KSetupProgress.h>
#include <setup/output/KSetupSignals.h>
#include <setup/run/KServiceReason.h>
#include <sup++/KError.h>

#include <string>

namespace KSETUP {

/// One install or removal, from the checks before it to the report after it.
///
/// Borrows the kit and the arguments.
class KSetupRun {
  public:
    KSetupRun(const KSetupKit& kitToUse, const KSetupArguments& given)
        : kit(kitToUse),
          arguments(given) {}

    /// Both return the program's exit code, having said what was done.
    ///
    /// Throws   KSetupFailure when nothing was begun
    int Install();
    int Remove();

  private:
    void Prepare();
    void Load(const std::string& path);
    std::string ChooseProductPath(const std::string& givenPath) const;
    int Watch(const std::string& path);
    void AnswerSignal();
    int ReportDone(const std::string& path);
    int ReportError(const KSUP::KError& error, const std::string& path);
    /// Where the log is, and its last lines.
    std::string LogEnd();

    const KSetupKit& kit;
    const KSetupArguments& arguments;
    KSetupSignals signals;
    KSetupProgress progress;
    KServiceReason serviceReason;
    bool installs = true;
    unsigned maxCount = 0;       // the main thread's
    unsigned workerMaxCount = 0; // the worker thread's, which may report before Start is back
    KINS::KInstaller installer;  // last: its run uses the rest
};

/// Says whether the product is installed, and which version. Returns the exit code.
int ReportStatus(const KSetupKit& kit, const KSetupArguments& arguments);

/// Puts back what the last run with --backup replaced. Returns the exit code.
int Restore(const KSetupKit& kit, const KSetupArguments& arguments);

} // namespace KSETUP
