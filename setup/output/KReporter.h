// SPDX-License-Identifier: MIT
#pragma once

#include <setup/output/KEventStream.h>
#include <setup/output/KRunReport.h>
#include <setup/output/KSetupArguments.h>
#include <setup/output/KSetupProgress.h>
#include <sup++/KString.h>

#include <optional>
#include <string>

namespace KSETUP {

/// Says what happens, in the way that was asked for: as text (with a progress line on a terminal,
/// else a plain line a rule), quietly, as one JSON object at the end, or as a line of JSON for each
/// event. What went wrong is said on standard error in every way.
///
/// Thread   the main thread's
class KReporter {
  public:
    /// Throws   KSetupFailure for a progress descriptor that is not open
    explicit KReporter(const KSetupArguments& arguments);

    /// Whether people read standard output.
    bool IsText() const noexcept { return text; }
    bool IsTerminal() const noexcept { return progress.IsTerminal(); }

    void Start(const KRunReport& report);
    void RuleStarted(unsigned number, const std::string& place, const std::string& words);
    void RuleDone(unsigned number);
    /// The status of the rule that runs, with the part of it that is done, from 0 to 1. `now`
    /// draws it in any case.
    void Status(unsigned done, const KSUP::KString& status, double part, bool now);
    /// A sentence for whoever watches.
    void Say(const std::string& words);
    /// The same for whoever looks for trouble.
    void Warn(const std::string& words);
    /// The end, by which everything of the report is told.
    void Finish(const KRunReport& report);

  private:
    void PrintDone(const KRunReport& report) const;
    void PrintConfiguration(const KRunReport& report) const;
    static void PrintTrouble(const KRunReport& report);

    bool text;
    bool json;
    unsigned all = 0;
    KSetupProgress progress;
    std::optional<KEventStream> events;
};

} // namespace KSETUP
