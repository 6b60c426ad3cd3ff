// SPDX-License-Identifier: MIT
#pragma once

#include <ins/KInstaller.h>
#include <setup/run/KRunContext.h>
#include <setup/run/KRunWork.h>
#include <setup/text/KText.h>
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
    KText words{};               ///< what it does, if it says nothing of itself
    const KPlannedRule* planned = nullptr; ///< null where no plan has it
};

/// Watches a run: tells which rule is at work and how far it is, answers signals, and ends with the
/// run. A rule that is at work when the run is stopped is not done, whatever it says. What the engine
/// tells is queued on its thread and told on in the same order.
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

    /// How many rules were done, before any stop.
    unsigned GetDone() const noexcept { return toldDone; }
    /// Of what was to be copied, as it was planned.
    std::uint64_t GetBytesDone() const noexcept { return view.bytesDone; }
    /// How many began, or said that they do.
    unsigned GetStarted() const noexcept { return toldStarted; }
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
        std::string path; // of a status that begins with it
        bool isStopped;   // a stop was asked for before
    };

    void TellQueued();
    void Tell(const Event& event);
    void TellStarted(unsigned rule);
    void FindWords();
    void NoteProgress();
    void TellStatus(bool isLast);
    void AnswerSignal();

    KINS::KInstaller& installer;
    const KRunContext& context;
    std::vector<KWatchedRule> rules; // fixed
    unsigned toldStarted = 0;
    unsigned toldDone = 0;
    KRunWork work;
    KProgressView view;
    // What the rule at work said last. It becomes words of the view when those are told, which few of
    // thousands are.
    std::string said;
    double saidPercentage = KINS::noPercentage;

    // What the worker thread told.
    mutable KSYS::KAnnotatedMutex<std::mutex> guard;
    std::vector<Event> queue SUP_GUARDED_BY(guard);
    std::optional<unsigned> writingRule SUP_GUARDED_BY(guard);
    std::string written SUP_GUARDED_BY(guard); // its target
};

} // namespace KSETUP
