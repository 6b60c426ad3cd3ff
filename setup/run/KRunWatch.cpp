// SPDX-License-Identifier: MIT
#include <setup/output/Words.h>
#include <setup/run/KRunWatch.h>
#include <sup++/Svc.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace KSETUP {

namespace {

constexpr std::string_view copying = "Copying file ";

} // namespace

KRunWatch::KRunWatch(
    KINS::KInstaller& watched,
    KSetupSignals& taken,
    KSetupVoice& speaker,
    std::vector<KWatchedRule> countedRules
)
    : installer(watched),
      signals(taken),
      voice(speaker),
      rules(std::move(countedRules)) {}

void KRunWatch::Report(const KSUP::KString& status, double percent) {
    // Chunks of a copy come by the thousand: they are one number here.
    if (percent != KINS::noPercentage) {
        const std::lock_guard hold(guard);
        percentage = percent;
        return;
    }
    const unsigned rule = installer.GetCompletedCount();
    const std::string_view text(status.c_str());
    const std::lock_guard hold(guard);
    if (rule != reportedRule) {
        reportedRule = rule;
        firstStatuses.emplace(rule, text);
    }
    percentage = 0;
    lastCopied = text.starts_with(copying) ? text.substr(copying.size()) : std::string_view();
}

std::optional<KSUP::KError> KRunWatch::Wait(const std::function<void(unsigned)>& atRule) {
    unsigned told = 0;
    try {
        while (!installer.IsComplete()) {
            SvcPollingDispatch();
            if (signals.Take() != 0) {
                AnswerSignal();
            }
            Follow();
            if (toldDone != told) {
                told = toldDone;
                atRule(told);
            }
        }
    } catch (const KSUP::KError& error) {
        Follow();
        if (!installer.IsCancelled()) {
            voice.Status(toldDone, installer.GetStatus(), 0, true);
        }
        return error;
    }
    TellRules(GetRuleCount());
    voice.Status(toldDone, installer.GetStatus(), 0, true);
    return std::nullopt;
}

void KRunWatch::Follow() {
    const unsigned done = std::min(installer.GetCompletedCount(), GetRuleCount());
    TellRules(done);
    if (done < GetRuleCount() && toldStarted == done) {
        std::string words = TakeFirstStatus(done);
        if (!words.empty()) {
            toldStarted = done + 1;
            voice.RuleStarted(toldStarted, rules[done].place, words);
        }
    }
    // What is called off reports that it is done, and nothing follows.
    if (!installer.IsCancelled()) {
        voice.Status(done, installer.GetStatus(), PartDone(), false);
    }
}

/// Rules that came and went between two looks, or that report nothing, are told by their lines.
void KRunWatch::TellRules(unsigned done) {
    for (; toldDone < done; ++toldDone) {
        if (toldStarted == toldDone) {
            const std::string words = TakeFirstStatus(toldDone);
            const KWatchedRule& rule = rules[toldDone];
            voice.RuleStarted(++toldStarted, rule.place, words.empty() ? rule.text : words);
        }
        voice.RuleDone(toldDone + 1);
    }
}

const KWatchedRule* KRunWatch::GetRule(unsigned done) const noexcept {
    return done < rules.size() ? &rules[done] : nullptr;
}

std::string KRunWatch::GetCopied(unsigned done) const {
    const std::lock_guard hold(guard);
    return reportedRule == done ? lastCopied : std::string();
}

std::string KRunWatch::TakeFirstStatus(unsigned rule) {
    const std::lock_guard hold(guard);
    const auto taken = firstStatuses.extract(rule);
    return taken.empty() ? std::string() : taken.mapped();
}

double KRunWatch::PartDone() const {
    const std::lock_guard hold(guard);
    return percentage / 100;
}

void KRunWatch::AnswerSignal() {
    // Said before anything is asked: the run may hold the answer up.
    voice.Warn(installer.IsCancelled() ? "Still stopping." : "Stopping.");
    installer.Stop();
    if (const KSUP::KString status = installer.GetStatus(); !status.IsEmpty()) {
        voice.Warn("Waiting for: " + Shown(status.c_str()));
    }
}

} // namespace KSETUP
