// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KInstaller.h>
#include <setup/run/KRunContext.h>
#include <sup++/KError.h>
#include <sup++/ThreadSafety.h>

#include <cstddef>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <sys/KAnnotatedMutex.h>

namespace KSETUP {

/// A rule that counts, for whoever watches.
struct KWatchedRule {
    std::string place;           ///< "/kit/install.ini:12", or the option of the command line
    std::string text;            ///< as it is written there
    bool startsPrograms = false; ///< or services
};

/// Watches a run: tells which rule is at work and how far it is, answers signals, and ends with the
/// run. What the engine tells is queued on its thread and told on in the same order.
///
/// Borrows everything that it is given.
/// Thread   the main thread's; the engine calls Take on the worker thread
class KRunWatch {
  public:
    KRunWatch(
        KINS::KInstaller& watched, const KRunContext& given, std::vector<KWatchedRule> countedRules
    );
    KRunWatch(const KRunWatch&) = delete;
    KRunWatch& operator=(const KRunWatch&) = delete;

    /// For KInstaller::SetRunListener.
    void Take(const KINS::KRunEvent& event);

    /// Returns when the run has ended: with nothing, or with what ended it.
    std::optional<KSUP::KError> Wait();

    unsigned GetRuleCount() const noexcept { return static_cast<unsigned>(rules.size()); }
    /// The rule behind those that are done; nothing when all are.
    const KWatchedRule* GetRule(unsigned done) const noexcept;
    /// The target that this rule, counted from 0, reported last as being written; empty without one.
    std::string GetCopied(unsigned rule) const;

  private:
    struct Event {
        KINS::KRunEvent::Kind kind;
        unsigned rule;
        std::string text;
        double percentage;
    };

    void TellQueued();
    void Tell(const Event& event);
    void TellStarted(unsigned rule, const std::string& words);
    void TellStatus(bool isLast);
    void AnswerSignal();

    KINS::KInstaller& installer;
    const KRunContext& context;
    std::vector<KWatchedRule> rules; // fixed
    unsigned toldStarted = 0;
    unsigned toldDone = 0;
    std::string status; // as the engine has it, with its percentage
    double part = 0;    // of the rule at work that is done, from 0 to 1

    // What the worker thread told.
    mutable KSYS::KAnnotatedMutex<std::mutex> guard;
    std::vector<Event> queue SUP_GUARDED_BY(guard);
    std::optional<unsigned> writingRule SUP_GUARDED_BY(guard);
    std::string written SUP_GUARDED_BY(guard); // its target
};

} // namespace KSETUP
