// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/output/Words.h>
#include <setup/plan/AddedLines.h>
#include <setup/plan/ProductPath.h>
#include <setup/plan/WhyNoRule.h>
#include <setup/preflight/Preflight.h>
#include <setup/preflight/TrustedPlaces.h>
#include <setup/run/KRunChronicle.h>
#include <setup/run/KSetupRun.h>
#include <setup/run/RunWords.h>
#include <setup/script/KScript.h>
#include <setup/state/StateDirectory.h>
#include <sup++/KErrorCode.h>
#include <sup++/KUtil.h>
#include <sup++/Svc.h>

#include <csignal>
#include <filesystem>
#include <iostream>
#include <optional>

#include <unistd.h>

namespace KSETUP {

namespace {

constexpr const char* noVersion = "unknown"; // the engine's word for a record without one

void SetOfflineServices(const KSetupArguments& arguments) {
    if (SvcSetOfflineServices(0, arguments.offlineServices ? 1 : 0) != 0) {
        throw KSetupFailure(ExitCode::internal, SvcGetServiceErrorText());
    }
}

/// The rules that count, as the engine will count them.
std::vector<KWatchedRule> RulesOf(const KPlan& plan, const std::string& script, bool installs) {
    std::vector<KWatchedRule> rules;
    for (const KPlannedRule& planned : plan.GetRules()) {
        const KScriptLine& line = planned.rule.line;
        if (line.type != "section") {
            rules.push_back(
                {script + ":" + std::to_string(line.number), line.type + "=" + line.value}
            );
        }
    }
    if (installs) {
        for (std::string& line : ReadAddedLines()) {
            rules.push_back({"--addProfileLine", std::move(line)});
        }
    }
    return rules;
}

} // namespace

KSetupRun::KSetupRun(
    const KSetupKit& kitToUse,
    const KSetupArguments& given,
    KSetupVoice& speaker,
    KRunReport& toFill
)
    : kit(kitToUse),
      arguments(given),
      voice(speaker),
      report(toFill),
      guard(kitToUse, given, speaker, signals, macros.Expand("$serviceName$")) {
    report.product = KSetupKit::GetProductName().c_str();
}

void KSetupRun::Install() {
    report.version = macros.Expand("$verInfo$");
    report.buildNumber = SvcGetOEMDataEx()->buildNumber;
    SetOfflineServices(arguments);
    guard.Lock();
    if (installer.IsProductInstalled()) {
        const KInstalledRecord record = ReadRecord(installer);
        report.formerVersion = record.version;
        // A run that was killed left the link and no record: there is no version to protect.
        if (!arguments.allowDowngrade && record.version != noVersion) {
            RequireNoDowngrade(
                report.product,
                {record.version, record.buildNumber},
                {report.version, report.buildNumber}
            );
        }
    }
    Plan("install");
    guard.ReadAhead(*plan);
    guard.RefuseErrors(report.productPath, view); // first, because it tells the most
    RequireLoadable();
    RequireAddedLines(macros.GetExpander());
    report.running = guard.LookAround(*plan);
    FindLogs();
    BackUp();
    Prepare();
    Load();
    Watch();
    End();
}

void KSetupRun::Remove() {
    KInstalledRecord record;
    if (installer.IsProductInstalled()) {
        record = ReadRecord(installer);
    } else if (const auto begun = guard.FindBegunRemoval()) {
        record = {begun->path, begun->version, 0};
        begunPath = begun->path;
    } else {
        return; // with nothing done, which is what was asked for
    }
    report.version = record.version;
    report.buildNumber = record.buildNumber;
    SetOfflineServices(arguments);
    guard.Lock();
    Plan("remove");
    RequireLoadable();
    report.running = guard.LookAround(*plan);
    FindLogs();
    AskBeforeRemoval();
    BackUp();
    Prepare();
    Load();
    Watch();
    End();
}

/// Everything that the run may change, so that "restore" can put it back.
void KSetupRun::BackUp() {
    const std::filesystem::path product(report.productPath);
    guard.RefuseStopped();
    guard.BackUp(*plan, product / "config" / macros.Expand("$iniFile$"));
}

/// Only where somebody sits: a run that nobody watches is never held up.
void KSetupRun::AskBeforeRemoval() {
    if (arguments.yes || !voice.IsText() || ::isatty(STDIN_FILENO) == 0 ||
        ::isatty(STDOUT_FILENO) == 0) {
        return;
    }
    std::cout << "Remove " << Shown(report.product) << " " << Shown(report.version) << " from "
              << Shown(report.productPath) << "? [y/N] " << std::flush;
    const std::optional<std::string> answer = signals.ReadLine(STDIN_FILENO);
    if (!answer) {
        std::cout << std::endl; // the end of the line that nobody wrote
    }
    if (answer != "y" && answer != "Y" && answer != "yes") {
        const int signal = signals.GetFirst() != 0 ? signals.GetFirst() : SIGINT;
        throw KSetupFailure(ExitCode::signalBase + signal, "Nothing was removed.");
    }
}

/// Reads the script and finds the product path, all without a change.
void KSetupRun::Plan(const char* section) {
    const KScript script(kit.GetScript());
    report.productPath = ChooseProductPath(
        installer, macros, script, begunPath.empty() ? arguments.productPath : begunPath
    );
    macros.SetProductPath(report.productPath);
    KPlannedTree tree(KPlannedTree::Below::Disk, kit.GetDirectory(), view);
    plan = std::make_unique<KPlan>(script, section, macros.GetExpander(), tree);
}

/// Refuses what the engine would refuse to load. The engine comes too late for that: when the log
/// and the run's state are written.
void KSetupRun::RequireLoadable() const {
    if (const std::string why = WhyNotLoaded(kit.GetScript().c_str(), *plan); !why.empty()) {
        throw KSetupFailure(
            ExitCode::malformedScript, "the script cannot be loaded. Nothing was changed.\n" + why
        );
    }
}

/// Where the run's log goes, and beside it what its commands write.
void KSetupRun::FindLogs() {
    const KSUP::KString logName = installer.ExpandMacros("$product$ Setup Log.txt");
    report.log = KSUP::KUtil::GetPathName(logDirectory, logName).c_str();
    commandLog = std::filesystem::path(report.log).parent_path() /
                 installer.ExpandMacros("$product$ Setup Commands.txt").c_str();
    RequireSafeLog(report.log);
    RequireSafeLog(commandLog);
}

void KSetupRun::Prepare() {
    view.reset(); // from here on it is not true any more
    KRunChronicle::Begin(report, kit.GetDirectory());
    try {
        installer.Initialize(kit.GetScript());
    } catch (const KSUP::KError& error) {
        throw KSetupFailure(ExitCode::noKit, InWords(error));
    }
    commandOutput.Begin(commandLog);
}

void KSetupRun::Load() {
    const bool installs = report.command == "install";
    watch = std::make_unique<KRunWatch>(
        installer, signals, voice, RulesOf(*plan, kit.GetScript().c_str(), installs)
    );
    report.rulesAll = watch->GetRuleCount();
    installer.SetCallback([this](const KSUP::KString& status, double percent) {
        watch->Report(status, percent);
    });
    voice.Start(report);
    KRunDescription run;
    run.action = installs ? KRunDescription::Action::Install : KRunDescription::Action::Remove;
    run.product = report.product;
    run.version = report.version;
    run.path = report.productPath;
    run.ruleCount = report.rulesAll;
    guard.Begin(run, *plan);
    try {
        if (installs) {
            installer.StartInstall(report.productPath);
        } else {
            installer.StartUninstall(report.productPath);
        }
    } catch (const KSUP::KError& error) {
        const bool malformed = error.GetCode() == KSUP::ErrorCode::malformedRule;
        FillLogEnd();
        guard.End(); // nothing was begun
        throw KSetupFailure(
            malformed ? ExitCode::malformedScript : ExitCode::internal,
            std::string(kit.GetScript().c_str()) + ": " + Shown(InWords(error)) +
                " No rule was run."
        );
    }
}

} // namespace KSETUP
