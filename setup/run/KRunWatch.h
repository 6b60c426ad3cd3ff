// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KInstaller.h>
#include <setup/output/KSetupSignals.h>
#include <setup/output/KSetupVoice.h>
#include <sup++/KError.h>
#include <sup++/KString.h>

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace KSETUP {

/// A rule that counts, for whoever watches.
struct KWatchedRule {
    std::string place; ///< "/kit/install.ini:12", or the option of the command line
    std::string text;  ///< as it is written there
};

/// Watches a run: says which rule is at work and how far it is, answers signals, and ends with the
/// run.
///
/// Borrows everything that it is given.
/// Thread   the main thread's; the engine calls Report on the worker thread
class KRunWatch {
  public:
    KRunWatch(
        KINS::KInstaller& watched,
        KSetupSignals& taken,
        KSetupVoice& speaker,
        std::vector<KWatchedRule> countedRules
    );
    KRunWatch(const KRunWatch&) = delete;
    KRunWatch& operator=(const KRunWatch&) = delete;

    /// For KInstaller::SetCallback.
    void Report(const KSUP::KString& status, double percent);

    /// Returns when the run has ended: with nothing, or with what ended it. `atRule` is told the
    /// number of rules done whenever it has changed.
    std::optional<KSUP::KError> Wait(const std::function<void(unsigned)>& atRule);

    unsigned GetRuleCount() const noexcept { return static_cast<unsigned>(rules.size()); }
    /// The rule behind those that are done; nothing when all are.
    const KWatchedRule* GetRule(unsigned done) const noexcept;
    /// The target that the rule behind those that are done reported last as being copied; empty
    /// without one.
    std::string GetCopied(unsigned done) const;

  private:
    void Follow();
    void TellRules(unsigned done);
    std::string TakeFirstStatus(unsigned rule);
    double PartDone() const;
    void AnswerSignal();

    KINS::KInstaller& installer;
    KSetupSignals& signals;
    KSetupVoice& voice;
    std::vector<KWatchedRule> rules; // fixed
    unsigned toldStarted = 0;
    unsigned toldDone = 0;

    mutable std::mutex guard;
    // Guarded by guard: what the worker thread reported.
    std::map<unsigned, std::string> firstStatuses; // of rules that are not told yet
    std::optional<unsigned> reportedRule;
    std::string lastCopied; // by that rule
    double percentage = 0;
};

} // namespace KSETUP
