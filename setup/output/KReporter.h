// SPDX-License-Identifier: MIT
#pragma once

#include <setup/output/KEventStream.h>
#include <setup/output/KRunReport.h>
#include <setup/output/KSetupArguments.h>
#include <setup/output/KSetupProgress.h>
#include <setup/output/TerminalColour.h>
#include <setup/text/KText.h>

#include <optional>
#include <string>

namespace KSETUP {

/// Says what happens, in the way that was asked for: as text (with a bar on a terminal, else in plain
/// lines), quietly, as one JSON object at the end, or as a line of JSON for each
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
    /// The rule of the view began; `place` is where the script has it.
    void RuleStarted(const KProgressView& view, const std::string& place);
    void RuleDone(unsigned number, unsigned percent);
    /// How far it is now; `now` shows it in any case.
    void Progress(const KProgressView& view, bool now);
    /// A sentence for whoever watches.
    void Say(const KText& words);
    /// The same for whoever looks for trouble.
    void Warn(const KText& words);
    /// The end, by which everything of the report is told.
    void Finish(const KRunReport& report);

  private:
    void PrintDone(const KRunReport& report) const;
    void PrintConfiguration(const KRunReport& report) const;
    void PrintTrouble(const KRunReport& report) const;

    bool text;
    bool json;
    KColourChoice colour;
    KProgressView last; // that was shown
    KSetupProgress progress;
    std::optional<KEventStream> events;
};

} // namespace KSETUP
