// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/files/PathText.h>
#include <setup/kit/KSetupKit.h>
#include <setup/output/KRunReport.h>
#include <setup/output/TextFormat.h>
#include <setup/plan/LoadProblems.h>
#include <setup/plan/MacroReport.h>
#include <setup/plan/NeededPrograms.h>
#include <setup/plan/PlanReport.h>
#include <setup/plan/ProductPath.h>
#include <setup/plan/RunPlan.h>
#include <setup/plan/RunRefusals.h>
#include <setup/plan/SameKit.h>
#include <setup/plan/SharedPlace.h>
#include <setup/plan/ValueMacros.h>
#include <setup/script/KMacroContext.h>
#include <setup/state/KInstalledRecord.h>
#include <setup/state/KRunState.h>
#include <setup/state/StateDirectory.h>
#include <sup++/KError.h>
#include <sup++/KTraceLogger.h>
#include <sup++/SvcData.h>
#include <sup++/SvcTrace.h>

#include <algorithm>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace KSETUP {

namespace {

/// The macros of the kit's values, as far as they are known without asking.
///
/// Returns  the values that an install needs besides
std::vector<const KDeclaredValue*>
KnowValues(const KSetupKit& kit, KMacroContext& macros, bool installs, bool isInstalled) {
    const KValueTexts texts =
        installs
            ? FindKnownValues(kit, macros, {}, isInstalled, std::make_shared<KDiskView>()).texts
            : FindRemovalValues(kit, macros.Expand("$serviceName$"));
    SetValueMacros(kit.GetValues(), texts);
    std::vector<std::string> names;
    std::vector<const KDeclaredValue*> missing;
    for (const KDeclaredValue& value : kit.GetValues()) {
        names.push_back(value.name);
        if (!texts.contains(value.name)) {
            missing.push_back(&value);
        }
    }
    macros.AddNames(std::move(names));
    return missing;
}

/// Does the work of a question. With --json whoever asked gets an object also when it fails, and
/// that is the end of it: a failure that went on from here would get an object of its own.
int Answer(
    const KSetupArguments& arguments, const char* command, const std::function<int()>& work
) {
    // The libraries would tell the system log what they stumble over; a question leaves no trace.
    SvcGetGlobalLogger()->UseNothing();
    KRunReport report;
    report.command = command;
    report.result = KRunResult::Refused;
    const auto refuse = [&](int exitCode, const KText& why) {
        if (!arguments.json) {
            throw KSetupFailure(exitCode, why);
        }
        report.exitCode = exitCode;
        report.error = why;
        std::cerr << "ins-setup: " << why << std::endl;
        std::cout << ToJson(report) << std::endl;
        return exitCode;
    };
    try {
        return work();
    } catch (const KSetupFailure& failure) {
        return refuse(failure.GetExitCode(), failure.GetText());
    } catch (const KSUP::KError& error) {
        return refuse(
            ExitCode::noKit,
            error.HasInfo() ? error.GetInfo().GetString().c_str() : error.GetSummary().c_str()
        );
    }
}

/// What the run would answer where its first rule that cannot be done ends it.
int ExitCodeOfRules(const KPlan& plan) {
    for (const KPlannedRule& rule : plan.GetRules()) {
        for (const KPlannedAction& action : rule.actions) {
            if (!action.obstacle.empty()) {
                return ExitCodeOf(action);
            }
        }
    }
    return ExitCode::done;
}

/// In the order in which a run would come to it.
int FindEnd(
    KPlanReport& report,
    const KSetupArguments& arguments,
    const KChangePolicy& policy,
    const std::string& service
) {
    if (report.refusal = WhyNotWritable(*report.plan); !report.refusal.empty()) {
        return ExitCode::cannotWrite;
    }
    if (!std::all_of(report.space.begin(), report.space.end(), [](const KPlan::Space& space) {
            return space.HasRoom();
        })) {
        return ExitCode::cannotWrite;
    }
    if (HasServices(*report.plan) && !arguments.offlineServices && !IsSystemdRunning()) {
        report.refusal = Text("the script has services, and systemd does not run here");
        return ExitCode::noService;
    }
    if (report.refusal = WhySharedPlace(*report.plan, policy.GetOwnership(), report.path);
        !report.refusal.empty()) {
        return ExitCode::cannotWrite;
    }
    if (const KText why = WhyConflict(*report.plan); !why.empty()) {
        report.refusal = Text("%s. --allow-conflicts changes it all the same", why);
        return ExitCode::conflict;
    }
    if (const KText why = WhySystemPlace(*report.plan, policy, report.path, service);
        !why.empty() && !arguments.allowConflicts) {
        report.refusal = Text("%s. --allow-conflicts does it all the same", why);
        return ExitCode::conflict;
    }
    const std::optional<KMissingProgram> missing =
        arguments.root.empty() ? std::nullopt : FindMissingProgram(*report.plan, report.script);
    if (missing) {
        report.refusal = missing->words + ". " + missing->advice;
        return ExitCode::ruleFailed;
    }
    const int exitCode = ExitCodeOfRules(*report.plan);
    return exitCode == ExitCode::done && !report.recordObstacle.empty() ? ExitCode::ruleFailed
                                                                        : exitCode;
}

/// A removal takes away what is installed, whatever version the kit is of.
void FillVersion(
    KPlanReport& report, const std::optional<KInstalledRecord>& record, const KMacroContext& macros
) {
    const bool isKits = report.installs || !record;
    report.version = isKits ? macros.Expand("$verInfo$") : record->version;
    report.buildNumber = isKits ? SvcGetOEMDataEx()->buildNumber : record->buildNumber;
}

/// Null for a kit of which not all may be looked at.
std::shared_ptr<const KKitLook> LookAt(const KSetupKit& kit) {
    try {
        return std::make_shared<KKitLook>(kit.GetDirectory());
    } catch (const KSetupFailure&) {
        return nullptr;
    }
}

/// What an install would look at before it does anything (KSameInstall). Only root can be sure.
bool IsUpToDate(
    const std::shared_ptr<const KKitLook>& look,
    const std::optional<KInstalledRecord>& record,
    const KMacroContext& macros,
    const std::string& path,
    const KOwnership& ownership
) {
    if (!look || !record || !record->IsSound() || NormalPath(path) != NormalPath(record->path)) {
        return false;
    }
    try {
        const std::string service = macros.Expand("$serviceName$");
        return !KRunState::Read(service) && IsInstalledFrom(
                                                KKitFingerprint(look),
                                                KINS::KInstaller(),
                                                *record,
                                                service,
                                                ownership,
                                                macros.Expand("$verInfo$")
                                            );
    } catch (const KSetupFailure&) { // it may not be looked at, so it is not known
        return false;
    }
}

void NoteMissingValues(KPlanReport& report, const std::vector<const KDeclaredValue*>& missing) {
    for (const KDeclaredValue* value : missing) {
        report.notes.push_back(Text(
            "An install needs the value \"%s\" (%s): it asks for it, or takes it by --values.",
            value->name,
            value->text
        ));
    }
}

int Plan(const KSetupArguments& arguments, bool installs) {
    const KSetupKit kit(KSetupKit::ChooseDirectory(arguments.kit));
    const std::optional<KInstalledRecord> record = LoadRecord(KINS::KInstaller());
    RequireTrusted(record);
    if (!installs && arguments.productPath.empty() && !record) {
        throw KSetupFailure(
            ExitCode::notInstalled,
            Text(
                "%s is not installed: there is nothing to remove. To see what a removal would do, "
                "name the path where it would be installed.",
                KSetupKit::GetProductName().c_str()
            )
        );
    }
    const KScript script(kit.GetScript());
    KMacroContext macros(InstalledVersionText(record));
    const std::string path = ChooseProductPath(record, macros, script, arguments.productPath);
    macros.SetProductPath(path);
    const std::vector<const KDeclaredValue*> missing =
        KnowValues(kit, macros, installs, record.has_value());
    const std::shared_ptr<const KKitLook> look = installs ? LookAt(kit) : nullptr;
    KPlannedTree tree(
        KPlannedTree::Below::Disk, kit.GetDirectory(), std::make_shared<KDiskView>(look)
    );
    const bool isOffline = arguments.offlineServices && !IsSystemdRunning();
    const std::string service = macros.Expand("$serviceName$");
    const KOwnership ownership(service, record.has_value());
    const KChangePolicy policy(ownership, path, OptionsOf(arguments));
    const KPlan plan(
        script,
        installs ? "install" : "remove",
        macros.GetExpander(),
        tree,
        policy,
        isOffline ? KServiceFate::Offline : KServiceFate::Managed
    );
    if (const KText why = DescribeLoadProblems(script.GetPath(), plan); !why.empty()) {
        throw KSetupFailure(ExitCode::malformedScript, why);
    }
    KPlanReport report;
    report.installs = installs;
    report.product = KSetupKit::GetProductName().c_str();
    FillVersion(report, record, macros);
    report.path = path;
    report.script = script.GetPath();
    report.plan = &plan;
    report.space = plan.ReadSpace(installs ? WrittenByEachInstall() : std::vector<std::string>());
    report.recordObstacle = installs ? WhyNoRecord(tree, macros) : "";
    report.isUpToDate = installs && IsUpToDate(look, record, macros, path, ownership);
    if (report.isUpToDate) {
        report.notes.emplace_back(
            Text("This very kit is installed, and everything stands as it was left: an install "
                 "does nothing of this unless it is told to (--reinstall).")
        );
    }
    if (record && !record->IsSound()) {
        report.notes.push_back(record->ToWords());
    }
    if (installs && !record) {
        if (KText there = DescribeForeignContent(ownership, path); !there.empty()) {
            report.notes.push_back(std::move(there));
        }
    }
    if (installs) {
        NoteMissingValues(report, missing);
    }
    if (KText shared = DescribeSharedPlace(ownership, path);
        !shared.empty() && !RunsPrograms(plan)) {
        report.notes.push_back(std::move(shared));
    }
    if (ownership.GetKnown() == KOwnership::Known::Nothing) {
        report.notes.emplace_back(Text(followsScript));
    } else if (ownership.GetKnown() == KOwnership::Known::Denied) {
        report.notes.emplace_back(Text("What is the product's can be seen by root only: this is "
                                       "what would be done if all of it were."));
    }
    const int exitCode = FindEnd(report, arguments, policy, service);
    std::cout << (arguments.json ? ToJson(report, exitCode) + "\n" : ToText(report)) << std::flush;
    return exitCode;
}

} // namespace

int RunPlan(const KSetupArguments& arguments) {
    const bool installs = arguments.command == Command::PlanInstall;
    return Answer(arguments, installs ? "plan install" : "plan remove", [&] {
        return Plan(arguments, installs);
    });
}

int RunMacros(const KSetupArguments& arguments) {
    return Answer(arguments, "macros", [&] {
        const KSetupKit kit(KSetupKit::ChooseDirectory(arguments.kit));
        const std::optional<KInstalledRecord> record = LoadRecord(KINS::KInstaller());
        const KScript script(kit.GetScript());
        KMacroContext macros(InstalledVersionText(record));
        macros.SetProductPath(ChooseProductPath(record, macros, script, arguments.productPath));
        KnowValues(kit, macros, true, record.has_value());
        if (record && !record->IsSound()) {
            std::cerr << Printable(record->ToWords()) << std::endl;
        }
        std::cout << (arguments.json ? MacrosToJson(macros.List()) + "\n"
                                     : MacrosToText(macros.List()))
                  << std::flush;
        return ExitCode::done;
    });
}

} // namespace KSETUP
