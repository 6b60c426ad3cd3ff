// SPDX-License-Identifier: MIT
#include <setup/output/TextFormat.h>
#include <setup/run/KRunWatch.h>
#include <setup/run/StatusText.h>
#include <sup++/Svc.h>

#include <cmath>
#include <utility>

namespace KSETUP {

namespace {

using EventKind = KINS::KRunEvent::Kind;

KRunWork WorkOf(const std::vector<KWatchedRule>& rules) {
    std::vector<KRunWork::Rule> counted;
    for (const KWatchedRule& rule : rules) {
        counted.push_back({rule.planned, rule.startsPrograms});
    }
    return KRunWork(counted);
}

} // namespace

KRunWatch::KRunWatch(
    KINS::KInstaller& watched, const KRunContext& given, std::vector<KWatchedRule> countedRules
)
    : installer(watched),
      context(given),
      rules(std::move(countedRules)),
      work(WorkOf(rules)) {
    view.rules = GetRuleCount();
    view.bytesAll = work.GetBytesAll();
}

void KRunWatch::Take(const KINS::KRunEvent& event) {
    const KSYS::KScopedLock hold(guard);
    if (event.operation == KSUP::KOperation::Write && !event.path.IsEmpty() &&
        (writingRule != event.rule || written != event.path.c_str())) {
        writingRule = event.rule;
        written = event.path.c_str();
    }
    // Chunks of a copy come by the thousand: only the last one counts.
    if (event.percentage != KINS::noPercentage && !queue.empty() &&
        queue.back().kind == EventKind::Status && queue.back().rule == event.rule &&
        queue.back().percentage != KINS::noPercentage) {
        queue.back().percentage = event.percentage;
        return;
    }
    const bool begins = event.kind == EventKind::Status && event.percentage == KINS::noPercentage;
    queue.push_back(
        {event.kind,
         event.rule,
         event.kind == EventKind::Status ? event.text.c_str() : "",
         event.percentage,
         begins ? event.path.c_str() : "",
         event.kind == EventKind::RuleDone && installer.IsCancelled()}
    );
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

/// Most rules say at once what they do, and are told by that; the others by what is planned.
void KRunWatch::Tell(const Event& event) {
    switch (event.kind) {
    case EventKind::RuleStarted:
        work.BeginRule(event.rule);
        view.rule = event.rule + 1;
        view.words = rules[event.rule].words;
        view.status = view.words;
        said.clear();
        break;
    case EventKind::Status:
        said = event.text;
        saidPercentage = event.percentage;
        if (event.percentage != KINS::noPercentage) {
            work.SetPart(event.percentage / 100);
        } else {
            work.BeginEntry(event.path);
        }
        TellStarted(event.rule);
        break;
    case EventKind::RuleDone:
        TellStarted(event.rule);
        if (event.isStopped) {
            return; // it may have been called off, and says nothing of that
        }
        toldDone = event.rule + 1;
        work.BeginRule(toldDone);
        NoteProgress();
        context.reporter.RuleDone(toldDone, view.percent);
        return;
    }
    NoteProgress();
}

void KRunWatch::NoteProgress() {
    view.percent = work.GetPercent();
    view.bytesDone = work.GetBytesDone();
}

void KRunWatch::FindWords() {
    if (said.empty()) {
        return; // told as it was planned
    }
    view.words = StatusText(said);
    view.status = view.words;
    if (saidPercentage != KINS::noPercentage) {
        view.status += " (" + std::to_string(std::lround(std::ceil(saidPercentage))) + "%)";
    }
}

void KRunWatch::TellStarted(unsigned rule) {
    if (rule == toldStarted) {
        ++toldStarted;
        FindWords();
        context.reporter.RuleStarted(view, rules[rule].place);
    }
}

void KRunWatch::TellStatus(bool isLast) {
    // What is called off reports that it is done, and nothing follows. A rule that has not said yet
    // what it does has not begun for whoever listens.
    if (!installer.IsCancelled() && toldStarted > 0 && toldStarted == view.rule) {
        FindWords();
        context.reporter.Progress(view, isLast);
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
    context.reporter.Warn(installer.IsCancelled() ? Text("Still stopping.") : Text("Stopping."));
    installer.Stop();
    if (const KSUP::KString waiting = installer.GetStatus(); !waiting.IsEmpty()) {
        context.reporter.Warn(Text("Waiting for: %s", Printable(StatusText(waiting.c_str()))));
    }
}

} // namespace KSETUP
