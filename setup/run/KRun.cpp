// SPDX-License-Identifier: MIT
#include <ins/Names.h>
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/output/KSetupLogTail.h>
#include <setup/output/TextFormat.h>
#include <setup/plan/AddedLines.h>
#include <setup/preflight/StaleTemporaries.h>
#include <setup/run/KAuditLog.h>
#include <setup/run/KRun.h>
#include <setup/run/KeepKit.h>
#include <setup/run/PlannedPaths.h>
#include <setup/run/RunFailure.h>
#include <setup/script/KSetupRuleLine.h>
#include <setup/state/KKeptKit.h>
#include <setup/state/StateDirectory.h>
#include <sup++/KErrorKind.h>

#include <string>
#include <utility>
#include <vector>

namespace KSETUP {

namespace {

using KINS::KRunEvent;

/// The rules that count, as the engine will count them.
std::vector<KWatchedRule> CountedRules(const KPlannedRun& planned) {
    const std::string script = planned.GetContext().kit.GetScript().c_str();
    std::vector<KWatchedRule> rules;
    for (const KPlannedRule& rule : planned.GetPlan().GetRules()) {
        const KScriptLine& line = rule.rule.line;
        if (rule.rule.type != KINS::KRuleType::Section) {
            rules.push_back(
                {script + ":" + std::to_string(line.number), line.type + "=" + line.value}
            );
        }
    }
    if (planned.Installs()) {
        for (std::string& line : ReadAddedLines()) {
            rules.push_back({"--addProfileLine", std::move(line)});
        }
    }
    return rules;
}

/// The configuration that is not as it was installed, and the digests of what was.
std::map<std::string, std::string> FindEdited(const KChangePolicy& policy) {
    std::map<std::string, std::string> edited;
    for (const auto& [path, entry] : policy.GetOwnership().GetManifest().GetEntries()) {
        if (policy.IsEdited(path)) {
            edited.emplace(path, entry.digest);
        }
    }
    return edited;
}

/// A run that goes on has what the first one saw: that one may have stopped a service itself.
KServiceOverrides FindServicesBefore(const KPlannedRun& planned) {
    KLockedProduct& product = planned.GetProduct();
    if (!planned.Installs() || planned.GetContext().arguments.startServices) {
        return {};
    }
    if (const auto& begun = product.GetInterrupted()) {
        return KServiceOverrides::FromText(begun->services);
    }
    return product.GetRecord() ? KServiceOverrides::Look(planned.GetPlan(), product.GetOwnership())
                               : KServiceOverrides();
}

} // namespace

KRun::KRun(KCheckedRun&& checkedRun)
    : checked(std::move(checkedRun)),
      context(checked.GetContext()),
      report(context.report),
      backup(checked.GetPlanned()),
      services(FindServicesBefore(GetPlanned())),
      ruleMaker(GetPlanned().GetPolicy(), services, changes),
      edited(FindEdited(GetPlanned().GetPolicy())) {
    OpenJournal();
    try {
        backup.Save();
        OpenLogs();
    } catch (...) {
        CloseJournal(); // no rule was run
        throw;
    }
    watch = std::make_unique<KRunWatch>(installer, context, CountedRules(GetPlanned()));
    report.rulesAll = watch->GetRuleCount();
    GetPlanned().GetProduct().GetOwnership().NoteBegin();
    GetPlanned().GetProduct().GetOwnership().SetMadeNow([this](const std::string& path) {
        return journal->IsMadeNow(path);
    });
    installer.SetRuleFactory([this](auto& manager, const auto& type, const auto& line) {
        return ruleMaker.Make(manager, type, line);
    });
    installer.SetRunListener([this](const KRunEvent& event) {
        if (event.kind == KRunEvent::Kind::RuleStarted) {
            state->SetRule(event.rule + 1);
        }
        watch->Take(event);
    });
    context.reporter.Start(report);
    Remember();
    StartRules();
}

bool KRun::GoesOn() const noexcept {
    return GetPlanned().GetProduct().GetInterrupted().has_value();
}

/// First, because it can be refused and replaces nothing.
void KRun::OpenJournal() {
    journal = std::make_unique<KWriteJournal>(
        GetPlanned().GetProduct().GetService(),
        GoesOn() ? KWriteJournal::Begin::GoOn : KWriteJournal::Begin::Anew,
        KWriteJournal::Beginning{
            ExpectedPaths(GetPlanned().GetPlan()), GetPlanned().GetPolicy().GetAdministrators()}
    );
}

/// That of a run that was interrupted before stays, for the one that goes on.
void KRun::CloseJournal() {
    if (!GoesOn()) {
        journal->End();
        RemoveEmptyStateDirectory(GetPlanned().GetProduct().GetService());
    }
}

void KRun::OpenLogs() {
    KAuditLog::Begin(report, context.bundle ? context.bundle->path : context.kit.GetDirectory());
    try {
        installer.Initialize(context.kit.GetScript());
    } catch (const KSUP::KError& error) {
        throw KSetupFailure(ExitCode::noKit, DescribeError(error));
    }
    commandOutput.Begin(checked.GetCommandLog());
}

/// The first change is about to come. What an interrupted run had begun to write goes now.
void KRun::Remember() {
    const KLockedProduct& product = GetPlanned().GetProduct();
    const std::string& service = product.GetService();
    KRunDescription run;
    run.action = GetPlanned().GetAction();
    run.product = report.product;
    run.version = report.version;
    run.path = report.productPath;
    run.ruleCount = report.rulesAll;
    run.run = backup.GetRun();
    run.services = services.ToText();
    state.emplace(service);
    state->Begin(run);
    if (GetPlanned().Installs() && !KKeptKit::FindDirectory(service)) {
        KeepKit(GetPlanned()); // also one that does not come to its end can be removed
    }
    if (GoesOn()) {
        DeleteStaleTemporaries(
            OwnDirectories(ChangedPaths(GetPlanned().GetPlan()), run.path, service)
        );
    }
}

void KRun::StartRules() {
    try {
        if (GetPlanned().Installs()) {
            installer.StartInstall(report.productPath);
        } else {
            installer.StartUninstall(report.productPath);
        }
    } catch (const KSUP::KError& error) {
        const bool isMalformed = error.GetKind() == KSUP::KErrorKind::Rule;
        FillLogEnd();
        if (!GoesOn()) { // nothing was begun
            journal->End();
            state->End();
            KKeptKit::RemoveUnlessNeeded(GetPlanned().GetProduct().GetService());
        }
        throw KSetupFailure(
            isMalformed ? ExitCode::malformedScript : ExitCode::internal,
            std::string(context.kit.GetScript().c_str()) + ": " + Printable(DescribeError(error)) +
                " No rule was run."
        );
    }
}

void KRun::FillLogEnd() const {
    constexpr std::size_t linesShown = 5;
    report.logEnd = KSetupLogTail(report.log.c_str()).GetLast(linesShown);
}

} // namespace KSETUP
