// SPDX-License-Identifier: MIT
#include <setup/output/TextFormat.h>
#include <setup/run/KRunWatch.h>
#include <sup++/Svc.h>

#include <cmath>
#include <utility>

namespace KSETUP {

namespace {

using Kind = KINS::KRunEvent::Kind;

} // namespace

KRunWatch::KRunWatch(
    KINS::KInstaller& watched, const KRunContext& given, std::vector<KWatchedRule> countedRules
)
    : installer(watched),
      context(given),
      rules(std::move(countedRules)) {}

void KRunWatch::Take(const KINS::KRunEvent& event) {
    const KSYS::KScopedLock hold(guard);
    if (event.operation == KSUP::KOperation::Write && !event.path.IsEmpty() &&
        (writingRule != event.rule || written != event.path.c_str())) {
        writingRule = event.rule;
        written = event.path.c_str();
    }
    // Chunks of a copy come by the thousand: only the last one counts.
    if (event.percentage != KINS::noPercentage && !queue.empty() &&
        queue.back().kind == Kind::Status && queue.back().rule == event.rule &&
        queue.back().percentage != KINS::noPercentage) {
        queue.back().percentage = event.percentage;
        return;
    }
    queue.push_back({event.kind, event.rule, event.text.c_str(), event.percentage});
}

std::optional<KSUP::KError> KRunWatch::Wait() {
    std::optional<KSUP::KError> end;
    try {
        while (!installer.IsComplete()) {
            SvcPollingDispatch();
            if (context.signals.Take() != 0) {
                AnswerSignal();
            }
            TellQueued();
            TellStatus(false);
        }
    } catch (const KSUP::KError& error) {
        end.emplace(error);
    }
    TellQueued();
    TellStatus(true);
    return end;
}

void KRunWatch::TellQueued() {
    std::vector<Event> events;
    {
        const KSYS::KScopedLock hold(guard);
        events.swap(queue);
    }
    for (const Event& event : events) {
        if (event.rule < GetRuleCount()) { // what comes behind the last rule is nobody's
            Tell(event);
        }
    }
}

/// Most rules say at once what they do, and are told by that; those that say nothing by their line.
void KRunWatch::Tell(const Event& event) {
    switch (event.kind) {
    case Kind::RuleStarted:
        break;
    case Kind::Status:
        TellStarted(event.rule, event.text);
        status = event.text;
        part = 0;
        if (event.percentage != KINS::noPercentage) {
            status += " (" + std::to_string(std::lround(std::ceil(event.percentage))) + "%)";
            part = event.percentage / 100;
        }
        break;
    case Kind::RuleDone:
        TellStarted(event.rule, rules[event.rule].text);
        toldDone = event.rule + 1;
        part = 0;
        context.reporter.RuleDone(toldDone);
        break;
    }
}

void KRunWatch::TellStarted(unsigned rule, const std::string& words) {
    if (rule == toldStarted) {
        context.reporter.RuleStarted(++toldStarted, rules[rule].place, words);
    }
}

void KRunWatch::TellStatus(bool isLast) {
    // What is called off reports that it is done, and nothing follows.
    if (!installer.IsCancelled()) {
        context.reporter.Status(toldDone, KSUP::KString(status), part, isLast);
    }
}

const KWatchedRule* KRunWatch::GetRule(unsigned done) const noexcept {
    return done < rules.size() ? &rules[done] : nullptr;
}

std::string KRunWatch::GetCopied(unsigned rule) const {
    const KSYS::KScopedLock hold(guard);
    return writingRule == rule ? written : std::string();
}

void KRunWatch::AnswerSignal() {
    // Said before anything is asked: the run may hold the answer up.
    context.reporter.Warn(installer.IsCancelled() ? "Still stopping." : "Stopping.");
    installer.Stop();
    if (const KSUP::KString waiting = installer.GetStatus(); !waiting.IsEmpty()) {
        context.reporter.Warn("Waiting for: " + Printable(waiting.c_str()));
    }
}

} // namespace KSETUP
