// SPDX-License-Identifier: MIT
//
// A run from its first rule on: how it ends, and what is told of it.
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/output/KSetupLogTail.h>
#include <setup/run/KRunChronicle.h>
#include <setup/run/KSetupRun.h>
#include <setup/run/RunWords.h>
#include <sup++/KErrorCode.h>
#include <sup++/KFileBase.h>

#include <algorithm>
#include <csignal>
#include <utility>
#include <vector>

namespace KSETUP {

namespace {

constexpr std::size_t logLinesShown = 5;
constexpr std::size_t pathsShown = 5;

/// What a rule, by its number among those that count, was to copy and is not there. A stop takes
/// away what is being copied, and so each further file of a wildcard, also one that had been there.
std::vector<std::string> FindMissingCopies(const KPlan& plan, unsigned number) {
    std::vector<std::string> missing;
    for (const KPlannedRule& rule : plan.GetRules()) {
        if (rule.rule.line.type == "section" || number-- != 0) {
            continue;
        }
        for (const KPlannedAction& action : rule.actions) {
            if (action.kind == KPlannedAction::Kind::CopyFile &&
                !KSUP::KFileBase::DoesFileExist(action.path)) {
                missing.push_back(action.path);
            }
        }
        break;
    }
    return missing;
}

std::string TakenAway(const std::vector<std::string>& paths) {
    if (paths.size() == 1) {
        return "The file that was being copied was taken away: " + paths.front();
    }
    std::string text = "The files that were being copied were taken away: " + paths.front();
    for (std::size_t at = 1; at < std::min(paths.size(), pathsShown); ++at) {
        text += ", " + paths[at];
    }
    return paths.size() <= pathsShown
               ? text
               : text + " and " + std::to_string(paths.size() - pathsShown) + " more";
}

} // namespace

void KSetupRun::Watch() {
    const auto rememberRule = [this](unsigned done) {
        guard.SetRule(std::min(done + 1, watch->GetRuleCount())); // behind the last none begins
    };
    rememberRule(0);
    const auto ended = watch->Wait(rememberRule);
    report.rulesDone = installer.GetCompletedCount();
    report.rulesAll = installer.GetMaxCount();
    if (ended) {
        rememberRule(report.rulesDone); // rules that came and went since the last look
        FillEnd(*ended);
    }
}

/// Settles what is remembered of the run. How it ended is written down only then: that may still
/// decide it.
void KSetupRun::End() {
    if (report.result == KRunResult::Done) {
        try {
            if (report.command == "install") {
                FillInstalled();
            } else {
                FillRemoved();
            }
        } catch (const KSetupFailure& failure) { // too late for a refusal
            report.result = KRunResult::Failed;
            report.exitCode = failure.GetExitCode();
            report.error = failure.what();
        }
    }
    FillNotes();
    KRunChronicle::End(report, installer.GetLog());
}

void KSetupRun::FillInstalled() {
    if (const std::string why = guard.KeepManifest(*plan, report.productPath); !why.empty()) {
        // The product is installed all the same.
        report.notes.push_back("\"status --verify\" will not know of this: " + why);
    }
    guard.End();
}

void KSetupRun::FillEnd(const KSUP::KError& error) {
    if (error.GetKind() == KSUP::KErrorKind::Cancelled) {
        FillStopped();
        return;
    }
    report.result = KRunResult::Failed;
    report.exitCode = ExitCodeOf(error);
    report.errorCode = error.GetCode();
    report.error = InWords(error);
    FillLogEnd();
    if (const KWatchedRule* rule = watch->GetRule(report.rulesDone)) {
        report.place = rule->place;
        report.rule = rule->text;
    } else {
        report.notes.emplace_back("All rules were done; writing the record of the product failed.");
    }
    const std::string stays = WhatStays();
    report.notes.push_back(
        stays + (stays.empty() ? "" : ". ") + "Mend the cause and run it again."
    );
}

void KSetupRun::FillStopped() {
    report.result = KRunResult::Cancelled;
    report.exitCode =
        ExitCode::signalBase + (signals.GetFirst() != 0 ? signals.GetFirst() : SIGINT);
    report.error = "stopped on request";
    if (report.rulesDone > 0) { // a copy that was called off counts as done
        const unsigned last = report.rulesDone - 1;
        std::vector<std::string> missing = FindMissingCopies(*plan, last);
        const std::string copied = watch->GetCopied(last);
        // A command may have made what no plan could know of.
        if (missing.empty() && !copied.empty() && !KSUP::KFileBase::DoesFileExist(copied)) {
            missing.push_back(copied);
        }
        if (!missing.empty()) {
            report.notes.push_back(TakenAway(missing));
        }
    }
    const std::string stays = WhatStays();
    report.notes.push_back(
        stays.empty() ? "Run it again to go on." : stays + "; run it again to go on."
    );
}

/// Empty when nothing was done, or there is no directory in which anything could stay.
std::string KSetupRun::WhatStays() const {
    const bool wasBegun = report.rulesDone > 0 || !installer.GetStatus().IsEmpty();
    if (!wasBegun || !KSUP::KFileBase::DoesFileExist(report.productPath)) {
        return {};
    }
    return (report.command == "remove" ? "What was not yet removed stays in "
                                       : "What was done stays in ") +
           report.productPath;
}

void KSetupRun::FillLogEnd() {
    report.logEnd = KSetupLogTail(report.log.c_str()).GetLast(logLinesShown);
}

void KSetupRun::FillNotes() {
    if (std::string left = LeftServices(); !left.empty()) {
        report.notes.push_back(std::move(left));
    }
    report.commandOutput = commandOutput.FindWritten();
}

void KSetupRun::FillRemoved() {
    if (installer.IsProductInstalled()) {
        report.result = KRunResult::Failed;
        report.exitCode = ExitCode::ruleFailed;
        report.error = report.product +
                       " still counts as installed: the script's section [remove] does not delete "
                       "the product's link in /etc. Everything else that it names is removed.";
        guard.End(); // nothing is left of it to go on with
        return;
    }
    report.leftBehind = guard.FindLeft(report.productPath, report.notes);
    if (KSUP::KFileBase::DoesFileExist(report.productPath)) {
        report.notes.emplace_back(
            "The directory is still there: it holds what the script does not delete."
        );
    }
    guard.Forget();
}

} // namespace KSETUP
