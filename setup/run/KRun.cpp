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
#include <setup/run/RuleWords.h>
#include <setup/run/RunFailure.h>
#include <setup/script/KSetupRuleLine.h>
#include <setup/script/SecretNames.h>
#include <setup/state/KKeptKit.h>
#include <setup/state/StateDirectory.h>
#include <sup++/KErrorKind.h>
#include <sup++/KErrorSource.h>
#include <sup++/SvcFile.h>

#include <cerrno>
#include <string>
#include <utility>
#include <vector>

#include <sys/processes/ProcessMemory.h>

namespace KSETUP {

namespace {

using KINS::KRunEvent;

constexpr KSUP::KErrorSource errorSource{"setup/KRun"};

/// Whether a rule of the line may run what was copied.
bool StartsPrograms(const KScriptRule& rule) {
    return rule.type == KINS::KRuleType::Process || rule.type == KINS::KRuleType::Service ||
           SetupOperationOf(rule) == KSetupOperation::RunCommand;
}

/// The rules that count, as the engine will count them.
std::vector<KWatchedRule> CountedRules(const KPlannedRun& planned) {
    const KRunContext& context = planned.GetContext();
    // Of an unpacked bundle, whoever reads of it finds nothing but the bundle.
    const std::string script = context.bundle ? context.bundle->path + ":install.ini"
                                              : std::string(context.kit.GetScript().c_str());
    std::vector<KWatchedRule> rules;
    for (const KPlannedRule& rule : planned.GetPlan().GetRules()) {
        const KScriptLine& line = rule.rule.line;
        if (rule.rule.type != KINS::KRuleType::Section) {
            rules.push_back(
                {script + ":" + std::to_string(line.number),
                 MaskedLine(line.type, line.value),
                 StartsPrograms(rule.rule),
                 DescribeRule(rule),
                 &rule}
            );
        }
    }
    if (planned.Installs()) {
        for (KAddedLine& line : DescribeAddedLines()) {
            const std::size_t value = line.text.rfind(',');
            KText words = Text("Setting %s in the configuration", line.text.substr(0, value));
            rules.push_back({std::move(line.option), std::move(line.text), false, std::move(words)}
            );
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

/// The owners of the product's files, where that is not root. Profiles are among them, of which no
/// rule tells what it replaced.
std::map<std::string, unsigned> FindOwners(const KChangePolicy& policy) {
    std::map<std::string, unsigned> owners;
    for (const auto& [path, was] : policy.GetOwnership().GetManifest().GetEntries()) {
        const auto now = was.owner != 0 ? LookAtEntry(path) : std::nullopt;
        if (now && now->kind == KManifestEntry::Kind::File && now->owner != 0) {
            owners.emplace(path, now->owner);
        }
    }
    return owners;
}

/// What the run writes anew of what administrators may edit.
std::vector<std::string> FindRewritten(const KPlannedRun& planned) {
    const KChangePolicy& policy = planned.GetPolicy();
    std::vector<std::string> paths = {
        planned.GetProduct().GetMacros().Expand(KINS::Names::recordFile)};
    planned.GetPlan().ForEachAction([&](const KPlannedAction& action) {
        const bool isFile = action.IsOfEntry() && action.kind != KPlannedAction::Kind::SetMode;
        if (isFile && action.replaces && policy.IsConfiguration(*action.path)) {
            paths.push_back(*action.path);
        }
    });
    std::erase_if(paths, [&](const std::string& path) { return policy.IsAdministrators(path); });
    return paths;
}

/// A guess would be remembered as what the administrator did.
void RequireRead(const KPlannedRun& planned) {
    const std::map<std::string, unsigned>& unread = planned.GetPolicy().GetUnread();
    if (planned.Installs() && !unread.empty()) {
        throw SystemFailure(
            ExitCode::cannotWrite,
            Text("cannot read %s", unread.begin()->first),
            unread.begin()->second,
            Text("So it is not known whether somebody edited it. Nothing was changed.")
        );
    }
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

KRun::KRun(KCheckedRun&& checkedRun, std::function<void()> whenCopied)
    : checked(std::move(checkedRun)),
      afterLast(std::move(whenCopied)),
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
            if (MayStartPrograms(event.rule)) {
                commandOutput.BeginRule();
            }
        }
        RequireSealed(event);
        if (IsLastDone(event)) {
            BeginManifest();
            if (afterLast) {
                afterLast();
            }
        }
        watch->Take(event);
    });
    changes.planned = PlannedMatches(GetPlanned().GetPlan());
    changes.formerOwners = FindOwners(GetPlanned().GetPolicy());
    changes.sharing = &checked.GetSharing();
    changes.copied =
        [this](const std::string& source, const std::string& target, const KFileDigest& known) {
            checked.GetCopies().Add(source, target, known);
            checked.GetReadAhead().NoteCopied();
            copiedCount.fetch_add(1, std::memory_order_relaxed);
        };
    KSYS::ReturnFreedMemory(); // all that the looks before the first change needed
    context.reporter.Start(report);
    NoteWhatMayGo();
    Remember();
    RevealSecrets(context.kit.GetValues(), GetPlanned().GetValues());
    begun = std::chrono::system_clock::now();
    begunAt = std::chrono::steady_clock::now();
    StartRules();
}

/// One that the script does not have may.
bool KRun::MayStartPrograms(unsigned number) const {
    const KWatchedRule* rule = watch->GetRule(number);
    return rule == nullptr || rule->startsPrograms;
}

bool KRun::IsLastDone(const KRunEvent& event) const {
    return event.kind == KRunEvent::Kind::RuleDone && event.rule + 1 >= watch->GetRuleCount();
}

/// What was copied from a sealed kit is what was sealed, or it goes before anything that was copied
/// can run by a rule, and before the product counts as installed.
void KRun::RequireSealed(const KRunEvent& event) {
    const bool isDue = event.kind == KRunEvent::Kind::RuleStarted ? MayStartPrograms(event.rule)
                                                                  : IsLastDone(event);
    if (!isDue || checked.GetCopies().GetSealed().empty()) {
        return;
    }
    const std::vector<std::string> broken = checked.GetCopies().FindBroken();
    for (const std::string& path : broken) {
        static_cast<void>(SvcDeleteFile(0, path.c_str())); // the failure is told in any case
    }
    if (!broken.empty()) {
        isSealBroken = true;
        errorSource.Raise(
            KSUP::TraceLevel::rule,
            EBADMSG,
            KSUP::KString(
                broken.front() +
                " was not copied as the kit's SHA256SUMS lists it, and is deleted again: somebody "
                "changed the kit during the run. Look who may, and get the kit again."
            )
        );
    }
}

bool KRun::GoesOn() const noexcept {
    return GetPlanned().GetProduct().GetInterrupted().has_value();
}

/// First, because it can be refused and replaces nothing.
void KRun::OpenJournal() {
    std::vector<std::string> rewritten = FindRewritten(GetPlanned());
    RequireRead(GetPlanned());
    journal = std::make_unique<KWriteJournal>(
        GetPlanned().GetProduct().GetService(),
        GoesOn() ? KWriteJournal::Begin::GoOn : KWriteJournal::Begin::Anew,
        KWriteJournal::Beginning{
            ExpectedPaths(GetPlanned().GetPlan()),
            GetPlanned().GetPolicy().GetAdministrators(),
            std::move(rewritten),
            DirectoriesOf(ChangedPaths(GetPlanned().GetPlan()))}
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

/// The first change is about to come.
void KRun::Remember() {
    const KLockedProduct& product = GetPlanned().GetProduct();
    const std::string& service = product.GetService();
    KRunDescription run;
    run.action = GetPlanned().GetAction();
    run.product = report.product;
    run.version = report.version;
    run.buildNumber = report.buildNumber;
    run.path = report.productPath;
    run.ruleCount = report.rulesAll;
    run.run = backup.GetRun();
    run.services = services.ToText();
    if (GoesOn()) {
        DeleteHalfWritten();
    }
    state.emplace(service);
    state->Begin(run);
    if (GetPlanned().Installs() && !KKeptKit::FindDirectory(service)) {
        KeepKit(
            GetPlanned(),
            InstalledVersionText(product.GetRecord()),
            checked.GetCopies().GetSealed()
        ); // also one that does not come to its end can be removed
    }
}

/// While the state still says of which run it is.
void KRun::DeleteHalfWritten() const {
    const KLockedProduct& product = GetPlanned().GetProduct();
    DeleteStaleTemporaries(
        KWriteJournal::Read(product.GetService()).directories, product.GetInterrupted()->temporaries
    );
}

void KRun::StartRules() {
    // The engine took it from the file as it stands.
    if (const auto& record = GetPlanned().GetProduct().GetRecord()) {
        KMacroContext::SetInstalledVersion(InstalledVersionText(record));
    }
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
            Text(
                "%s: %s No rule was run.",
                context.kit.GetScript().c_str(),
                Printable(DescribeError(error))
            )
        );
    }
}

void KRun::FillLogEnd() const {
    constexpr std::size_t linesShown = 5;
    report.logEnd = KSetupLogTail(report.log.c_str()).GetLast(linesShown);
}

} // namespace KSETUP
