// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/output/KSetupLogTail.h>
#include <setup/plan/ProductPath.h>
#include <setup/run/KRunChronicle.h>
#include <setup/run/KSetupRun.h>
#include <setup/run/RunWords.h>
#include <setup/safety/Preflight.h>
#include <setup/script/KScript.h>
#include <sup++/KErrorCode.h>
#include <sup++/KFileBase.h>
#include <sup++/KUtil.h>
#include <sup++/Svc.h>
#include <sup++/SvcProcess.h>

#include <csignal>
#include <filesystem>
#include <iostream>
#include <system_error>

#include <unistd.h>

namespace KSETUP {

namespace {

constexpr std::size_t logLinesShown = 5;
constexpr const char* noVersion = "unknown"; // the engine's word for a record without one
constexpr unsigned logDirectory = 19;        // of the path map

std::string Text(const KSUP::KString& text) {
    return text.c_str();
}

/// In bytes, 0 for a file that is missing.
std::uintmax_t SizeOf(const std::string& path) {
    std::error_code failed;
    const std::uintmax_t size = std::filesystem::file_size(path, failed);
    return failed ? 0 : size;
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
    // A line of the command line that is malformed ends the loading, so none is missed here.
    char buffer[512];
    unsigned cursor = 0;
    while (installs && SvcEnumerateStringFromCommandLine(
                           0,
                           SvcGetGlobalDataEx()->commandLine,
                           "",
                           "addProfileLine",
                           sizeof(buffer),
                           &cursor,
                           buffer
                       ) == 0) {
        rules.push_back({"--addProfileLine", buffer});
    }
    return rules;
}

std::string WordsOf(const KScriptCycle& cycle) {
    std::string words;
    for (const std::string& name : cycle.names) {
        words += (words.empty() ? "[" : " -> [") + name + "]";
    }
    return words;
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
    report.product = Text(KSetupKit::GetProductName());
}

void KSetupRun::Install() {
    report.version = macros.Expand("$verInfo$");
    report.buildNumber = SvcGetOEMDataEx()->buildNumber;
    if (SvcSetOfflineServices(0, arguments.offlineServices ? 1 : 0) != 0) {
        throw KSetupFailure(ExitCode::internal, SvcGetServiceErrorText());
    }
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
    guard.RefuseErrors(report.productPath, view);
    guard.LookAround(*plan);
    BackUp();
    Prepare();
    Load();
    Watch();
    if (report.result == KRunResult::Done) {
        if (const std::string why = guard.KeepManifest(*plan, report.productPath); !why.empty()) {
            // The product is installed all the same.
            report.notes.push_back("\"status --verify\" will not know of this: " + why);
        }
        guard.End();
    }
    FillNotes();
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
    guard.Lock();
    Plan("remove");
    guard.LookAround(*plan);
    AskBeforeRemoval();
    BackUp();
    Prepare();
    Load();
    Watch();
    if (report.result == KRunResult::Done) {
        FillRemoved();
    }
    FillNotes();
}

/// Everything that the run may change, so that "restore" can put it back.
void KSetupRun::BackUp() {
    const std::filesystem::path product(report.productPath);
    guard.BackUp(*plan, product / "config" / macros.Expand("$iniFile$"));
}

/// Only where somebody sits: a run that nobody watches is never held up.
void KSetupRun::AskBeforeRemoval() const {
    if (arguments.yes || !voice.IsText() || ::isatty(STDIN_FILENO) == 0 ||
        ::isatty(STDOUT_FILENO) == 0) {
        return;
    }
    std::cout << "Remove " << Shown(report.product) << " " << Shown(report.version) << " from "
              << Shown(report.productPath) << "? [y/N] " << std::flush;
    std::string answer;
    std::getline(std::cin, answer);
    if (answer != "y" && answer != "Y" && answer != "yes") {
        throw KSetupFailure(ExitCode::signalBase + SIGINT, "Nothing was removed.");
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
    if (!plan->GetCycles().empty()) {
        const KScriptCycle& cycle = plan->GetCycles().front();
        throw KSetupFailure(
            ExitCode::malformedScript,
            script.GetPath() + ":" + std::to_string(cycle.line.number) +
                ": the section includes itself: " + WordsOf(cycle) + ". Take one of them out."
        );
    }
}

void KSetupRun::Prepare() {
    view.reset(); // from here on it is not true any more
    report.log = Text(
        KSUP::KUtil::GetPathName(logDirectory, installer.ExpandMacros("$product$ Setup Log.txt"))
    );
    RequireSafeLogDirectory(std::filesystem::path(report.log).parent_path());
    KRunChronicle::Begin(report, kit.GetDirectory());
    try {
        installer.Initialize(kit.GetScript());
    } catch (const KSUP::KError& error) {
        throw KSetupFailure(ExitCode::noKit, InWords(error, ""));
    }
    NameCommandOutput();
}

/// Lets what commands write go into a file beside the setup log: whether a command failed does not
/// matter to the run, so this is the only place that tells.
void KSetupRun::NameCommandOutput() {
    commandOutput = std::filesystem::path(report.log).parent_path() /
                    Text(installer.ExpandMacros("$product$ Setup Commands.txt"));
    commandOutputSize = SizeOf(commandOutput);
    if (const unsigned status = SvcSetCommandOutput(commandOutput.c_str()); status != 0) {
        throw KSetupFailure(
            ExitCode::internal, std::generic_category().message(static_cast<int>(status))
        );
    }
}

void KSetupRun::Load() {
    const bool installs = report.command == "install";
    watch = std::make_unique<KRunWatch>(
        installer, signals, voice, RulesOf(*plan, Text(kit.GetScript()), installs)
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
        report.logEnd = KSetupLogTail(report.log.c_str()).GetLast(logLinesShown);
        guard.End(); // nothing was begun
        throw KSetupFailure(
            malformed ? ExitCode::malformedScript : ExitCode::internal,
            Text(kit.GetScript()) + ": " + Shown(InWords(error, "")) + " Nothing was changed."
        );
    }
}

void KSetupRun::Watch() {
    const auto ended = watch->Wait([this](unsigned done) { guard.SetRule(done + 1); });
    report.rulesDone = installer.GetCompletedCount();
    report.rulesAll = installer.GetMaxCount();
    if (ended) {
        FillEnd(*ended);
    }
    KRunChronicle::End(report, installer.GetLog());
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
    report.logEnd = KSetupLogTail(report.log.c_str()).GetLast(logLinesShown);
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

void KSetupRun::FillNotes() {
    if (std::string left = LeftServices(); !left.empty()) {
        report.notes.push_back(std::move(left));
    }
    // Another size, not only a larger one: somebody may have emptied the file meanwhile.
    const std::uintmax_t size = SizeOf(commandOutput);
    report.commandOutput = size == 0 || size == commandOutputSize ? "" : commandOutput;
}

void KSetupRun::FillRemoved() {
    if (installer.IsProductInstalled()) {
        report.result = KRunResult::Failed;
        report.exitCode = ExitCode::ruleFailed;
        report.error = report.product +
                       " still counts as installed: the script's section [remove] does not delete "
                       "the product's link in /etc. Everything else that it names is removed.";
        return;
    }
    report.leftBehind = guard.FindLeft(report.productPath);
    if (KSUP::KFileBase::DoesFileExist(report.productPath)) {
        report.notes.emplace_back(
            "The directory is still there: it holds what the script does not delete."
        );
    }
    guard.Forget();
}

} // namespace KSETUP
