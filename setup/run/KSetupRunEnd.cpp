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

namespace KSETUP {

namespace {

constexpr std::size_t logLinesShown = 5;

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
    const std::string copied = watch->GetCopied(report.rulesDone);
    if (error.GetCode() == KSUP::ErrorCode::cancelled) {
        report.result = KRunResult::Cancelled;
        report.exitCode =
            ExitCode::signalBase + (signals.GetFirst() != 0 ? signals.GetFirst() : SIGINT);
        report.error = "stopped on request";
        // A copy that was called off counts as done.
        const std::string calledOff = copied.empty() && report.rulesDone > 0
                                          ? watch->GetCopied(report.rulesDone - 1)
                                          : copied;
        if (!calledOff.empty() && !KSUP::KFileBase::DoesFileExist(calledOff)) {
            report.notes.push_back("The file that was being copied was taken away: " + calledOff);
        }
        report.notes.push_back(
            "What was done stays in " + report.productPath + "; run it again to go on."
        );
        return;
    }
    report.result = KRunResult::Failed;
    report.exitCode = ExitCodeOf(error);
    report.errorCode = error.GetCode();
    report.error = IsOfServiceCall(error) ? serviceReason.Get() : InWords(error, copied);
    FillLogEnd();
    if (const KWatchedRule* rule = watch->GetRule(report.rulesDone)) {
        report.place = rule->place;
        report.rule = rule->text;
    } else {
        report.notes.emplace_back("All rules were done; writing the record of the product failed.");
    }
    report.notes.push_back(
        "What was done stays in " + report.productPath + ". Mend the cause and run it again."
    );
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
