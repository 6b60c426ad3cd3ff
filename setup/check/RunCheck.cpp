// SPDX-License-Identifier: MIT
#include <setup/ExitCode.h>
#include <setup/KSetupFailure.h>
#include <setup/check/FindingText.h>
#include <setup/check/KCheck.h>
#include <setup/check/RunCheck.h>
#include <setup/kit/KSetupKit.h>
#include <setup/output/KJsonObject.h>
#include <setup/output/KRunReport.h>
#include <setup/output/TextFormat.h>
#include <sup++/KError.h>

#include <filesystem>
#include <iostream>

namespace KSETUP {

namespace {

namespace fs = std::filesystem;

constexpr int schemaVersion = 1;

const char* Word(KSeverity severity) {
    return severity == KSeverity::Error ? "error" : "warning";
}

/// The kit's directory as an editor finds it from where the program was called: as it was given, or
/// else the way down to it.
fs::path ShownDirectory(const KSetupKit& kit, const KSetupArguments& arguments) {
    if (!arguments.kit.empty()) {
        return fs::path(arguments.kit);
    }
    std::error_code unknown; // then the absolute path serves
    const fs::path down = fs::proximate(kit.GetDirectory(), unknown);
    return unknown || *down.begin() == ".." ? fs::path(kit.GetDirectory()) : down;
}

void Print(const KCheckResult& result, const fs::path& directory) {
    for (const KFinding& finding : result.findings) {
        std::cout << ToLine(finding, directory.string()) << "\n";
    }
    const std::string kit = directory.lexically_normal().string();
    if (result.findings.empty()) {
        std::cout << Text("Kit %s: nothing is wrong with its script.", Printable(kit)) << std::endl;
        return;
    }
    std::cout << Text(
                     "Kit %s: %s, %s.",
                     Printable(kit),
                     Counted(result.Count(KSeverity::Error), "%s error", "%s errors"),
                     Counted(result.Count(KSeverity::Warning), "%s warning", "%s warnings")
                 )
              << std::endl;
}

void PrintJson(const KCheckResult& result, const KSetupKit& kit, int exitCode) {
    // As ASCII: no byte of a script gets to a terminal as it is.
    const KJsonObject ascii(KJsonObject::Characters::Ascii);
    std::vector<KJsonObject> findings;
    for (const KFinding& finding : result.findings) {
        findings.push_back(KJsonObject(ascii)
                               .Put("severity", Word(finding.severity))
                               .Put("file", finding.file)
                               .Put("line", finding.line)
                               .Put("column", finding.column)
                               .Put("text", finding.text)
                               .Put("rule", finding.rule)
                               .Put("message", finding.message)
                               .Put("advice", finding.advice));
    }
    KJsonObject object(ascii);
    object.Put("schema", schemaVersion);
    object.Put("command", "check");
    object.Put("result", result.HasErrors() ? "failed" : "done");
    object.Put("exitCode", exitCode);
    object.Put("kit", kit.GetDirectory());
    object.Put("errors", result.Count(KSeverity::Error));
    object.Put("warnings", result.Count(KSeverity::Warning));
    std::cout << object.Put("findings", findings).ToText() << std::endl;
}

int Check(const KSetupArguments& arguments) {
    const KSetupKit kit(KSetupKit::ChooseDirectory(arguments.kit), KSetupKit::Mistakes::Told);
    KCheckResult result = CheckKit(kit);
    for (KFinding& finding : result.findings) {
        finding.severity = arguments.strict ? KSeverity::Error : finding.severity;
    }
    const int exitCode = result.HasErrors() ? ExitCode::malformedScript : ExitCode::done;
    if (arguments.json) {
        PrintJson(result, kit, exitCode);
    } else {
        Print(result, ShownDirectory(kit, arguments));
    }
    return exitCode;
}

/// Programs that asked for an object get one, also when there is no answer.
int Refuse(int exitCode, const KText& why) {
    KRunReport report;
    report.command = "check";
    report.result = KRunResult::Refused;
    report.exitCode = exitCode;
    report.error = why;
    std::cout << ToJson(report) << std::endl;
    std::cerr << "ins-setup: " << why << std::endl;
    return exitCode;
}

} // namespace

int RunCheck(const KSetupArguments& arguments) {
    if (!arguments.json) {
        return Check(arguments);
    }
    try {
        return Check(arguments);
    } catch (const KSetupFailure& failure) {
        return Refuse(failure.GetExitCode(), failure.GetText());
    } catch (const KSUP::KError& error) {
        return Refuse(ExitCode::internal, error.GetSummary().c_str());
    }
}

} // namespace KSETUP
