// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/KSetupStop.h>
#include <setup/check/FindingText.h>
#include <setup/check/KCheck.h>
#include <setup/output/TextFormat.h>
#include <setup/plan/AddedLines.h>
#include <setup/plan/LoadProblems.h>
#include <setup/plan/NeededPrograms.h>
#include <setup/plan/RunRefusals.h>
#include <setup/plan/SharedPlace.h>
#include <setup/preflight/Preflight.h>
#include <setup/preflight/RunningPrograms.h>
#include <setup/preflight/TrustedPlaces.h>
#include <setup/run/KCheckedRun.h>
#include <setup/run/KQuestion.h>
#include <setup/run/PlannedPaths.h>
#include <setup/script/SecretNames.h>
#include <setup/state/StateDirectory.h>
#include <sup++/SvcService.h>

#include <filesystem>
#include <optional>
#include <utility>
#include <vector>

namespace KSETUP {

namespace {

constexpr const char* commandLogName = "$product$ Setup Commands.txt";

void SetOfflineServices(bool leaveForNextBoot) {
    if (SvcSetOfflineServices(0, leaveForNextBoot ? 1 : 0) != 0) {
        throw KSetupFailure(ExitCode::internal, SvcGetServiceErrorText());
    }
}

/// An engine that is given a wrong script does what it says; here people are helped.
void RefuseErrors(const KPlannedRun& planned) {
    const KRunContext& context = planned.GetContext();
    const KCheckResult found =
        CheckKitForErrors(context.kit, planned.GetProductPath(), planned.GetView());
    if (!found.hasCycle && (context.arguments.noCheck || !found.HasErrors())) {
        return;
    }
    KText words = Text("the kit's script has errors. Nothing was changed.");
    for (const KFinding& finding : found.findings) {
        words += "\n" + ToLine(finding, context.kit.GetDirectory());
    }
    throw KSetupFailure(
        ExitCode::malformedScript,
        words + (found.hasCycle ? Text("\nFix the circle first: it would load without end.")
                                : Text("\nFix them, or install with --no-check."))
    );
}

/// A machine has what the administrator put there; a tree that is to be one may lack even the shell.
void RefuseMissingPrograms(const KPlannedRun& planned) {
    const KRunContext& context = planned.GetContext();
    if (context.arguments.root.empty()) {
        return;
    }
    if (const std::optional<KMissingProgram> missing =
            FindMissingProgram(planned.GetPlan(), context.kit.GetScript().c_str())) {
        throw KSetupFailure(
            ExitCode::ruleFailed,
            Text("%s. Nothing was changed. %s", missing->words, missing->advice)
        );
    }
}

/// What the plan knows to fail is not begun. A command before it may make what is missing.
void RefuseObstacles(const KPlannedRun& planned) {
    const KPlan& plan = planned.GetPlan();
    const std::string& name = planned.GetContext().report.product;
    if (const KText why = WhyConflict(plan); !why.empty()) {
        throw KSetupFailure(
            ExitCode::conflict,
            Text(
                "%s must not change %s. Nothing was changed. Move it away, or use "
                "--allow-conflicts.",
                name,
                why
            )
        );
    }
    KLockedProduct& product = planned.GetProduct();
    const KText system =
        WhySystemPlace(plan, planned.GetPolicy(), planned.GetProductPath(), product.GetService());
    if (!system.empty() && !planned.GetContext().arguments.allowConflicts) {
        throw KSetupFailure(
            ExitCode::conflict,
            Text("%s. Nothing was changed. --allow-conflicts does it all the same.", system)
        );
    }
    for (const KPlannedRule& rule : plan.GetRules()) {
        for (const KPlannedAction& action : rule.actions) {
            if (action.kind == KPlannedAction::Kind::StartCommand ||
                action.kind == KPlannedAction::Kind::RunCommand) {
                return;
            }
            if (!action.obstacle.empty()) {
                throw KSetupFailure(
                    ExitCodeOf(action),
                    Text(
                        "%s:%s: %s would fail: %s. Nothing was changed.",
                        planned.GetContext().kit.GetScript().c_str(),
                        rule.rule.line.number,
                        MaskedLine(rule.rule.line.type, rule.rule.line.value),
                        action.obstacle
                    )
                );
            }
        }
    }
}

/// A signal until now changes nothing.
void RefuseStopped(KSYS::KStopSignals& signals) {
    signals.Take();
    if (signals.GetFirst() != 0) {
        throw KSetupStop(Text("Stopped on request. Nothing was changed."));
    }
}

} // namespace

KCheckedRun::KCheckedRun(KPlannedRun&& plannedRun) : planned(std::move(plannedRun)) {
    const KRunContext& context = GetContext();
    const std::string kit = context.kit.GetDirectory();
    readAhead = std::make_unique<KReadAhead>( // first: while the kit is checked the disk is idle
        planned.Installs() ? CopiedFiles(planned.GetPlan()) : std::vector<const std::string*>()
    );
    const std::vector<KCopy> lasting =
        planned.Installs() ? LastingCopies(planned.GetPlan(), kit) : std::vector<KCopy>();
    sharing = std::make_unique<KFileSharing>(planned.GetPlan(), lasting, kit);
    copies = std::make_unique<KCopyDigests>(lasting, planned.TakeSealed(), kit);
    SetOfflineServices(context.arguments.offlineServices);
    RequireScript();
    RunPreflight();
    RefuseObstacles(planned);
    RefuseMissingPrograms(planned);
    FindLogs();
    TellOwnership();
    if (!planned.Installs()) {
        AskBeforeRemoval();
    }
    RefuseStopped(context.signals);
}

void KCheckedRun::TellOwnership() const {
    KLockedProduct& product = planned.GetProduct();
    std::vector<KText>& notes = GetContext().report.notes;
    if (planned.Installs() && !product.GetRecord() && !product.GetInterrupted()) {
        if (KText there = DescribeForeignContent(product.GetOwnership(), planned.GetProductPath());
            !there.empty()) {
            notes.push_back(std::move(there));
        }
    }
    if (product.GetOwnership().GetKnown() == KOwnership::Known::Nothing &&
        product.GetOwnership().GetDamage().empty() && !planned.Installs()) {
        notes.emplace_back(Text(followsScript));
    }
}

/// Refuses what the engine would refuse to load, too. The engine comes too late for that: when the
/// log and the run's state are written.
void KCheckedRun::RequireScript() const {
    const KRunContext& context = GetContext();
    if (planned.Installs()) {
        RefuseErrors(planned); // first, because it tells the most
    }
    if (const KText why = DescribeLoadProblems(context.kit.GetScript().c_str(), planned.GetPlan());
        !why.empty()) {
        throw KSetupFailure(
            ExitCode::malformedScript,
            Text("the script cannot be loaded. Nothing was changed.\n%s", why)
        );
    }
    if (planned.Installs()) {
        RequireAddedLines(planned.GetProduct().GetMacros().GetExpander());
    }
}

/// What root runs is to be what the kit has, and stay so.
void KCheckedRun::RequirePlaceOfRoots() const {
    const KOwnership& ownership = planned.GetProduct().GetOwnership();
    const std::string& path = planned.GetProductPath();
    if (const KText why = WhySharedPlace(planned.GetPlan(), ownership, path); !why.empty()) {
        throw KSetupFailure(
            ExitCode::cannotWrite,
            Text(
                "%s. Nothing was changed. %s",
                why,
                (planned.Installs() && !planned.GetProduct().GetRecord()
                     ? Text("Choose a directory of the product's own below one of root's, as in "
                            "/opt, or make that one root's (chown root, chmod go-w).")
                     : Text("Make that one root's (chown root, chmod go-w)."))
            )
        );
    }
    if (KText shared = DescribeSharedPlace(ownership, path); !shared.empty()) {
        GetContext().report.notes.push_back(std::move(shared));
    }
}

void KCheckedRun::RunPreflight() const {
    const KRunContext& context = GetContext();
    const KPlan& plan = planned.GetPlan();
    RequireWritable(plan);
    RequireSpace(
        plan,
        planned.Installs() ? WrittenByEachInstall() : std::vector<std::string>(),
        [&](const std::string& path) { return sharing->IsShared(path); }
    );
    if (!context.arguments.offlineServices) {
        RequireServiceManager(plan);
    }
    RequirePlaceOfRoots();
    context.report.running = FindRunningPrograms(plan);
    for (const std::string& program : context.report.running) {
        context.reporter.Say(Text(
            planned.Installs() ? TextFormat("Running, and about to be replaced: %s")
                               : TextFormat("Running, and about to be deleted: %s"),
            Printable(program)
        ));
    }
}

void KCheckedRun::FindLogs() {
    const KINS::KInstaller& installer = planned.GetProduct().GetInstaller();
    std::string& log = GetContext().report.log;
    log = installer.GetSetupLogPath().c_str();
    commandLog =
        std::filesystem::path(log).parent_path() / installer.ExpandMacros(commandLogName).c_str();
    RequireSafeLog(log);
    RequireSafeLog(commandLog);
}

/// Before the question: the files that are not the product's, and would go.
KText KCheckedRun::DescribeWhatGoesBesides() const {
    constexpr std::size_t filesShown = 10;
    const KOwnership& ownership = planned.GetProduct().GetOwnership();
    std::size_t count = 0;
    KText text;
    planned.GetPlan().ForEachAction([&](const KPlannedAction& action) {
        const bool goes = action.kind == KPlannedAction::Kind::DeleteFile && !action.lacks;
        if (goes && ownership.Find(*action.path) == nullptr && ++count <= filesShown) {
            text += (count == 1 ? Text("Not the product's, and deleted too:\n    ") : "    ") +
                    Printable(*action.path) + "\n";
        }
    });
    return count > filesShown ? Text("%s    and %s more\n", text, count - filesShown) : text;
}

namespace {

/// In English or in the language of the question.
bool IsYes(const std::optional<std::string>& answer) {
    const KText letter = Text("y");
    const KText capital = Text("Y");
    const KText word = Text("yes");
    return answer == letter.English() || answer == letter.Translated() ||
           answer == capital.English() || answer == capital.Translated() ||
           answer == word.English() || answer == word.Translated();
}

} // namespace

void KCheckedRun::AskBeforeRemoval() const {
    const KRunContext& context = GetContext();
    const KQuestion asking(context);
    if (!asking.IsWanted()) {
        return;
    }
    if (!asking.CanAsk()) {
        throw KSetupFailure(
            ExitCode::usage,
            Text(
                "there is no terminal to ask on whether to remove %s. Nothing was removed. --yes "
                "removes it without being asked.",
                Printable(context.report.product)
            )
        );
    }
    const KRunReport& report = context.report;
    const KText what = DescribeWhatGoesBesides();
    const std::string product = Printable(report.product) + " " + Printable(report.version);
    const std::string path = Printable(report.productPath);
    const KText question =
        report.root.empty()
            ? Text("%sRemove %s from %s? [y/N] ", what, product, path)
            : Text(
                  "%sRemove %s from %s in %s? [y/N] ", what, product, path, Printable(report.root)
              );
    if (!IsYes(asking.Ask(question))) {
        throw KSetupStop(Text("Nothing was removed."));
    }
}

} // namespace KSETUP
